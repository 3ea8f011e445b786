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
    using Key = uint32_t;
    static constexpr bool kMarks = true;

    static uint32_t Hash(uint32_t nKey) { return nKey; }
    static uint32_t FarHash(uint32_t nKey) { return nKey * 0x9E3779B1U; } // odd, and without a pattern
    static bool Same(const Slot &slot, uint32_t nKey) { return slot.key == nKey; }
    // Deliberate: a removal moves the last item of a path whatever its home is, and so may lose it. Pinned by
    // Fuzz.hash.
    static bool OfHome(const Slot & /*slot*/, uint32_t /*nHome*/) { return true; }
    static void SetHome(Slot & /*slot*/, uint32_t /*nHome*/) {}
};

using Table = vyx_inter::HashTable<IntTraits>;

} // namespace

int32_t VYX_SimpleIntHashCreate(uint32_t nCapacity, void **ppTable) {
    return Table::Create(nCapacity, ppTable);
}

int32_t VYX_SimpleIntHashEnter(_VYX_INTITEM *pItem, void *pTable) {
    return Table(pTable).Enter(pItem->key, pItem->data);
}

int32_t VYX_SimpleIntHashFind(uint32_t nKey, void **ppData, void *pTable) {
    return Table(pTable).Find(nKey, ppData);
}

int32_t VYX_SimpleIntHashRemove(uint32_t nKey, void *pTable) {
    return Table(pTable).Remove(nKey);
}

int32_t VYX_SimpleIntHashDestroy(void *pTable) {
    return VYX_SimpleHashDestroy(pTable);
}
