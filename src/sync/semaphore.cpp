// Counting semaphores on POSIX named semaphores with generated names.
//
// The name counter is advanced under s_hCreateLock. It is atomic besides, since that lock is exported and an
// application may do with it what it likes. The name stays registered until VYX_SemDestroy unlinks it.
#include <atomic>
#include <bitset>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <type_traits>
#include <vyx/sync.h>

#include "base/describe.h"
#include "base/list.h"
#include "base/lock.h"
#include "base/platform.h"
#include "base/probes.h"
#include "sync/sem_record.h"
#include "sync/turns.h"

static_assert(offsetof(VYX_SEM_S, pSem) == 0);
static_assert(sizeof(vyx::vyx_sem) == sizeof(void *) && std::has_virtual_destructor_v<vyx::vyx_sem>);

// Ready at all times and never destroyed, since a semaphore may be created while the library stops.
VYX_MUTEX_T s_hCreateLock = PTHREAD_MUTEX_INITIALIZER;

vyx_inter::Lock s_hNameLock{vyx_inter::Rank::SemNames};

namespace {

#define NAME_START "vyx_named_semaphore_" // and five digits

constexpr int32_t kNameCount = 32767; // names in all, and attempts to find a free one
constexpr int32_t kFewNames = 16;     // asked for one by one; to read all at once takes a third of the time

using TakenNames = std::bitset<kNameCount>; // a bit for each number

vyx_inter::ForkHold s_forkHold(s_hNameLock);

vyx_inter::Turns s_turns(vyx_inter::Rank::SemTurns);

// Holds s_hNameLock while the C library opens or closes a semaphore or reads the names, which takes it many
// microseconds.
class VYX_SCOPED_CAPABILITY NamesGuard {
  public:
    NamesGuard() VYX_ACQUIRE(s_hNameLock) {
        s_turns.Enter();
        s_hNameLock.Acquire();
    }
    ~NamesGuard() VYX_RELEASE() {
        s_hNameLock.Release();
        s_turns.Leave();
    }
    NamesGuard(const NamesGuard &) = delete;
    NamesGuard &operator=(const NamesGuard &) = delete;
};

// Those that are open, for tools.
vyx_inter::List<VYX_SEM_S, &VYX_SEM_S::all> s_semaphores VYX_GUARDED_BY(s_hNameLock);

// The next number to try, 0 to kNameCount - 1.
std::atomic<int32_t> iSemCount{0};

// Takes the next number, under the lock that the name's users share.
int32_t NextNumber_Local() {
    (void)VYX_MutexLock(&s_hCreateLock);
    int32_t iNumber = iSemCount.load(std::memory_order_relaxed);
    while (!iSemCount.compare_exchange_weak(iNumber, (iNumber + 1) % kNameCount, std::memory_order_relaxed)) {
    }
    (void)VYX_MutexUnlock(&s_hCreateLock);
    return iNumber;
}

// Notes in a TakenNames that a name is taken, if it is one of ours.
void NoteTaken_Local(const char *szName, void *pTaken) {
    constexpr size_t kStart = sizeof NAME_START - 1;
    constexpr size_t kDigits = 5;
    if (std::strncmp(szName, NAME_START, kStart) != 0 || std::strlen(szName) != kStart + kDigits)
        return;
    const char *const szEnd = szName + kStart + kDigits;
    uint32_t nNumber = 0;
    if (std::from_chars(szName + kStart, szEnd, nNumber).ptr == szEnd && nNumber < kNameCount)
        static_cast<TakenNames *>(pTaken)->set(nNumber);
}

// Tries one name for each attempt from iFirst to iEnd - 1, and opens a semaphore under the first that is free. szName
// receives that name. Result: SEM_FAILED, with errno, if none was opened.
//   pTaken  numbers that are not tried, or null
sem_t *OpenOneOf_Local(int32_t iFirst, int32_t iEnd, const TakenNames *pTaken,
                       char (&szName)[sizeof(VYX_SEM_S::szName)], uint32_t nInitial) {
    for (int32_t iAttempt = iFirst; iAttempt < iEnd; ++iAttempt) {
        const int32_t iNumber = NextNumber_Local();
        if (pTaken != nullptr && pTaken->test(static_cast<size_t>(iNumber)))
            continue;
        (void)std::snprintf(szName, sizeof szName, "%s" NAME_START "%05d", VYX_SemNamePrefix_Inter(),
                            static_cast<int>(iNumber));
        // Behind one name that is taken there may be thousands, and opening finds that out in ten times the time.
        if (iAttempt > 0 && VYX_SemNameIsTaken_Inter(szName))
            continue;
        const NamesGuard guard;
        sem_t *pSem = sem_open(szName, O_CREAT | O_EXCL, 0777, nInitial);
        if (pSem != SEM_FAILED || errno != EEXIST)
            return pSem;
    }
    errno = EEXIST;
    return SEM_FAILED;
}

// The same, of all names but the first few. A function of its own, as the numbers take 4 KiB of the stack.
[[gnu::noinline]] sem_t *OpenBehindFew_Local(char (&szName)[sizeof(VYX_SEM_S::szName)], uint32_t nInitial) {
    TakenNames taken;
    {
        // Held so that a child that is forked meanwhile does not inherit the open directory.
        const NamesGuard guard;
        VYX_EachSemName_Inter(NoteTaken_Local, &taken);
    }
    return OpenOneOf_Local(kFewNames, kNameCount, &taken, szName, nInitial);
}

// The same, of all names.
sem_t *OpenUnderFreeName_Local(char (&szName)[sizeof(VYX_SEM_S::szName)], uint32_t nInitial) {
    sem_t *pSem = OpenOneOf_Local(0, kFewNames, nullptr, szName, nInitial);
    return pSem == SEM_FAILED && errno == EEXIST ? OpenBehindFew_Local(szName, nInitial) : pSem;
}

bool IsEmpty_Local(const VYX_SEM_T *pSem) {
    return pSem == nullptr || *pSem == nullptr;
}

} // namespace

