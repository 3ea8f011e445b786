// The hash table with integer keys.
#include "container/hash_table.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(_VYX_INTITEM, data) == sizeof(void *) && sizeof(_VYX_INTITEM) == 2 * sizeof(void *));
static_assert(offsetof(struct VYX_HSEARCH_INTDATA, size) == sizeof(void *) &&
              offsetof(struct VYX_HSEARCH_INTDATA, filled) == sizeof(void *) + 4 &&
              sizeof(struct VYX_HSEARCH_INTDATA) == sizeof(void *) + 8);

struct VYX_HSEARCH_INTDATA VYX_HSEARCH_INTDATA;

namespace {

struct IntTraits {
    using Header = struct VYX_HSEARCH_INTDATA;
    using Slot = VYX_HINTSLOT_S;
    using Item = _VYX_INTITEM;

    static uint32_t Hash(const Item &item) { return item.key; }
    // A zeroed slot is free, as the complement of key 0 is not 0; the key whose complement is 0 is not 0.
    static bool IsOccupied(const Slot &slot) { return slot.used == ~slot.entry.key; }
    static bool Holds(const Slot &slot, const Item &item, uint32_t /*nHome*/) {
        return slot.entry.key == item.key && IsOccupied(slot);
    }
    static bool IsOnPath(const Slot & /*slot*/, uint32_t /*nHome*/) { return true; }
    static void Put(Slot &slot, const Item &item, uint32_t /*nHome*/) { slot = {~item.key, item}; }
};

using Table = vyx_inter::HashTable<IntTraits>;

} // namespace

int32_t VYX_SimpleIntHashCreate(uint32_t nCapacity, void **ppTable) {
    return Table::Create(nCapacity, ppTable);
}

int32_t VYX_SimpleIntHashEnter(_VYX_INTITEM *pItem, void *pTable) {
    return Table(pTable).Enter(*pItem);
}

int32_t VYX_SimpleIntHashFind(uint32_t nKey, void **ppData, void *pTable) {
    return Table(pTable).Find({nKey, nullptr}, ppData);
}

int32_t VYX_SimpleIntHashRemove(uint32_t nKey, void *pTable) {
    return Table(pTable).Remove({nKey, nullptr});
}

int32_t VYX_SimpleIntHashDestroy(void *pTable) {
    return VYX_SimpleHashDestroy(pTable);
}
