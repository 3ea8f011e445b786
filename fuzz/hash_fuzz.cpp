// Both hash tables: a program of operations, compared with the rules slot by slot.
#include <vector>
#include <vyx/container.h>

#include "container/container_inter.h"
#include "hash_model.h"
#include "input.h"

namespace {

void *Data(uintptr_t n) {
    return reinterpret_cast<void *>(n);
}

// fnEnter, fnFind and fnRemove are the table's own, fnKey makes a key of the input.
template <class Key, class Header, class Enter, class Find, class Remove, class NextKey>
void Run(fuzz::Input *pInput, const Header *pTable, Enter fnEnter, Find fnFind, Remove fnRemove,
         NextKey fnKey) {
    fuzz::HashModel<Key> model(pTable->size);
    while (!pInput->AtEnd()) {
        const unsigned nChoice = pInput->Pick(8);
        const Key key = fnKey();
        const uintptr_t nData = 1 + nChoice % 2;
        if (nChoice < 4)
            REQUIRE((fnEnter(key, Data(nData)) == VYX_OK) == model.Enter(key, nData));
        else if (nChoice < 6)
            REQUIRE((fnRemove(key) == VYX_OK) == model.Remove(key));
        void *pData = Data(99);
        REQUIRE((fnFind(key, &pData) == VYX_OK) == (pData != nullptr));
        REQUIRE(pData == Data(model.Find(key)) && pTable->filled == model.Filled());
        for (uint32_t nSlot = 1; nSlot <= pTable->size; ++nSlot)
            REQUIRE(pTable->table[nSlot].data == Data(model.DataAt(nSlot)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const bool bTexts = input.Pick(2) == 0;
    const uint32_t nCapacity = input.Pick(40);
    void *pTable = nullptr;
    if (bTexts) {
        std::vector<std::string> keys;
        for (size_t i = 0; i < 8; ++i) // each again with a byte more, so that some differ only there
            for (std::string sKey = input.Text(input.Pick(11)); keys.size() < 2 * (i + 1); sKey += 'x')
                keys.emplace_back(sKey.c_str());
        REQUIRE(VYX_SimpleHashCreate(nCapacity, &pTable) == VYX_OK);
        Run<const char *>(
            &input, static_cast<struct VYX_HSEARCH_DATA *>(pTable),
            [&](const char *szKey, void *pItem) {
                _VYX_ENTRY item = {const_cast<char *>(szKey), pItem};
                return VYX_SimpleHashEnter(&item, pTable);
            },
            [&](const char *szKey, void **ppItem) { return VYX_SimpleHashFind(szKey, ppItem, pTable); },
            [&](const char *szKey) { return VYX_SimpleHashRemove(szKey, pTable); },
            [&] { return keys[input.Pick(16)].c_str(); });
        REQUIRE(VYX_SimpleHashDestroy(pTable) == VYX_OK);
        return 0;
    }
    REQUIRE(VYX_SimpleIntHashCreate(nCapacity, &pTable) == VYX_OK);
    const uint32_t nTableSize = static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->size;
    Run<uint32_t>(
        &input, static_cast<struct VYX_HSEARCH_INTDATA *>(pTable),
        [&](uint32_t nKey, void *pItem) {
            _VYX_INTITEM item = {nKey, pItem};
            return VYX_SimpleIntHashEnter(&item, pTable);
        },
        [&](uint32_t nKey, void **ppItem) { return VYX_SimpleIntHashFind(nKey, ppItem, pTable); },
        [&](uint32_t nKey) { return VYX_SimpleIntHashRemove(nKey, pTable); },
        [&] { // small, large, or with few homes
            const uint32_t nByte = input.Byte();
            return nByte < 64 ? nByte : nByte < 96 ? 64 - nByte : nByte / 16 * nTableSize + nByte % 4;
        });
    REQUIRE(VYX_SimpleIntHashDestroy(pTable) == VYX_OK);
    return 0;
}
