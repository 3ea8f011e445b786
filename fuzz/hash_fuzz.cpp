// Both hash tables: a program of operations, compared with the rules slot by slot.
#include <cstring>
#include <type_traits>
#include <vector>
#include <vyx/container.h>

#include "container/container_inter.h"
#include "input.h"

namespace {

uint32_t HashOf(const char *szKey) {
    auto nHash = static_cast<uint32_t>(std::strlen(szKey));
    for (size_t i = std::strlen(szKey); i-- > 0;)
        nHash = nHash * 16 + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(szKey[i])));
    return nHash;
}

uint32_t HashOf(uint32_t nKey) {
    return nKey;
}

// The rules: every step is a walk along a path. An integer table takes each slot of a path for its home's.
template <class Key>
class HashModel {
  public:
    explicit HashModel(uint32_t nSize) : m_slots(nSize + 1) {}

    bool Enter(Key key, uintptr_t nData) {
        uint32_t nAt = 0;
        if (Locate(key, &nAt))
            return m_slots[nAt].nData == nData;
        if (m_nFilled == Size())
            return false;
        m_slots[nAt] = {HomeOf(key), key, nData};
        ++m_nFilled;
        return true;
    }
    uintptr_t Find(Key key) const {
        uint32_t nAt = 0;
        return Locate(key, &nAt) ? m_slots[nAt].nData : 0;
    }
    bool Remove(Key key) {
        uint32_t nLast = 0;
        for (const uint32_t nIndex : PathOf(HomeOf(key))) {
            if (m_slots[nIndex].nHome == 0)
                break;
            if (IsOfHome(m_slots[nIndex], HomeOf(key)))
                nLast = nIndex;
        }
        uint32_t nAt = 0;
        if (nLast == 0 || !Locate(key, &nAt))
            return false;
        const Slot moved = m_slots[nLast];
        m_slots[nAt] = {};
        if (nAt != nLast) {
            if (!Enter(moved.key, moved.nData))
                return false;
            m_slots[nLast] = {};
        }
        --m_nFilled;
        return true;
    }
    uint32_t Filled() const { return m_nFilled; }
    uintptr_t DataAt(uint32_t nSlot) const { return m_slots[nSlot].nData; }

  private:
    struct Slot {
        uint32_t nHome = 0; // 0 = free
        Key key{};
        uintptr_t nData = 0;
    };

    uint32_t Size() const { return static_cast<uint32_t>(m_slots.size()) - 1; }
    uint32_t HomeOf(Key key) const { return HashOf(key) % Size() == 0 ? 1 : HashOf(key) % Size(); }
    static bool IsOfHome(const Slot &slot, uint32_t nHome) {
        return std::is_same_v<Key, uint32_t> || slot.nHome == nHome;
    }
    static bool IsSame(const char *szA, const char *szB) { return std::strcmp(szA, szB) == 0; }
    static bool IsSame(uint32_t nA, uint32_t nB) { return nA == nB; }

    // Every slot that a home's probes visit, the home first, once around.
    std::vector<uint32_t> PathOf(uint32_t nHome) const {
        std::vector<uint32_t> path = {nHome};
        const int64_t iStep = Size() == 1 ? 1 : 1 + nHome % (Size() - 2);
        for (int64_t iNext = nHome;;) {
            iNext -= iStep;
            if (iNext <= 0)
                iNext += Size();
            if (iNext == nHome)
                return path;
            path.push_back(static_cast<uint32_t>(iNext));
        }
    }
    bool Locate(Key key, uint32_t *pAt) const {
        for (const uint32_t nIndex : PathOf(HomeOf(key))) {
            *pAt = nIndex;
            if (m_slots[nIndex].nHome == 0)
                return false;
            if (IsOfHome(m_slots[nIndex], HomeOf(key)) && IsSame(m_slots[nIndex].key, key))
                return true;
        }
        return false;
    }

    std::vector<Slot> m_slots;
    uint32_t m_nFilled = 0;
};

void *Data(uintptr_t n) {
    return reinterpret_cast<void *>(n);
}

// fnEnter, fnFind and fnRemove are the table's own, fnKey makes a key of the input.
template <class Key, class Header, class Enter, class Find, class Remove, class NextKey>
void Run(fuzz::Input *pInput, const Header *pTable, Enter fnEnter, Find fnFind, Remove fnRemove,
         NextKey fnKey) {
    HashModel<Key> model(pTable->size);
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
