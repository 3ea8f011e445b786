// The algorithm that both hash tables share: open addressing with double hashing, downward within 1..size.
//
// A table is one zeroed block: the header, then size + 1 slots of which the first is never used. Traits say what
// differs between string and integer keys:
//   Header, Slot, Item      types
//   Hash(item)              32 bits of the key
//   IsOccupied(slot)
//   Holds(slot, item, home) the slot is occupied by that key
//   IsOnPath(slot, home)    an occupied slot that counts as part of the home's path in a removal
//   Put(slot, item, home)
#ifndef VYX_CONTAINER_HASH_TABLE_H
#define VYX_CONTAINER_HASH_TABLE_H

#include <cstdint>
#include <cstdlib>

#include "container/container_inter.h"

namespace vyx_inter {

// The next usable number of slots from nCapacity upwards; 0 if there is none.
//
// Deliberate: 1 passes and 3 fails, as only divisors whose square is smaller are tried before the last one.
// Pinned by HashTable.SizesFollowTheLooseTest.
inline uint32_t TableSize(uint32_t nCapacity) {
    for (uint64_t nSize = nCapacity | 1U; nSize <= UINT32_MAX; nSize += 2) {
        uint64_t nDivisor = 3;
        while (nDivisor * nDivisor < nSize && nSize % nDivisor != 0)
            nDivisor += 2;
        if (nSize % nDivisor != 0)
            return static_cast<uint32_t>(nSize);
    }
    return 0;
}

template <class Traits>
class HashTable {
  public:
    using Header = typename Traits::Header;
    using Slot = typename Traits::Slot;
    using Item = typename Traits::Item;

    static int32_t Create(uint32_t nCapacity, void **ppTable) {
        if (ppTable == nullptr)
            return VYX_ERROR;
        *ppTable = nullptr;
        const uint64_t nSize = TableSize(nCapacity);
        const uint64_t nBytes = sizeof(Header) + (nSize + 1) * sizeof(Slot);
        auto *pHeader = nSize == 0 || nBytes > SIZE_MAX
                            ? nullptr
                            : static_cast<Header *>(std::calloc(1, static_cast<size_t>(nBytes)));
        if (pHeader == nullptr)
            return VYX_ERROR;
        pHeader->table = reinterpret_cast<Slot *>(pHeader + 1);
        pHeader->size = static_cast<uint32_t>(nSize);
        *ppTable = pHeader;
        return VYX_OK;
    }

    explicit HashTable(void *pTable) : m_header(*static_cast<Header *>(pTable)), m_slots(m_header.table) {}

    int32_t Enter(const Item &item) {
        Item *pStored = nullptr;
        // Deliberate: data that is present is never replaced; other data for its key is an error.
        return Search(item, ENTER, &pStored) == VYX_OK && pStored->data == item.data ? VYX_OK : VYX_ERROR;
    }

    int32_t Find(const Item &item, void **ppData) {
        Item *pStored = nullptr;
        const int32_t iResult = Search(item, FIND, &pStored);
        *ppData = iResult == VYX_OK ? pStored->data : nullptr;
        return iResult;
    }

    int32_t Remove(const Item &item) {
        const uint32_t nHome = Home(item);
        const uint32_t nLast = LastOnPath(nHome);
        if (nLast == 0)
            return VYX_ERROR;
        const Item moved = m_slots[nLast].entry;
        bool bFound = false;
        const uint32_t nAt = Locate(item, nHome, &bFound);
        if (!bFound)
            return VYX_ERROR;
        m_slots[nAt] = {};
        // Deliberate: entering the moved item raises the count, which is then lowered once, so it ends unchanged
        // although an item is gone. Pinned by HashTable.RemovalKeepsTheCountWhenAnItemMoves.
        if (nAt != nLast) {
            if (Enter(moved) != VYX_OK)
                return VYX_ERROR;
            m_slots[nLast] = {};
        }
        --m_header.filled;
        return VYX_OK;
    }

  private:
    uint32_t Home(const Item &item) const {
        const uint32_t nHome = Traits::Hash(item) % m_header.size;
        return nHome == 0 ? 1 : nHome;
    }

    // The next index on a home's path. A table of one slot has nowhere else to go.
    uint32_t Next(uint32_t nIndex, uint32_t nHome) const {
        if (m_header.size == 1)
            return nIndex;
        const uint32_t nStep = 1 + nHome % (m_header.size - 2);
        return nIndex > nStep ? nIndex - nStep : nIndex + m_header.size - nStep;
    }

    // Where the key is, or where it would be put.
    uint32_t Locate(const Item &item, uint32_t nHome, bool *pFound) const {
        uint32_t nIndex = nHome;
        do {
            if (Traits::Holds(m_slots[nIndex], item, nHome)) {
                *pFound = true;
                return nIndex;
            }
            if (!Traits::IsOccupied(m_slots[nIndex]))
                break;
            nIndex = Next(nIndex, nHome);
        } while (nIndex != nHome);
        *pFound = false;
        return nIndex;
    }

    int32_t Search(const Item &item, ACTION action, Item **ppResult) {
        const uint32_t nHome = Home(item);
        bool bFound = false;
        const uint32_t nIndex = Locate(item, nHome, &bFound);
        if (!bFound && (action == FIND || m_header.filled == m_header.size)) {
            *ppResult = nullptr;
            return VYX_ERROR;
        }
        if (!bFound) {
            Traits::Put(m_slots[nIndex], item, nHome);
            ++m_header.filled;
        }
        *ppResult = &m_slots[nIndex].entry;
        return VYX_OK;
    }

    // The last slot of a home's path before its first gap; 0 if the path is empty.
    uint32_t LastOnPath(uint32_t nHome) const {
        uint32_t nLast = 0;
        uint32_t nIndex = nHome;
        do {
            if (!Traits::IsOccupied(m_slots[nIndex]))
                break;
            if (Traits::IsOnPath(m_slots[nIndex], nHome))
                nLast = nIndex;
            nIndex = Next(nIndex, nHome);
        } while (nIndex != nHome);
        return nLast;
    }

    Header &m_header;
    Slot *m_slots;
};

} // namespace vyx_inter

#endif
