// Both hash tables and the byte ring.
#include <array>
#include <vector>
#include <vyx/container.h>

#include "transcript.h"

namespace transcript {

namespace {

constexpr uint32_t kKeys = 40;
int s_items[kKeys + 1]; // data of the tables

long Index(const void *pData) {
    return pData == nullptr ? -1 : static_cast<const int *>(pData) - s_items;
}

// Random calls of a table of either kind. The key is known by a number, which is printed.
template <class Header, class Number, class Enter, class Remove, class Find>
void Play(const void *pTable, Number fnNumber, Enter fnEnter, Remove fnRemove, Find fnFind) {
    const auto *pHeader = static_cast<const Header *>(pTable);
    for (int i = 0; i < 100; ++i) {
        const uint32_t nKey = Random(kKeys);
        const uint32_t nAction = Random(4);
        void *pData = nullptr;
        const int32_t iResult = nAction < 2    ? fnEnter(nKey, &s_items[nKey + (Random(8) == 0 ? 1 : 0)])
                                : nAction == 2 ? fnRemove(nKey)
                                               : fnFind(nKey, &pData);
        Line("%s %u: %d %ld, size %u filled %u",
             nAction < 2    ? "enter"
             : nAction == 2 ? "remove"
                            : "find",
             fnNumber(nKey), iResult, Index(pData), pHeader->size, pHeader->filled);
    }
}

void TextTable(uint32_t nWish) {
    void *pTable = nullptr;
    Section("text table of " + std::to_string(nWish));
    Line("create: %d", VYX_SimpleHashCreate(nWish, &pTable));
    std::array<std::string, kKeys> keys;
    for (size_t n = 0; n < keys.size(); ++n)
        keys[n] = std::string(n % 7, 'k') + std::to_string(n * n);
    Play<struct VYX_HSEARCH_DATA>(
        pTable, [](uint32_t n) { return n; },
        [&](uint32_t n, void *pData) {
            _VYX_ENTRY entry = {keys[n].data(), pData};
            return VYX_SimpleHashEnter(&entry, pTable);
        },
        [&](uint32_t n) { return VYX_SimpleHashRemove(keys[n].c_str(), pTable); },
        [&](uint32_t n, void **ppData) { return VYX_SimpleHashFind(keys[n].c_str(), ppData, pTable); });
    (void)VYX_SimpleHashDestroy(pTable);
}

void NumberTable(uint32_t nWish) {
    void *pTable = nullptr;
    Section("number table of " + std::to_string(nWish));
    Line("create: %d", VYX_SimpleIntHashCreate(nWish, &pTable));
    std::vector<uint32_t> keys = {0, 1, 0xFFFFFFFF, 0x80000000};
    while (keys.size() < kKeys)
        keys.push_back(Random());
    Play<struct VYX_HSEARCH_INTDATA>(
        pTable, [&](uint32_t n) { return keys[n]; },
        [&](uint32_t n, void *pData) {
            _VYX_INTITEM item = {keys[n], pData};
            return VYX_SimpleIntHashEnter(&item, pTable);
        },
        [&](uint32_t n) { return VYX_SimpleIntHashRemove(keys[n], pTable); },
        [&](uint32_t n, void **ppData) { return VYX_SimpleIntHashFind(keys[n], ppData, pTable); });
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
