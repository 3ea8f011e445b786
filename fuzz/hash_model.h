// The rules of both hash tables, slot by slot.
#ifndef VYX_FUZZ_HASH_MODEL_H_
#define VYX_FUZZ_HASH_MODEL_H_

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace fuzz {

inline uint32_t HashOf(const char *szKey) {
    auto nHash = static_cast<uint32_t>(std::strlen(szKey));
    for (size_t i = std::strlen(szKey); i-- > 0;)
        nHash = nHash * 16 + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(szKey[i])));
    return nHash;
}

inline uint32_t HashOf(uint32_t nKey) {
    return nKey;
}

// Every step is a walk along a path. An integer table takes each slot of a path for its home's.
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

} // namespace fuzz

#endif
