// What both hash tables share: open addressing with double hashing, and lists that make look-ups short.
//
// A table is one block: its header, which lies where slot 0 would be or before the marks, and slots 1 to size. A key's
// hash modulo size is its home (1 instead of 0). From its home a key's path goes downward, around within 1 to size, by
// a step that depends on the home alone. Sizes are primes, so a path visits every slot. A key is entered in the first
// free slot of its path, and a walk along the path to the first free slot finds it again.
//
// Until something is removed no path has a gap, so the walk meets the keys of a home in the order in which they
// were entered. Each home has a list of them in that order, which leaves out the slots of other homes:
//
//   near  the slot of the first key whose home this is; 0 = none
//   next  the slot of the next key in the same list; that of this key itself if it is the last; 0 = free slot
//
// A home with more than kNear keys (texts alike in their first eight bytes share one) keeps the others in lists by a hash
// that tells them apart. The last near key's `next` is then the slot of the key that was entered last, where the
// search for a free slot goes on:
//
//   far   the slot of the first key in the list of this hash; 0 = none
//
// With integer keys each home has a byte with the marks of its keys, one of eight bits each. Most keys that are absent have
// a mark that no key of their home has, and cost no look at a slot. The bytes lie together before the slots, so they stay
// in the processor's cache.
//
// The first removal makes a gap. From then on the walk decides, and lists and marks are neither read nor kept.
//
// The caller owns the texts of keys. Near keys are compared in the order of the walk, so even a text that was changed
// in place is found, or not, as the walk would have it.
//
// Traits say what differs between text and integer keys:
//   Header, Slot, Key
//   kMarks              whether homes have marks: only for keys that stay as they are
//   Hash(key)           32 bits
//   FarHash(key)        the same of the whole key, spread over all bits
//   Same(slot, key)     the slot has this key, if it has one
//   OfHome(slot, home)  the slot counts as one of this home's, if it is not free
//   SetHome(slot, home)
#ifndef VYX_CONTAINER_HASH_TABLE_H
#define VYX_CONTAINER_HASH_TABLE_H

