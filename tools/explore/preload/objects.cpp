// Objects by address: their numbers and who holds them. Numbers are given by first use, never by address, so that they
// are the same in every run.
#include "scheduler.h"

namespace explore {
namespace {

struct Entry {
    const void *object; // null: free
    uint32_t number;    // 0: forgotten
    uint16_t owner;
    Kind kind;
};

constexpr uint32_t kSlots = 1u << 16;
Entry s_table[kSlots];
uint32_t s_used;
uint32_t s_next[static_cast<size_t>(Kind::Count)];

// The object's entry; null if the table is full.
Entry *Find(Kind kind, const void *object) {
    const uint64_t address = reinterpret_cast<uintptr_t>(object);
    auto slot = static_cast<uint32_t>(((address >> 2) * 0x9E3779B97F4A7C15u) >> 40);
    for (;; slot++) {
        Entry &entry = s_table[slot % kSlots];
        if (entry.object == object && entry.kind == kind)
            return &entry;
        if (entry.object != nullptr)
            continue;
        if (s_used >= kSlots / 4 * 3)
            return nullptr;
        s_used++;
        entry = {object, 0, kNobody, kind};
        return &entry;
    }
}

} // namespace

uint32_t NumberOf(Kind kind, const void *object) {
    if (kind == Kind::None || object == nullptr)
        return 0;
    if (kind == Kind::Thread)
        return static_cast<const Thread *>(object)->number;
    if (kind == Kind::Descriptor)
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object)) - 1;
    Entry *entry = Find(kind, object);
    if (entry == nullptr)
        return 0;
    if (entry->number == 0)
        entry->number = ++s_next[static_cast<size_t>(kind)];
    return entry->number;
}

void Forget(Kind kind, const void *object) {
    Entry *entry = Find(kind, object);
    if (entry != nullptr) {
        entry->number = 0;
        entry->owner = kNobody;
    }
}

void SetOwner(Kind kind, const void *object, uint32_t owner) {
    Entry *entry = Find(kind, object);
    if (entry != nullptr)
        entry->owner = static_cast<uint16_t>(owner);
}

uint32_t OwnerOf(Kind kind, const void *object) {
    if (kind != Kind::Mutex && kind != Kind::RwLock && kind != Kind::Once && kind != Kind::Stream)
        return kNobody;
    const Entry *entry = Find(kind, object);
    return entry == nullptr ? kNobody : entry->owner;
}

} // namespace explore