const vyx_inter::ForkRow g_struSemNameForkRow = {
    [] {
        s_turns.BeforeFork();
        s_forkHold.Before();
    },
    [] {
        s_forkHold.InParent();
        s_turns.InParent();
    },
    [] {
        (void)s_forkHold.InChild();
        s_turns.InChild();
        s_hCreateLock = PTHREAD_MUTEX_INITIALIZER; // all it guards is the next number, whatever that is
    },
};

int32_t VYX_SemCreate(VYX_SEM_T *pSem, uint32_t nInitial) {
    if (pSem == nullptr)
        return VYX_ERROR;
    char szName[sizeof(VYX_SEM_S::szName)] = {};
    sem_t *pOpened = OpenUnderFreeName_Local(szName, nInitial);
    if (pOpened == SEM_FAILED)
        return VYX_ERROR;
    auto *pRecord = new (std::nothrow) VYX_SEM_S();
    if (pRecord == nullptr) {
        (void)sem_unlink(szName);
        const NamesGuard guard;
        (void)sem_close(pOpened);
        return VYX_ERROR;
    }
    pRecord->pSem = pOpened;
    std::memcpy(pRecord->szName, szName, sizeof szName);
    *pSem = pRecord;
    VYX_SemSetCount_Inter(pOpened, nInitial);
    const vyx_inter::LockGuard guard(s_hNameLock);
    s_semaphores.Append(pRecord);
    return VYX_OK;
}

int32_t VYX_SemDestroy(VYX_SEM_T *pSem) {
    if (IsEmpty_Local(pSem))
        return VYX_ERROR;
    VYX_SEM_S *pRecord = *pSem;
    // Both results are ignored: somebody may have cleaned the name up, and the semaphore goes all the same.
    (void)sem_unlink(pRecord->szName);
    {
        const NamesGuard guard;
        s_semaphores.Remove(pRecord);
        (void)sem_close(pRecord->pSem);
    }
    delete pRecord;
    return VYX_OK;
}