#include <cstdint>
#include <cstdlib>
#include <memory>

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
    using Slot = typename Traits::Slot;
    using Key = typename Traits::Key;

    static int32_t Create(uint32_t nCapacity, void **ppTable) {
        if (ppTable == nullptr)
            return VYX_ERROR;
        *ppTable = nullptr;
        const uint32_t nSize = TableSize(nCapacity);
        const uint64_t nMarks = Traits::kMarks ? sizeof(Head) + (uint64_t{nSize} + 1) * sizeof(Marks) : 0;
        const uint64_t nSlots = (uint64_t{nSize} + 1) * sizeof(Slot);
        void *pBlock = nSize == 0 || nMarks + nSlots > SIZE_MAX - kAlignment
                           ? nullptr
                           : std::calloc(1, static_cast<size_t>(nMarks + nSlots) + kAlignment);
        if (pBlock == nullptr)
            return VYX_ERROR;
        *ppTable = pBlock;
        auto &header = static_cast<Head *>(pBlock)->header;
        void *pSlots = static_cast<char *>(pBlock) + static_cast<size_t>(nMarks);
        size_t nRoom = static_cast<size_t>(nSlots) + kAlignment;
        header.table =
            static_cast<Slot *>(std::align(kAlignment, static_cast<size_t>(nSlots), pSlots, nRoom));
        header.size = nSize;
        return VYX_OK;
    }

    explicit HashTable(void *pTable)
        : m_head(*static_cast<Head *>(pTable)), m_header(m_head.header), m_slots(m_header.table) {}

    int32_t Enter(Key key, void *pData) {
        const Origin origin = OriginOf(key);
        uint32_t nAt = Seek(key, origin);
        if (nAt == 0 && m_header.filled == m_header.size)
            return VYX_ERROR;
        if (nAt == 0) {
            nAt = m_head.bGaps ? Take(origin.nHome, origin.nHome) : Link(key, origin);
            m_slots[nAt].key = key;
            m_slots[nAt].data = pData;
            Traits::SetHome(m_slots[nAt], origin.nHome);
            ++m_header.filled;
        }
        // Deliberate: data that is present is never replaced; other data for its key is an error. Pinned by
        // Fuzz.hash.
        return m_slots[nAt].data == pData ? VYX_OK : VYX_ERROR;
    }

    int32_t Find(Key key, void **ppData) {
        const uint32_t nAt = Seek(key, OriginOf(key));
        *ppData = nAt != 0 ? m_slots[nAt].data : nullptr;
        return nAt != 0 ? VYX_OK : VYX_ERROR;
    }

    int32_t Remove(Key key) {
        const Origin origin = OriginOf(key);
        const uint32_t nAt = Seek(key, origin);
        if (nAt == 0)
            return VYX_ERROR;
        m_head.bGaps = 1;
        const uint32_t nLast = LastOnPath(origin.nHome);
        const Slot moved = m_slots[nLast];
        m_slots[nAt] = {};
        // Deliberate: entering the moved item raises the count, which is then lowered once, so it ends unchanged
        // although an item is gone. Pinned by Fuzz.hash.
        if (nAt != nLast) {
            if (Enter(moved.key, moved.data) != VYX_OK)
                return VYX_ERROR;
            m_slots[nLast] = {};
        }
        --m_header.filled;
        return VYX_OK;
    }

  private:
    static constexpr size_t kAlignment = 32; // bytes; no slot of this size lies in two cache lines
    static constexpr uint32_t kNear = 4;
    using Marks = uint8_t; // of the keys of one home

    // Where a key's path begins, and the number of its mark there.
    struct Origin {
        uint32_t nHome;
        uint32_t nMark;
    };

    struct Head {
        typename Traits::Header header;
        uint32_t bGaps; // something was removed
    };
    static_assert(sizeof(Head) <= sizeof(Slot), "it may lie in the place of slot 0");

    Origin OriginOf(Key key) const {
        const uint32_t nHash = Traits::Hash(key);
        const uint32_t nHome = nHash % m_header.size;
        return {nHome == 0 ? 1 : nHome, nHash / m_header.size % 8};
    }

    Marks &MarksOf(uint32_t nHome) const { return reinterpret_cast<Marks *>(&m_head + 1)[nHome]; }

    // The next index on a home's path. A table of one slot has nowhere else to go.
    uint32_t Next(uint32_t nIndex, uint32_t nHome) const {
        if (m_header.size == 1)
            return nIndex;
        const uint32_t nStep = 1 + nHome % (m_header.size - 2);
        return nIndex > nStep ? nIndex - nStep : nIndex + m_header.size - nStep;
    }

    // Takes the first free slot of a home's path from one of its slots on. There is one.
    uint32_t Take(uint32_t nIndex, uint32_t nHome) {
        while (m_slots[nIndex].next != 0)
            nIndex = Next(nIndex, nHome);
        m_slots[nIndex].next = nIndex;
        return nIndex;
    }

    // Where a key is; 0 if it is absent.
    uint32_t Seek(Key key, const Origin &origin) const {
        if (m_head.bGaps)
            return Walk(key, origin.nHome);
        if (Traits::kMarks && (MarksOf(origin.nHome) & 1U << origin.nMark) == 0)
            return 0;
        return SeekNear(key, origin.nHome);
    }

    uint32_t Walk(Key key, uint32_t nHome) const {
        uint32_t nIndex = nHome;
        do {
            const Slot &slot = m_slots[nIndex];
            if (slot.next == 0)
                return 0;
            if (Traits::OfHome(slot, nHome) && Traits::Same(slot, key))
                return nIndex;
            nIndex = Next(nIndex, nHome);
        } while (nIndex != nHome);
        return 0;
    }

    // What follows in a list; 0 at its end.
    uint32_t After(uint32_t nIndex) const {
        const uint32_t nNext = m_slots[nIndex].next;
        return nNext == nIndex ? 0 : nNext;
    }

    uint32_t SeekNear(Key key, uint32_t nHome) const {
        uint32_t nSeen = 0;
        for (uint32_t nIndex = m_slots[nHome].near; nIndex != 0; nIndex = After(nIndex)) {
            if (Traits::Same(m_slots[nIndex], key))
                return nIndex;
            if (++nSeen == kNear)
                return SeekFar(key, nHome);
        }
        return 0;
    }

    uint32_t SeekFar(Key key, uint32_t nHome) const {
        for (uint32_t nIndex = FarList(key); nIndex != 0; nIndex = After(nIndex))
            if (Traits::OfHome(m_slots[nIndex], nHome) && Traits::Same(m_slots[nIndex], key))
                return nIndex;
        return 0;
    }

    // The first in a key's far list.
    uint32_t &FarList(Key key) const {
        return m_slots[1 + ((uint64_t{Traits::FarHash(key)} * m_header.size) >> 32)].far;
    }

    // Takes the first free slot of its path for a key, puts it in its list and leaves its mark.
    uint32_t Link(Key key, const Origin &origin) {
        const uint32_t nHome = origin.nHome;
        uint32_t nNear = 0; // keys in the near list
        uint32_t nLast = 0; // the last of them
        for (uint32_t n = m_slots[nHome].near; n != 0 && nNear < kNear; n = After(n), ++nNear)
            nLast = n;
        uint32_t &nLatest = nLast == 0 ? m_slots[nHome].near : m_slots[nLast].next;
        const uint32_t nAt = Take(nLast == 0 ? nHome : nLatest, nHome);
        nLatest = nAt;
        if (Traits::kMarks)
            MarksOf(nHome) = static_cast<Marks>(MarksOf(nHome) | 1U << origin.nMark);
        if (nNear == kNear) {
            uint32_t &nFar = FarList(key);
            m_slots[nAt].next = nFar == 0 ? nAt : nFar;
            nFar = nAt;
        }
        return nAt;
    }

    // The last slot of a home's path before its first gap that counts as the home's. There is one.
    uint32_t LastOnPath(uint32_t nHome) const {
        uint32_t nLast = nHome;
        uint32_t nIndex = nHome;
        do {
            if (m_slots[nIndex].next == 0)
                break;
            if (Traits::OfHome(m_slots[nIndex], nHome))
                nLast = nIndex;
            nIndex = Next(nIndex, nHome);
        } while (nIndex != nHome);
        return nLast;
    }

    Head &m_head;
    typename Traits::Header &m_header;
    Slot *m_slots;
};

} // namespace vyx_inter

#endif
