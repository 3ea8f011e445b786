// Atomic operations on 32-bit integers, all under one process-wide lock.
//
// Only the compare-and-swap takes the lock; the others read first and then ask for a swap from what they read.
// The integers are also touched by callers outside the lock, so every access here is a relaxed atomic one.
#include "sync/atomic_inter.h"

#include "base/describe.h"
#include "base/lock.h"

using vyx_inter::Lock;
using vyx_inter::LockGuard;

// Ready at all times, not only between start and stop: an operation outside that span is exact as well.
static Lock s_csLock{vyx_inter::Rank::Atomic};

static vyx_inter::ForkHold s_forkHold(s_csLock);
const vyx_inter::ForkRow g_struAtomicForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] { (void)s_forkHold.InChild(); },
};

// The callers' unlocked look. A stale value is harmless: the swap that follows then stores nothing.
static uint32_t Read_Local(const volatile uint32_t *pDest) {
    return __atomic_load_n(pDest, __ATOMIC_RELAXED);
}

int32_t VYX_InitAtomic_Inter(void) {
    return VYX_OK;
}

int32_t VYX_FiniAtomic_Inter(void) {
    return VYX_OK;
}

int32_t VYX_AtomicCas(volatile uint32_t *pDest, uint32_t nNew, int32_t nComparand) {
    const LockGuard guard(s_csLock);
    if (Read_Local(pDest) == static_cast<uint32_t>(nComparand))
        __atomic_store_n(pDest, nNew, __ATOMIC_RELAXED);
    return VYX_OK;
}

// Deliberate, for the four operations below: if another thread changes the integer between the look and the
// swap, the update is lost and the caller still gets 0. Pinned by Atomic.DerivedOperationsMayLoseUpdates.
int32_t VYX_AtomicSet(volatile uint32_t *pDest, uint32_t nValue) {
    return VYX_AtomicCas(pDest, nValue, static_cast<int32_t>(Read_Local(pDest)));
}

int32_t VYX_AtomicAdd(volatile uint32_t *pDest, uint32_t nAddend) {
    const uint32_t nOld = Read_Local(pDest);
    return VYX_AtomicCas(pDest, nOld + nAddend, static_cast<int32_t>(nOld));
}

int32_t VYX_AtomicInc(volatile uint32_t *pDest) {
    return VYX_AtomicAdd(pDest, 1);
}

int32_t VYX_AtomicDec(volatile uint32_t *pDest) {
    const uint32_t nOld = Read_Local(pDest);
    return VYX_AtomicCas(pDest, nOld - 1, static_cast<int32_t>(nOld));
}

int32_t VYX_AtomicCasPtr(void *volatile * /*ppDest*/, void * /*pNew*/, void * /*pComparand*/) {
    return VYX_OK;
}

/* ---- Description */

static constexpr vyx_inter::DescriptionRow kRows[] = {VYX_LOCK("Atomic", s_csLock)};
VYX_DESCRIBE(atomic, kRows)
