// The hash table with string keys.
#include <cstring>

#include "container/hash_table.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(_VYX_ENTRY, data) == sizeof(void *) && sizeof(_VYX_ENTRY) == 2 * sizeof(void *));
static_assert(offsetof(struct VYX_HSEARCH_DATA, size) == sizeof(void *) &&
              offsetof(struct VYX_HSEARCH_DATA, filled) == sizeof(void *) + 4 &&
              sizeof(struct VYX_HSEARCH_DATA) == sizeof(void *) + 8);

struct VYX_HSEARCH_DATA VYX_HSEARCH_DATA;

namespace {

struct StringTraits {
    using Header = struct VYX_HSEARCH_DATA;
    using Slot = VYX_HSLOT_S;
    using Item = _VYX_ENTRY;

    // The length, then times 16 plus each byte, from the last to the first. Whatever is more than eight places
    // from the front has been shifted out of the 32 bits by the end, so only the front is looked at.
    static uint32_t Hash(const Item &item) {
        constexpr size_t kPlaces = 8;
        const size_t nFront = strnlen(item.key, kPlaces);
        auto nHash = static_cast<uint32_t>(nFront);
        for (size_t i = nFront; i-- > 0;)
            nHash = nHash * 16 +
                    static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(item.key[i])));
        return nHash;
    }
    static bool IsOccupied(const Slot &slot) { return slot.used != 0; }
    // Only keys with the same home are worth a comparison.
    static bool Holds(const Slot &slot, const Item &item, uint32_t nHome) {
        return slot.used == nHome && std::strcmp(slot.entry.key, item.key) == 0;
    }
    static bool IsOnPath(const Slot &slot, uint32_t nHome) { return slot.used == nHome; }
    static void Put(Slot &slot, const Item &item, uint32_t nHome) { slot = {nHome, item}; }
};

using Table = vyx_inter::HashTable<StringTraits>;

// A key to look for. It is only read.
_VYX_ENTRY KeyOf_Local(const char *szKey) {
    return {const_cast<char *>(szKey), nullptr};
}

} // namespace

int32_t VYX_SimpleHashCreate(uint32_t nCapacity, void **ppTable) {
    return Table::Create(nCapacity, ppTable);
}

int32_t VYX_SimpleHashEnter(_VYX_ENTRY *pItem, void *pTable) {
    return Table(pTable).Enter(*pItem);
}

int32_t VYX_SimpleHashFind(const char *szKey, void **ppData, void *pTable) {
    return Table(pTable).Find(KeyOf_Local(szKey), ppData);
}

int32_t VYX_SimpleHashRemove(const char *szKey, void *pTable) {
    return Table(pTable).Remove(KeyOf_Local(szKey));
}

int32_t VYX_SimpleHashDestroy(void *pTable) {
    if (pTable == nullptr)
        return VYX_ERROR;
    std::free(pTable);
    return VYX_OK;
}
