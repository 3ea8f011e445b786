// Both hash tables and the byte ring.
#include <array>
#include <vector>
#include <vyx/container.h>

#include "transcript.h"

namespace transcript {

namespace {

int s_items[64]; // data of the tables

long Index(const void *pData) {
    return pData == nullptr ? -1 : static_cast<const int *>(pData) - s_items;
}

void TextTable(uint32_t nWish) {
    void *pTable = nullptr;
    Section("text table of " + std::to_string(nWish));
    Line("create: %d", VYX_SimpleHashCreate(nWish, &pTable));
    const auto *pHeader = static_cast<const struct VYX_HSEARCH_DATA *>(pTable);
    static std::array<std::string, 40> keys;
    for (size_t n = 0; n < keys.size(); ++n)
        keys[n] = std::string(n % 7, 'k') + std::to_string(n * n);
    for (int i = 0; i < 100; ++i) {
        const uint32_t nKey = Random(keys.size());
        void *pData = nullptr;
        int32_t iResult = 0;
        const uint32_t nAction = Random(4);
        if (nAction < 2) {
            _VYX_ENTRY entry = {keys[nKey].data(), &s_items[nKey + (Random(8) == 0 ? 1 : 0)]};
            iResult = VYX_SimpleHashEnter(&entry, pTable);
        } else if (nAction == 2) {
            iResult = VYX_SimpleHashRemove(keys[nKey].c_str(), pTable);
        } else {
            iResult = VYX_SimpleHashFind(keys[nKey].c_str(), &pData, pTable);
        }
        Line("%s %u: %d %ld, size %u filled %u",
             nAction < 2    ? "enter"
             : nAction == 2 ? "remove"
                            : "find",
             nKey, iResult, Index(pData), pHeader->size, pHeader->filled);
    }
    (void)VYX_SimpleHashDestroy(pTable);
}

void NumberTable(uint32_t nWish) {
    void *pTable = nullptr;
    Section("number table of " + std::to_string(nWish));
    Line("create: %d", VYX_SimpleIntHashCreate(nWish, &pTable));
    const auto *pHeader = static_cast<const struct VYX_HSEARCH_INTDATA *>(pTable);
    std::vector<uint32_t> keys = {0, 1, 0xFFFFFFFF, 0x80000000};
    while (keys.size() < 40)
        keys.push_back(Random());
    for (int i = 0; i < 100; ++i) {
        const uint32_t nKey = Random(40);
        void *pData = nullptr;
        int32_t iResult = 0;
        const uint32_t nAction = Random(4);
        if (nAction < 2) {
            _VYX_INTITEM item = {keys[nKey], &s_items[nKey + (Random(8) == 0 ? 1 : 0)]};
            iResult = VYX_SimpleIntHashEnter(&item, pTable);
        } else if (nAction == 2) {
            iResult = VYX_SimpleIntHashRemove(keys[nKey], pTable);
        } else {
            iResult = VYX_SimpleIntHashFind(keys[nKey], &pData, pTable);
        }
        Line("%s %u: %d %ld, size %u filled %u",
             nAction < 2    ? "enter"
             : nAction == 2 ? "remove"
                            : "find",
             keys[nKey], iResult, Index(pData), pHeader->size, pHeader->filled);
    }
    (void)VYX_SimpleIntHashDestroy(pTable);
}

int32_t PrintPart(uint8_t *pData, uint32_t nLength, void * /*pUser*/) {
    Line("part %s", Hex(pData, nLength).c_str());
    return 0;
}

void Ring(int32_t iCapacity) {
    VYX_HANDLE_CYCLEBUFFER hRing = nullptr;
    Section("ring of " + std::to_string(iCapacity));
    Line("create: %d", VYX_CycleBufferInit(&hRing, iCapacity, PrintPart, nullptr));
    for (int i = 0; i < 25; ++i) {
        std::array<uint8_t, 16> bytes{};
        for (uint8_t &by : bytes)
            by = static_cast<uint8_t>(Random());
        const uint32_t nLength = Random(12);
        const int32_t iWritten = VYX_CycleBufferWrite(hRing, bytes.data(), nLength);
        uint32_t nStored = 0;
        (void)VYX_CycleBufferValue(hRing, &nStored);
        Line("write %u: %d, holds %u", nLength, iWritten, nStored);
        if (Random(3) == 0)
            Line("read %d", VYX_CycleBufferRead(hRing));
    }
    (void)VYX_CycleBufferDestroy(hRing);
}

} // namespace

void Containers() {
    for (const uint32_t nWish : {10u, 24u})
        TextTable(nWish);
    for (const uint32_t nWish : {0u, 24u})
        NumberTable(nWish);
    Section("sizes of tables");
    for (const uint32_t nWish : {2u, 8u, 9u, 25u, 100u, 121u, 1000u}) {
        void *pTable = nullptr;
        (void)VYX_SimpleHashCreate(nWish, &pTable);
        Line("wish %u: size %u", nWish, static_cast<const struct VYX_HSEARCH_DATA *>(pTable)->size);
        (void)VYX_SimpleHashDestroy(pTable);
    }
    for (const int32_t iCapacity : {1, 7, 16})
        Ring(iCapacity);
}

} // namespace transcript
