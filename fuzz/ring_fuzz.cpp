// The cycle buffer: writes, reads and writes from within the callback, compared with a ring in which each byte is set on its
// own. A read hands over up to the storage's end, at most the capacity less what is stored, and then what wrapped.
#include <vector>

#include "container/container_inter.h"
#include "input.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Ring {
    fuzz::Input *pInput;
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    Bytes storage;
    size_t nRead = 0;
    size_t nWrite = 0;
    size_t nCount = 0;
    std::vector<Bytes> pieces = {}; // handed over in one read
    uint8_t byNext = 0;

    void Write(size_t nLen) {
        Bytes bytes;
        while (bytes.size() < nLen)
            bytes.push_back(++byNext);
        const bool bFits = nLen > 0 && nCount + nLen <= storage.size();
        REQUIRE(VYX_CycleBufferWrite(hBuffer, bytes.data(), static_cast<uint32_t>(nLen)) ==
                (bFits ? VYX_OK : VYX_ERROR));
        for (size_t n = 0; bFits && n < nLen; ++n, ++nCount) {
            storage[nWrite] = bytes[n];
            nWrite = (nWrite + 1) % storage.size();
        }
    }
    void Read() {
        const size_t nBefore = nCount;
        const size_t nUpTo = nWrite;
        std::vector<Bytes> expected;
        const auto Part = [this](size_t nFrom, size_t nLen) {
            const auto itFrom = storage.begin() + static_cast<std::ptrdiff_t>(nFrom);
            return Bytes(itFrom, itFrom + static_cast<std::ptrdiff_t>(nLen));
        };
        if (nBefore > 0 && nRead + nBefore < storage.size())
            expected = {Part(nRead, nBefore)};
        else if (nBefore > 0)
            expected = {Part(nRead, std::min(storage.size() - nBefore, storage.size() - nRead)),
                        Part(0, nUpTo)};
        pieces.clear();
        REQUIRE(VYX_CycleBufferRead(hBuffer) == (nBefore > 0 ? VYX_OK : VYX_ERROR));
        REQUIRE(pieces == expected);
        nCount -= nBefore;
        nRead = nUpTo;
    }
};

int32_t Take(uint8_t *pData, uint32_t nLen, void *pUser) {
    auto *pRing = static_cast<Ring *>(pUser);
    pRing->pieces.emplace_back(pData, pData + nLen);
    pRing->Write(pRing->pInput->Pick(8)); // what is handed over still takes its room
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const int32_t iCapacity = 1 + static_cast<int32_t>(input.Pick(64));
    Ring ring{&input, nullptr, Bytes(static_cast<size_t>(iCapacity))};
    REQUIRE(VYX_CycleBufferInit(&ring.hBuffer, iCapacity, Take, &ring) == VYX_OK);
    ring.hBuffer->nIn = ring.hBuffer->nOut =
        ring.hBuffer->nEnd - ring.hBuffer->nCapacity; // both counts are about to begin anew
    while (!input.AtEnd()) {
        if (input.Pick(3) == 0)
            ring.Read();
        else
            ring.Write(input.Pick(70));
        uint32_t nStored = 9999;
        REQUIRE(VYX_CycleBufferValue(ring.hBuffer, &nStored) == VYX_OK && nStored == ring.nCount);
    }
    REQUIRE(VYX_CycleBufferDestroy(ring.hBuffer) == VYX_OK);
    return 0;
}
