// The functions that code compiled with -fsanitize=thread calls, for vyx-explore instead of the sanitizer: an atomic
// operation is a point where threads can switch, and plain accesses can be followed. Link this library and leave
// -fsanitize=thread out when linking. Without vyx-explore the program runs as if it were not instrumented.
#include <cstring>
#include <dlfcn.h>

#include "../hooks.h"
#include "../mapping.h"

using explore::Hooks;
using explore::Op;

#define ENTRY extern "C" __attribute__((visibility("default")))
#define SITE __builtin_return_address(0)

namespace {

const Hooks *s_hooks; // null: not explored

template <class T>
void Before(Op op, const volatile T *address, const void *site) {
    if (s_hooks != nullptr)
        s_hooks->atomic(static_cast<uint8_t>(op), address, site);
}

template <class T>
void After(const volatile T *address, int order, bool loaded, bool stored, const void *site) {
    if (s_hooks != nullptr)
        s_hooks->ordered(address, sizeof(T), order, loaded, stored, site);
}

void Access(const volatile void *address, size_t size, bool write, const void *site) {
    if (s_hooks != nullptr)
        s_hooks->access(address, size, write, site);
}

template <class T>
T Load(const volatile T *address, int order, const void *site) {
    Before(Op::Load, address, site);
    const T value = __atomic_load_n(address, __ATOMIC_SEQ_CST);
    After(address, order, true, false, site);
    return value;
}

template <class T>
void Store(volatile T *address, T value, int order, const void *site) {
    Before(Op::Store, address, site);
    __atomic_store_n(address, value, __ATOMIC_SEQ_CST);
    After(address, order, false, true, site);
}

// An operation that reads and writes; `change` gives the new value.
template <class T, class Change>
T Exchange(volatile T *address, int order, const void *site, const Change &change) {
    Before(Op::Exchange, address, site);
    T value = __atomic_load_n(address, __ATOMIC_SEQ_CST);
    while (!__atomic_compare_exchange_n(address, &value, change(value), false, __ATOMIC_SEQ_CST,
                                        __ATOMIC_SEQ_CST)) {
    }
    After(address, order, true, true, site);
    return value;
}

template <class T>
bool CompareExchange(volatile T *address, T *expected, T value, int order, int fail_order, const void *site) {
    Before(Op::Exchange, address, site);
    const bool done =
        __atomic_compare_exchange_n(address, expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    After(address, done ? order : fail_order, true, done, site);
    return done;
}

} // namespace

ENTRY void __tsan_init() {
    using Get = const Hooks *(*)();
    const auto get = reinterpret_cast<Get>(dlsym(RTLD_DEFAULT, explore::kHooksName));
    if (get != nullptr)
        s_hooks = get();
}

ENTRY void __tsan_func_entry(void *) {}
ENTRY void __tsan_func_exit() {}
ENTRY void __tsan_ignore_thread_begin() {}
ENTRY void __tsan_ignore_thread_end() {}

// clang-format off
#define ACCESS(size) \
    ENTRY void __tsan_read##size(void *a) { Access(a, size, false, SITE); } \
    ENTRY void __tsan_write##size(void *a) { Access(a, size, true, SITE); } \
    ENTRY void __tsan_unaligned_read##size(void *a) { Access(a, size, false, SITE); } \
    ENTRY void __tsan_unaligned_write##size(void *a) { Access(a, size, true, SITE); } \
    ENTRY void __tsan_volatile_read##size(void *a) { Access(a, size, false, SITE); } \
    ENTRY void __tsan_volatile_write##size(void *a) { Access(a, size, true, SITE); } \
    ENTRY void __tsan_read_write##size(void *a) { Access(a, size, true, SITE); } \
    ENTRY void __tsan_unaligned_read_write##size(void *a) { Access(a, size, true, SITE); }
// clang-format on
ACCESS(1)
ACCESS(2)
ACCESS(4)
ACCESS(8)
ACCESS(16)

ENTRY void __tsan_read_range(void *address, unsigned long size) {
    Access(address, size, false, SITE);
}
ENTRY void __tsan_write_range(void *address, unsigned long size) {
    Access(address, size, true, SITE);
}
ENTRY void __tsan_vptr_read(void **address) {
    Access(address, sizeof *address, false, SITE);
}
ENTRY void __tsan_vptr_update(void **address, void *value) {
    if (*address != value) // a destructor that writes the same pointer again changes nothing
        Access(address, sizeof *address, true, SITE);
}
ENTRY void *__tsan_memcpy(void *target, const void *source, unsigned long size) {
    Access(source, size, false, SITE);
    Access(target, size, true, SITE);
    return memcpy(target, source, size);
}
ENTRY void *__tsan_memmove(void *target, const void *source, unsigned long size) {
    Access(source, size, false, SITE);
    Access(target, size, true, SITE);
    return memmove(target, source, size);
}
ENTRY void *__tsan_memset(void *target, int value, unsigned long size) {
    Access(target, size, true, SITE);
    return memset(target, value, size);
}

ENTRY void __tsan_atomic_thread_fence(int order) {
    if (s_hooks != nullptr)
        s_hooks->fence(order, SITE);
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}
ENTRY void __tsan_atomic_signal_fence(int) {}

// clang-format off
#define FETCH(bits, name, expression) \
    ENTRY uint##bits##_t __tsan_atomic##bits##_fetch_##name(volatile uint##bits##_t *a, uint##bits##_t v, int order) { \
        return Exchange(a, order, SITE, [v](uint##bits##_t old) { return static_cast<uint##bits##_t>(expression); }); \
    }
#define ATOMIC(bits) \
    ENTRY uint##bits##_t __tsan_atomic##bits##_load(const volatile uint##bits##_t *a, int order) { \
        return Load(a, order, SITE); \
    } \
    ENTRY void __tsan_atomic##bits##_store(volatile uint##bits##_t *a, uint##bits##_t v, int order) { \
        Store(a, v, order, SITE); \
    } \
    ENTRY uint##bits##_t __tsan_atomic##bits##_exchange(volatile uint##bits##_t *a, uint##bits##_t v, int order) { \
        return Exchange(a, order, SITE, [v](uint##bits##_t) { return v; }); \
    } \
    FETCH(bits, add, old + v) FETCH(bits, sub, old - v) FETCH(bits, and, old & v) FETCH(bits, or, old | v) \
    FETCH(bits, xor, old ^ v) FETCH(bits, nand, ~(old & v)) \
    ENTRY int __tsan_atomic##bits##_compare_exchange_strong(volatile uint##bits##_t *a, uint##bits##_t *c, \
                                                            uint##bits##_t v, int order, int fail_order) { \
        return CompareExchange(a, c, v, order, fail_order, SITE) ? 1 : 0; \
    } \
    ENTRY int __tsan_atomic##bits##_compare_exchange_weak(volatile uint##bits##_t *a, uint##bits##_t *c, \
                                                          uint##bits##_t v, int order, int fail_order) { \
        return CompareExchange(a, c, v, order, fail_order, SITE) ? 1 : 0; \
    } \
    ENTRY uint##bits##_t __tsan_atomic##bits##_compare_exchange_val(volatile uint##bits##_t *a, uint##bits##_t c, \
                                                                    uint##bits##_t v, int order, int fail_order) { \
        (void)CompareExchange(a, &c, v, order, fail_order, SITE); \
        return c; \
    }
// clang-format on
ATOMIC(8)
ATOMIC(16)
ATOMIC(32)
ATOMIC(64)
