#include "net/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int t_iLeft = -1; // blocks until memory runs out; negative: it never does
thread_local bool t_bReached = false;
thread_local long t_iAlive = 0;

void *Take(std::size_t nSize) {
    if (t_iLeft == 0) {
        t_bReached = true;
        return nullptr;
    }
    if (t_iLeft > 0)
        --t_iLeft;
    ++t_iAlive;
    return std::malloc(nSize == 0 ? 1 : nSize);
}

void Give(void *pBlock) {
    if (pBlock != nullptr)
        --t_iAlive;
    std::free(pBlock);
}

void *TakeOrThrow(std::size_t nSize) {
    void *const pBlock = Take(nSize);
    if (pBlock == nullptr)
        throw std::bad_alloc();
    return pBlock;
}

} // namespace

namespace failing_memory {

Limit::Limit(int iLeft) {
    t_bReached = false;
    t_iLeft = iLeft;
}

Limit::~Limit() {
    t_iLeft = -1;
}

bool Limit::Reached() const {
    return t_bReached;
}

long Alive() {
    return t_iAlive;
}

} // namespace failing_memory

void *operator new(std::size_t nSize) {
    return TakeOrThrow(nSize);
}
void *operator new[](std::size_t nSize) {
    return TakeOrThrow(nSize);
}
void *operator new(std::size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    return Take(nSize);
}
void *operator new[](std::size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    return Take(nSize);
}
void operator delete(void *pBlock) noexcept {
    Give(pBlock);
}
void operator delete[](void *pBlock) noexcept {
    Give(pBlock);
}
void operator delete(void *pBlock, std::size_t /*nSize*/) noexcept {
    Give(pBlock);
}
void operator delete[](void *pBlock, std::size_t /*nSize*/) noexcept {
    Give(pBlock);
}
