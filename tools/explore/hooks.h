// What instrumented code and the heap's stand-ins ask of the preload library. They find it by its name; a program that
// is not explored runs without it.
#ifndef VYX_EXPLORE_HOOKS_H_
#define VYX_EXPLORE_HOOKS_H_

#include <cstddef>
#include <cstdint>

namespace explore {

enum AccessFlag : uint8_t { AccessWrite = 1, AccessAtomic = 2 };

struct Hooks {
    // Before an atomic operation: a point. `op` is an Op.
    void (*atomic)(uint8_t op, const volatile void *address, const void *site);
    // After it: what it orders. `order` is a memory order as the compiler numbers them; AccessWrite: it stored.
    void (*ordered)(const volatile void *address, size_t size, int order, bool loaded, bool stored,
                    const void *site);
    void (*fence)(int order, const void *site);
    // A plain access; only if races are looked for.
    void (*access)(const volatile void *address, size_t size, bool write, const void *site);
    // Memory that is given out, and given back: what was done there before does not count.
    void (*forget)(const void *address, size_t size);
    // This allocation fails on purpose.
    bool (*fail_allocation)();
    // Blocks that are given out (1) and back (-1).
    void (*count_blocks)(int change);
};

constexpr const char *kHooksName = "vyx_explore_hooks"; // const Hooks *vyx_explore_hooks()

} // namespace explore

#endif
