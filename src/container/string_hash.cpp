// The hash table with string keys.
#include <cstring>
#include <string_view>

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
    using Key = const char *;
    static constexpr bool kMarks = false;

    // The length, then times 16 plus each byte, from the last to the first. What is more than eight places from the
    // front has been shifted out of the 32 bits by the end, so only the front is looked at.
    static uint32_t Hash(const char *szKey) {
        uint32_t nHash = 0;
        uint32_t nShift = 0;
        for (; nShift < 32 && *szKey != '\0'; nShift += 4, ++szKey)
            nHash += static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*szKey))) << nShift;
        return nShift < 32 ? nHash + (nShift / 4 << nShift) : nHash;
    }
    static uint32_t FarHash(const char *szKey) {
        return static_cast<uint32_t>(std::hash<std::string_view>()(szKey));
    }
    static bool Same(const Slot &slot, const char *szKey) { return std::strcmp(slot.key, szKey) == 0; }
    static bool OfHome(const Slot &slot, uint32_t nHome) { return slot.home == nHome; }
    static void SetHome(Slot &slot, uint32_t nHome) { slot.home = nHome; }
};

using Table = vyx_inter::HashTable<StringTraits>;

} // namespace

int32_t VYX_SimpleHashCreate(uint32_t nCapacity, void **ppTable) {
    return Table::Create(nCapacity, ppTable);
}

int32_t VYX_SimpleHashEnter(_VYX_ENTRY *pItem, void *pTable) {
    return Table(pTable).Enter(pItem->key, pItem->data);
}

int32_t VYX_SimpleHashFind(const char *szKey, void **ppData, void *pTable) {
    return Table(pTable).Find(szKey, ppData);
}

int32_t VYX_SimpleHashRemove(const char *szKey, void *pTable) {
    return Table(pTable).Remove(szKey);
}

int32_t VYX_SimpleHashDestroy(void *pTable) {
    if (pTable == nullptr)
        return VYX_ERROR;
    std::free(pTable);
    return VYX_OK;
}
