#include "support/failing_memory.h"

#include <cerrno>
#include <cstdlib>
#include <new>

static thread_local int t_iLeft = -1; // blocks until memory runs out; negative: it never does
static thread_local long t_iAlive = 0;

std::atomic<bool> failing_memory::g_bNone{false};

failing_memory::Limit::Limit(int iLeft) {
    t_iLeft = iLeft;
}
failing_memory::Limit::~Limit() {
    t_iLeft = -1;
}
long failing_memory::Alive() {
    return t_iAlive;
}

void *operator new(std::size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    if (t_iLeft == 0 || failing_memory::g_bNone) {
        errno = ENOMEM;
        return nullptr;
    }
    t_iLeft -= t_iLeft > 0 ? 1 : 0;
    ++t_iAlive;
    return std::malloc(nSize == 0 ? 1 : nSize);
}
void *operator new[](std::size_t nSize, const std::nothrow_t &tag) noexcept {
    return operator new(nSize, tag);
}
void *operator new(std::size_t nSize) {
    void *const pBlock = operator new(nSize, std::nothrow);
    if (pBlock == nullptr)
        throw std::bad_alloc();
    return pBlock;
}
void *operator new[](std::size_t nSize) {
    return operator new(nSize);
}
void operator delete(void *pBlock) noexcept {
    t_iAlive -= pBlock != nullptr ? 1 : 0;
    std::free(pBlock);
}
void operator delete[](void *pBlock) noexcept {
    operator delete(pBlock);
}
void operator delete(void *pBlock, std::size_t /*nSize*/) noexcept {
    operator delete(pBlock);
}
void operator delete[](void *pBlock, std::size_t /*nSize*/) noexcept {
    operator delete(pBlock);
}