int32_t VYX_SemWait(VYX_SEM_T *pSem) {
    return IsEmpty_Local(pSem) ? VYX_ERROR : VYX_SemWait_Inter(*pSem);
}

int32_t VYX_SemPost(VYX_SEM_T *pSem) {
    if (IsEmpty_Local(pSem))
        return VYX_ERROR;
    VYX_SEM_S *pRecord = *pSem;
    VYX_PROBE1(sem_post, pRecord);
    return sem_post(pRecord->pSem);
}

int32_t VYX_SemTimedWait(VYX_SEM_T *pSem, uint32_t nTimeOut) {
    if (IsEmpty_Local(pSem))
        return VYX_ERROR;
    if (nTimeOut == 0)
        return VYX_SemTry_Inter(*pSem);
    return SemTimedWait(*pSem, nTimeOut);
}

VYX_Sema::VYX_Sema(unsigned int initial, unsigned int maximum)
    : m_hSem(nullptr), m_nMaxCount(maximum), m_nCount(initial) {
    static_assert(std::is_standard_layout_v<VYX_Sema> && offsetof(VYX_Sema, m_hSem) == 0);
    static_assert(offsetof(VYX_Sema, m_nMaxCount) < offsetof(VYX_Sema, m_mutex));
    static_assert(offsetof(VYX_Sema, m_mutex) < offsetof(VYX_Sema, m_nCount));
    static_assert(sizeof(VYX_Sema) == offsetof(VYX_Sema, m_nCount) + alignof(VYX_Sema));
    // A failure leaves the slot empty, and every wait answers -1.
    (void)VYX_SemCreate(&m_hSem, initial);
}

VYX_Sema::~VYX_Sema() {
    (void)VYX_SemDestroy(&m_hSem);
}

int VYX_Sema::Wait() {
    return TimedWait(VYX_INFINITE);
}

int VYX_Sema::TimedWait(unsigned int ms) {
    if (VYX_SemTimedWait(&m_hSem, ms) != VYX_OK)
        return VYX_ERROR;
    (void)m_mutex.Lock();
    --m_nCount;
    (void)m_mutex.Unlock();
    return VYX_OK;
}

int VYX_Sema::Post() {
    (void)m_mutex.Lock();
    const bool bRoom = m_nCount < m_nMaxCount;
    // Deliberate: a post that the platform refuses is not counted, and still answers 0.
    // Pinned by Sema.RefusedPostAnswersZeroUncounted.
    if (bRoom && VYX_SemPost(&m_hSem) == VYX_OK)
        ++m_nCount;
    (void)m_mutex.Unlock();
    return bRoom ? VYX_OK : VYX_ERROR;
}

namespace vyx {

vyx_sem::vyx_sem() = default;
vyx_sem::vyx_sem(int /*count*/) {}
vyx_sem::~vyx_sem() = default;
int vyx_sem::init(int /*count*/) {
    return VYX_NOT_AVAILABLE;
}
int vyx_sem::destroy() {
    return VYX_NOT_AVAILABLE;
}
int vyx_sem::post(int /*count*/) {
    return VYX_NOT_AVAILABLE;
}
int vyx_sem::wait(int /*ms*/) {
    return VYX_NOT_AVAILABLE;
}
int vyx_sem::post_1() {
    return VYX_NOT_AVAILABLE;
}

} // namespace vyx

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_SINGLE("semaphore", s_semaphores.pFirst), // the first of them
    VYX_LOCK("SemNames", s_hNameLock),
    VYX_FIELD_OF("semaphore.next", VYX_SEM_S, all, vyx_inter::Links<VYX_SEM_S>, pNext),
    VYX_FIELD("semaphore.platform", VYX_SEM_S, pSem),
    VYX_FIELD("semaphore.name", VYX_SEM_S, szName),
    VYX_FIELD("semaphore.waits", VYX_SEM_S, nWaits),
    VYX_FIELD("semaphore.wakes", VYX_SEM_S, nWakes), // that many of the platform's counts are none
};

} // namespace

VYX_DESCRIBE(semaphores, kRows)
