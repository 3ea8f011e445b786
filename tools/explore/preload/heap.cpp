// The heap's stand-ins, a library of their own that is loaded only where they are needed: for allocations that fail on
// purpose, for blocks that are left at the exit, and so that memory that is used again counts as new.
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>

#include "../hooks.h"

#define EXPLORE_API extern "C" __attribute__((visibility("default")))

namespace {

using explore::Hooks;

struct Next {
    void *(*malloc)(size_t);
    void *(*calloc)(size_t, size_t);
    void *(*realloc)(void *, size_t);
    void *(*memalign)(size_t, size_t);
    void (*free)(void *);
    size_t (*usable)(void *);
};

Next s_next;
const Hooks *s_hooks;
bool s_ready;
bool s_finding;
// Allocations made while the real functions are looked up; never given back.
alignas(16) char s_early[16384];
size_t s_early_used;

void *Early(size_t size) {
    size = (size + 15) / 16 * 16;
    if (size > sizeof s_early - s_early_used)
        return nullptr;
    void *block = s_early + s_early_used;
    s_early_used += size;
    return block;
}

bool IsEarly(const void *block) {
    const char *address = static_cast<const char *>(block);
    return address >= s_early && address < s_early + sizeof s_early;
}

template <class T>
void Find(T &function, const char *name) {
    function = reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

// False: still looking.
bool Ready() {
    if (s_ready)
        return true;
    if (s_finding)
        return false;
    s_finding = true;
    Find(s_next.malloc, "malloc");
    Find(s_next.calloc, "calloc");
    Find(s_next.realloc, "realloc");
    Find(s_next.memalign, "memalign");
    Find(s_next.free, "free");
    Find(s_next.usable, "malloc_usable_size");
    using Get = const Hooks *(*)();
    const auto get = reinterpret_cast<Get>(dlsym(RTLD_DEFAULT, explore::kHooksName));
    s_hooks = get == nullptr ? nullptr : get();
    s_ready = true;
    return true;
}

bool Fails() {
    if (s_hooks == nullptr || !s_hooks->fail_allocation())
        return false;
    errno = ENOMEM;
    return true;
}

void *Given(void *block) {
    if (block != nullptr && s_hooks != nullptr) {
        s_hooks->forget(block, s_next.usable(block));
        s_hooks->count_blocks(1);
    }
    return block;
}

} // namespace

EXPLORE_API void *malloc(size_t size) noexcept {
    if (!Ready())
        return Early(size);
    return Fails() ? nullptr : Given(s_next.malloc(size));
}

EXPLORE_API void *calloc(size_t count, size_t size) noexcept {
    if (!Ready())
        return Early(count * size);
    return Fails() ? nullptr : Given(s_next.calloc(count, size));
}

EXPLORE_API void *memalign(size_t alignment, size_t size) noexcept {
    if (!Ready())
        return nullptr;
    return Fails() ? nullptr : Given(s_next.memalign(alignment, size));
}

EXPLORE_API void *aligned_alloc(size_t alignment, size_t size) noexcept {
    return memalign(alignment, size);
}

EXPLORE_API int posix_memalign(void **result, size_t alignment, size_t size) noexcept {
    const int saved = errno;
    void *block = memalign(alignment, size);
    errno = saved;
    if (block == nullptr)
        return ENOMEM;
    *result = block;
    return 0;
}

EXPLORE_API void free(void *block) noexcept {
    if (block == nullptr || IsEarly(block) || !Ready())
        return;
    if (s_hooks != nullptr) {
        s_hooks->forget(block, s_next.usable(block));
        s_hooks->count_blocks(-1);
    }
    s_next.free(block);
}

EXPLORE_API void *realloc(void *block, size_t size) noexcept {
    if (block == nullptr)
        return malloc(size);
    if (IsEarly(block) || !Ready()) {
        void *moved = malloc(size);
        if (moved != nullptr)
            memcpy(moved, block, size); // an early block is followed by room enough
        return moved;
    }
    if (Fails())
        return nullptr;
    if (s_hooks != nullptr) {
        s_hooks->forget(block, s_next.usable(block));
        s_hooks->count_blocks(-1);
    }
    return Given(s_next.realloc(block, size));
}
