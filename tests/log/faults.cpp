// Apart from the tests, so that compilers do not look through the replaced functions.
#include "log/faults.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <pthread.h>

std::atomic<bool> faults::noMemory{false};
std::atomic<bool> faults::noThread{false};

// Allocation that fails on demand, in all of the process.
void *operator new(size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    return faults::noMemory ? nullptr : std::malloc(nSize);
}
void *operator new[](size_t nSize, const std::nothrow_t &tag) noexcept {
    return operator new(nSize, tag);
}
void *operator new(size_t nSize) {
    void *pMemory = operator new(nSize, std::nothrow);
    if (pMemory == nullptr)
        throw std::bad_alloc();
    return pMemory;
}
void *operator new[](size_t nSize) {
    return operator new(nSize);
}
void operator delete(void *pMemory) noexcept {
    std::free(pMemory);
}
void operator delete(void *pMemory, size_t /*nSize*/) noexcept {
    std::free(pMemory);
}
void operator delete[](void *pMemory) noexcept {
    std::free(pMemory);
}
void operator delete[](void *pMemory, size_t /*nSize*/) noexcept {
    std::free(pMemory);
}

// Threads that cannot be made on demand.
using Create = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fn)(void *),
                              void *pArg) {
    static const auto s_create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return faults::noThread ? EAGAIN : s_create(pThread, pAttr, fn, pArg);
}
