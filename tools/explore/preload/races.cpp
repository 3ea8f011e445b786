// Data races by vector clocks. Every synchronising call and atomic operation carries clocks from thread to thread, by its
// memory order; an access that no clock orders after an earlier one to the same bytes is a race with it, in whatever
// order the two happened to run.
#include "races.h"

#include <cstring>
#include <sys/mman.h>

#include "../hooks.h"
#include "calls.h"

namespace explore {

bool g_races;

namespace {

constexpr uint32_t kThreads = 128; // accesses of threads beyond are not followed
constexpr uint32_t kClocks = 1u << 14;
constexpr uint32_t kPages = 1u << 16; // of 4096 bytes, whose accesses are followed
constexpr uint32_t kGranule = 8;      // bytes that share their cells
constexpr uint32_t kCells = 4;
constexpr uintptr_t kPageSize = 4096;

struct Clock {
    uint32_t at[kThreads];
};

struct ThreadClocks {
    Clock now;
    Clock pending;  // from relaxed loads, for the next acquire fence
    Clock released; // at the last release fence, for relaxed stores
};

struct ObjectClock {
    const void *object;
    Clock clock;
};

// An access: by whom, when by its own clock, which bytes of the granule.
struct Cell {
    const void *site;
    uint32_t clock; // 0: free
    uint8_t thread;
    uint8_t bytes;
    uint8_t flags;
    uint8_t unused;
};

struct Shadow {
    Cell cells[kPageSize / kGranule][kCells];
};

ThreadClocks s_threads[kThreads];
ObjectClock s_objects[kClocks];
uint32_t s_object_count;
uintptr_t s_page_numbers[kPages]; // 0: free
Shadow *s_shadows;
uint32_t s_page_count;
uint32_t s_evicted;

void Join(Clock &clock, const Clock &other) {
    const uint32_t count = g.count < kThreads ? g.count : kThreads;
    for (uint32_t i = 0; i < count; i++)
        clock.at[i] = clock.at[i] > other.at[i] ? clock.at[i] : other.at[i];
}

uint64_t Hash(uintptr_t value) {
    return (value * 0x9E3779B97F4A7C15u) >> 32;
}

// Null if there are too many.
Clock *ClockOf(const void *object) {
    for (uint64_t slot = Hash(reinterpret_cast<uintptr_t>(object));; slot++) {
        ObjectClock &entry = s_objects[slot % kClocks];
        if (entry.object == object)
            return &entry.clock;
        if (entry.object != nullptr)
            continue;
        if (s_object_count >= kClocks / 4 * 3)
            return nullptr;
        s_object_count++;
        entry.object = object;
        return &entry.clock;
    }
}

Shadow *ShadowOf(uintptr_t address, bool make) {
    const uintptr_t page = address / kPageSize;
    for (uint64_t slot = Hash(page);; slot++) {
        uintptr_t &number = s_page_numbers[slot % kPages];
        if (number == page)
            return &s_shadows[slot % kPages];
        if (number != 0)
            continue;
        if (!make || s_page_count >= kPages / 4 * 3)
            return nullptr;
        s_page_count++;
        number = page;
        return &s_shadows[slot % kPages];
    }
}

bool Followed(const Thread *me) {
    return g_races && me != nullptr && me->number < kThreads;
}

void Tick(const Thread *me) {
    s_threads[me->number].now.at[me->number]++;
}

const char *AccessText(uint8_t flags) {
    if ((flags & AccessAtomic) != 0)
        return (flags & AccessWrite) != 0 ? "changes atomically" : "reads atomically";
    return (flags & AccessWrite) != 0 ? "writes" : "reads";
}

[[noreturn]] void Report(Thread *me, const Cell &earlier, uint8_t flags, const void *site) {
    TraceAccess(earlier.thread, earlier.site, (earlier.flags & AccessWrite) != 0);
    TraceAccess(me->number, site, (flags & AccessWrite) != 0);
    Stop(Fault::Race, site, "thread %u %s what thread %u %s, and nothing orders the two", me->number,
         AccessText(flags), earlier.thread, AccessText(earlier.flags));
}

// The cell to write into: a free one, this thread's own for the same bytes, one that is ordered before, or any.
Cell &CellFor(Cell (&cells)[kCells], const Clock &now, const Cell &access) {
    for (Cell &cell : cells)
        if (cell.clock == 0 ||
            (cell.thread == access.thread && cell.bytes == access.bytes && cell.flags == access.flags))
            return cell;
    for (Cell &cell : cells)
        if (cell.clock <= now.at[cell.thread] && (access.flags & AccessWrite) != 0 &&
            (cell.bytes & ~access.bytes) == 0)
            return cell;
    return cells[s_evicted++ % kCells];
}

void CheckGranule(Thread *me, uintptr_t address, uint8_t bytes, uint8_t flags, const void *site) {
    Shadow *shadow = ShadowOf(address, true);
    if (shadow == nullptr)
        return;
    Cell(&cells)[kCells] = shadow->cells[address % kPageSize / kGranule];
    const Clock &now = s_threads[me->number].now;
    for (const Cell &cell : cells)
        if (cell.clock > now.at[cell.thread] && cell.thread != me->number && (cell.bytes & bytes) != 0 &&
            ((cell.flags | flags) & AccessWrite) != 0 && (cell.flags & flags & AccessAtomic) == 0)
            Report(me, cell, flags, site);
    const Cell access = {site, now.at[me->number], static_cast<uint8_t>(me->number), bytes, flags, 0};
    CellFor(cells, now, access) = access;
}

void Check(Thread *me, const volatile void *start, size_t size, uint8_t flags, const void *site) {
    auto address = reinterpret_cast<uintptr_t>(start);
    while (size > 0) {
        const uintptr_t offset = address % kGranule;
        const size_t part = size < kGranule - offset ? size : kGranule - offset;
        CheckGranule(me, address - offset, static_cast<uint8_t>(((1u << part) - 1) << offset), flags, site);
        address += part;
        size -= part;
    }
}

void ForgetRange(const void *start, size_t size) {
    if (!g_races)
        return;
    uintptr_t address = reinterpret_cast<uintptr_t>(start) / kGranule * kGranule;
    const uintptr_t end = reinterpret_cast<uintptr_t>(start) + size;
    while (address < end) {
        const uintptr_t next = (address / kPageSize + 1) * kPageSize;
        const uintptr_t part = (next < end ? next : end) - address;
        Shadow *shadow = ShadowOf(address, false);
        if (shadow != nullptr)
            memset(&shadow->cells[address % kPageSize / kGranule], 0,
                   (part + kGranule - 1) / kGranule * sizeof shadow->cells[0]);
        address = next;
    }
}

bool Acquires(int order) {
    return order == __ATOMIC_ACQUIRE || order == __ATOMIC_CONSUME || order == __ATOMIC_ACQ_REL ||
           order == __ATOMIC_SEQ_CST;
}

bool Releases(int order) {
    return order == __ATOMIC_RELEASE || order == __ATOMIC_ACQ_REL || order == __ATOMIC_SEQ_CST;
}

void Atomic(uint8_t op, const volatile void *address, const void *site) {
    Thread *me = Enter();
    if (me == nullptr)
        return;
    PassPoint(me, {static_cast<Op>(op), Kind::Memory, const_cast<const void *>(address), site, false});
    Leave(me);
}

void Ordered(const volatile void *address, size_t size, int order, bool loaded, bool stored,
             const void *site) {
    if (!Followed(t_self))
        return;
    Thread *me = Enter();
    if (me == nullptr)
        return;
    order &= 0x7FFF; // what the compiler adds to the number does not matter here
    ThreadClocks &own = s_threads[me->number];
    Check(me, address, size, static_cast<uint8_t>(AccessAtomic | (stored ? AccessWrite : 0)), site);
    Clock *clock = ClockOf(const_cast<const void *>(address));
    if (clock != nullptr) {
        if (loaded)
            Join(Acquires(order) ? own.now : own.pending, *clock);
        if (stored && !loaded)
            memset(clock, 0, sizeof *clock); // a plain store ends what others had released
        if (stored)
            Join(*clock, Releases(order) ? own.now : own.released);
        if (stored && Releases(order))
            Tick(me);
    }
    Leave(me);
}

void Fence(int order, const void *site) {
    Thread *me = Enter();
    if (me == nullptr)
        return;
    PassPoint(me, {Op::Fence, Kind::None, nullptr, site, false});
    if (Followed(me)) {
        ThreadClocks &own = s_threads[me->number];
        if (Acquires(order))
            Join(own.now, own.pending);
        if (Releases(order)) {
            own.released = own.now;
            Tick(me);
        }
    }
    Leave(me);
}

void Access(const volatile void *address, size_t size, bool write, const void *site) {
    if (!Followed(t_self))
        return;
    Thread *me = Enter();
    if (me == nullptr)
        return;
    Check(me, address, size, write ? AccessWrite : 0, site);
    Leave(me);
}

bool FailAllocation() {
    Thread *me = t_self;
    if (me == nullptr || me->inside || !Active() || (g.mapping->order.fail_calls & FailMalloc) == 0)
        return false;
    return FailNow(me, FailMalloc);
}

void CountBlocks(int change) {
    if (Active() && t_self != nullptr)
        g.blocks += change;
}

const Hooks s_hooks = {Atomic, Ordered, Fence, Access, ForgetRange, FailAllocation, CountBlocks};

} // namespace

void RaceStart() {
    g_races = g.mapping->order.check_races != 0;
    if (!g_races)
        return;
    void *memory = mmap(nullptr, kPages * sizeof(Shadow), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    g_races = memory != MAP_FAILED;
    s_shadows = static_cast<Shadow *>(memory);
    s_threads[1].now.at[1] = 1;
}

void RaceAcquireSlow(Thread *me, const void *object) {
    const Clock *clock = Followed(me) ? ClockOf(object) : nullptr;
    if (clock != nullptr)
        Join(s_threads[me->number].now, *clock);
}

void RaceReleaseSlow(Thread *me, const void *object) {
    Clock *clock = Followed(me) ? ClockOf(object) : nullptr;
    if (clock == nullptr)
        return;
    Join(*clock, s_threads[me->number].now);
    Tick(me);
}

void RaceCreate(Thread *me, const Thread *created) {
    if (!Followed(me) || !Followed(created))
        return;
    s_threads[created->number].now = s_threads[me->number].now;
    Tick(created);
    Tick(me);
}

void RaceStack() {
    pthread_attr_t attributes;
    void *start = nullptr;
    size_t size = 0;
    if (!g_races || pthread_getattr_np(pthread_self(), &attributes) != 0)
        return;
    if (pthread_attr_getstack(&attributes, &start, &size) == 0)
        ForgetRange(start, size);
    (void)pthread_attr_destroy(&attributes);
}

} // namespace explore

EXPLORE_API const explore::Hooks *vyx_explore_hooks() {
    return &explore::s_hooks;
}
