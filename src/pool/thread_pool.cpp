// The fixed pools: registry, creation, hand-over of items, destruction. The workers are in
// thread_pool_worker.cpp.
//
// A pool is a record of a static registry; its handle is the record's address. There is no queue: an item
// goes to an idle worker under the pool's hLock, or to a worker started for it, or is refused. A caller that
// wants to wait for a worker leaves its item in a list; the worker that becomes free takes the first from there
// and goes on with it, without becoming idle in between.
//
// A caller may be anywhere inside VYX_ThreadPool_WorkEx while its pool is destroyed and another one is made in the
// same place. It notes the pool's era when it comes, and hands nothing over once the era has changed.
#include <new>
#include <vyx/pool.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "base/describe.h"
#include "base/probes.h"
#include "base/spin.h"
#include "base/uncancelled.h"
#include "pool/thread_pool_inter.h"

using vyx_inter::Answer;
using vyx_inter::ForkHold;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::PlaceSet;
using vyx_inter::Rank;
using vyx_inter::TryBriefly;
using vyx_inter::Uncancelled;
using vyx_inter::WaitingCaller;

static Lock s_csLock{Rank::PoolRegistry};
static uint64_t
    s_nUsed VYX_GUARDED_BY(s_csLock) = 0; // a bit for each pool: its place in the registry is taken
static THREAD_POOL_T s_struThreadPools[VYX_MAX_THREADPOOLS];
static THREAD_PLACE_T s_struPlaces[VYX_MAX_THREADPOOLS][MAX_THREAD_PER_THREADPOOL];

namespace {

constexpr uint32_t kDefaultStackSize = 1048576; // bytes
constexpr uint64_t kAllUsed = ~uint64_t{0};
// Programs built with another release rely on it.
static_assert(sizeof(VYX_ThreadPool) == sizeof(VYX_HANDLE_THREADPOOL));
static_assert(VYX_MAX_THREADPOOLS == 64, "one bit of s_nUsed each");

bool IsOpen_Local(uint32_t nEra) {
    return nEra % 2 == 1;
}

// Result: the first free place of the registry, now taken; null if there is none.
THREAD_POOL_T *TakePool_Local() {
    const LockGuard guard(s_csLock);
    if (s_nUsed == kAllUsed)
        return nullptr;
    const int iPool = __builtin_ctzll(~s_nUsed);
    s_nUsed |= uint64_t{1} << iPool;
    return &s_struThreadPools[iPool];
}

// Gives a pool's place in the registry back.
void VYX_MoveToIdleThreadPool_Local(const THREAD_POOL_T *pThreadPool) {
    const LockGuard guard(s_csLock);
    s_nUsed &= ~(uint64_t{1} << (pThreadPool - s_struThreadPools));
}

// First place that is free, or taken. PlaceSet::kNone if there is none.
uint32_t FindPlace_Local(THREAD_POOL_T &pool, bool bFree) VYX_REQUIRES(pool.hLock) {
    for (uint32_t nPlace = 0; nPlace < pool.nMaxCount; ++nPlace)
        if ((pool.pPlaces[nPlace].pWorker == nullptr) == bFree)
            return nPlace;
    return PlaceSet::kNone;
}

// Result: a worker's record for that place, with its semaphore; null, with a message, if one of the two cannot be made.
THREAD_INFO_T *MakeWorker_Local(THREAD_POOL_T &pool, uint32_t nPlace) VYX_REQUIRES(pool.hLock) {
    // By place: a place below nInitCount may have been given up and taken again by a later worker, which then stays.
    const uint32_t nIdleTimeOut = nPlace < pool.nInitCount ? VYX_INFINITE : pool.nIdleTimeOut;
    const auto nPool = static_cast<uint32_t>(&pool - s_struThreadPools);
    auto *pInfo =
        new (std::nothrow) THREAD_INFO_T{&pool, nPool, nPlace, nIdleTimeOut, nullptr, nullptr, nullptr};
    if (pInfo != nullptr && VYX_SemCreate(&pInfo->hSem, 0) == VYX_OK)
        return pInfo;
    delete pInfo;
    (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local VYX_SemCreate error, return -1 2\n");
    return nullptr;
}

// Starts one worker at the first free place; it is idle. 0, or -1: pool full, no semaphore, no thread.
int32_t VYX_CreateThread_Local(THREAD_POOL_T &pool) VYX_REQUIRES(pool.hLock) {
    if (pool.nCurrCount == pool.nMaxCount) {
        (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local (pThreadPool->nCurrCount == "
                              "pThreadPool->nMaxCount) error, return -1, 1\n");
        return VYX_ERROR;
    }
    const uint32_t nPlace = FindPlace_Local(pool, true);
    THREAD_INFO_T *pInfo = MakeWorker_Local(pool, nPlace);
    if (pInfo == nullptr)
        return VYX_ERROR;
    const uint32_t nStackSize = pool.nStackSize == 0 ? kDefaultStackSize : pool.nStackSize;
    const VYX_THREAD_T hThread = VYX_Thread_Create(f_Thread_Svc, pInfo, nStackSize, 0, 0, 0);
    if (hThread == VYX_INVALID_THREAD) {
        (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local VYX_Thread_Create error, return -1 3\n");
        (void)VYX_SemDestroy(&pInfo->hSem);
        delete pInfo;
        return VYX_ERROR;
    }
    pool.pPlaces[nPlace] = {pInfo, hThread};
    pool.idle.Add(nPlace);
    ++pool.nCurrCount;
    return VYX_OK;
}

// Stops the live worker with the lowest place and waits until it has ended. 0, or -1 if none is live.
int32_t VYX_DestroyThread_Local(THREAD_POOL_T &pool) {
    THREAD_PLACE_T place = {};
    {
        const LockGuard guard(pool.hLock);
        const uint32_t nPlace = FindPlace_Local(pool, false);
        if (nPlace == PlaceSet::kNone)
            return VYX_ERROR;
        place = pool.pPlaces[nPlace];
        VYX_LeavePool_Inter(pool, nPlace);
        (void)VYX_SemPost(&place.pWorker->hSem); // a worker that does not belong to the pool any more ends
    }
    if (VYX_IsOwnWorker_Inter(place.pWorker)) // from inside an item: this thread cannot wait for itself
        (void)pthread_detach(place.hThread);
    else
        (void)VYX_Thread_Wait(place.hThread);
    return VYX_OK;
}

// Claims the idle worker with the lowest place: it is not idle any more. Null if there is none.
THREAD_INFO_T *VYX_GetIdle_Local(THREAD_POOL_T *pThreadPool) VYX_REQUIRES(pThreadPool->hLock) {
    if (pThreadPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_GetIdle_Local pThreadPool == NULL error, return NULL 1\n");
        return nullptr;
    }
    const uint32_t nPlace = pThreadPool->idle.First();
    if (nPlace == PlaceSet::kNone)
        return nullptr;
    pThreadPool->idle.Remove(nPlace);
    return pThreadPool->pPlaces[nPlace].pWorker;
}

// Claims an idle worker, or starts one while the pool has room. Result: -1 only if one could not be started;
// *ppWorker is null when the pool is full.
int32_t ClaimWorker_Local(THREAD_POOL_T &pool, THREAD_INFO_T **ppWorker) VYX_REQUIRES(pool.hLock) {
    *ppWorker = VYX_GetIdle_Local(&pool);
    if (*ppWorker != nullptr || pool.nCurrCount >= pool.nMaxCount)
        return VYX_OK;
    if (VYX_CreateThread_Local(pool) != VYX_OK)
        return VYX_ERROR;
    *ppWorker = VYX_GetIdle_Local(&pool);
    return VYX_OK;
}

// Answers the first of the callers that wait. Result: false if there is none.
bool AnswerFirst_Local(THREAD_POOL_T &pool, Answer eAnswer) VYX_REQUIRES(pool.hLock) {
    WaitingCaller *pCaller = pool.waiting.TakeFirst();
    if (pCaller != nullptr)
        VYX_AnswerCaller_Inter(*pCaller, eAnswer);
    return pCaller != nullptr;
}

// Refuses items from now on, those of callers that wait included.
void Close_Local(THREAD_POOL_T &pool) VYX_REQUIRES(pool.hLock) {
    if (IsOpen_Local(pool.nEra.load()))
        pool.nEra.fetch_add(1);
    while (AnswerFirst_Local(pool, Answer::Refused)) {
    }
}

// Lets the pool's workers end by themselves, when they have finished what they do.
void Forget_Local(THREAD_POOL_T &pool) {
    const LockGuard guard(pool.hLock);
    Close_Local(pool);
    for (uint32_t nPlace = 0; nPlace < pool.nMaxCount; ++nPlace) {
        const THREAD_PLACE_T place = pool.pPlaces[nPlace];
        if (place.pWorker == nullptr)
            continue;
        (void)pthread_detach(place.hThread);
        VYX_LeavePool_Inter(pool, nPlace);
        (void)VYX_SemPost(&place.pWorker->hSem);
    }
}

ForkHold s_forkHold(s_csLock);

// In a forked child, which has neither the parent's workers nor its callers: closes the pools that it had. Their locks
// need not be held across the fork, since nothing is left of what they guard.
void ForgetParent_Local() VYX_UNCHECKED {
    if (!s_forkHold.InChild())
        return;
    for (uint64_t nUsed = s_nUsed; nUsed != 0; nUsed &= nUsed - 1) {
        const int iPool = __builtin_ctzll(nUsed);
        THREAD_POOL_T &pool = s_struThreadPools[iPool];
        pool.hLock.Renew();
        if (IsOpen_Local(pool.nEra.load()))
            pool.nEra.fetch_add(1);
        pool.waiting = {};
        pool.idle = {};
        pool.nCurrCount = 0;
        for (THREAD_PLACE_T &place : s_struPlaces[iPool])
            place = {};
    }
    VYX_DisownWorker_Inter();
}

// Result: true if all the pool's first workers were started.
bool StartWorkers_Local(THREAD_POOL_T &pool) VYX_REQUIRES(pool.hLock) {
    for (uint32_t nStarted = 0; nStarted < pool.nInitCount; ++nStarted) {
        if (VYX_CreateThread_Local(pool) == VYX_OK)
            continue;
        (void)VYX_OutputDebug("quelby !!! VYX_InitThread_Local VYX_CreateThread_Local error, return -1 2\n");
        return false;
    }
    return true;
}

// Sets a pool up and opens it for items. Result: false if one of its first workers could not be started.
bool Open_Local(THREAD_POOL_T &pool, uint32_t nInitCount, uint32_t nMaxCount, uint32_t nStackSize,
                uint32_t nIdleTimeOut) {
    const LockGuard guard(pool.hLock);
    pool.nMaxCount = nMaxCount;
    pool.nInitCount = nInitCount;
    pool.nStackSize = nStackSize;
    pool.nIdleTimeOut = nIdleTimeOut;
    pool.nItems = 0;
    pool.pPlaces = s_struPlaces[&pool - s_struThreadPools];
    if (!StartWorkers_Local(pool))
        return false;
    pool.nEra.fetch_add(1);
    return true;
}

void StopWorkers_Local(THREAD_POOL_T &pool) {
    while (VYX_DestroyThread_Local(pool) == VYX_OK) {
    }
}

// Gives the item to a worker, or the caller a place among those that wait. Result: Answer::None if it waits now.
Answer OfferItem_Local(THREAD_POOL_T &pool, uint32_t nEra, WaitingCaller &caller, bool bWait) {
    const LockGuard guard(pool.hLock);
    if (pool.nEra.load() != nEra)
        return Answer::Refused;
    THREAD_INFO_T *pWorker = nullptr;
    if (ClaimWorker_Local(pool, &pWorker) != VYX_OK) {
        (void)AnswerFirst_Local(pool, Answer::Again); // the next caller that waits may try to start a worker
        return Answer::Refused;
    }
    if (pWorker != nullptr) {
        ++pool.nItems;
        pWorker->fWork = caller.fWork;
        pWorker->pParam = caller.pParam;
        VYX_PROBE3(pool_hand_over, &pool, pWorker, caller.pParam);
        (void)VYX_SemPost(&pWorker->hSem);
        return Answer::Taken;
    }
    if (!bWait)
        return Answer::Refused;
    caller.eAnswer.store(Answer::None);
    caller.bAsleep.store(false);
    pool.waiting.Append(caller);
    return Answer::None;
}

// A caller asleep, under the pool's lock. If it is cancelled in its sleep, it leaves neither its item nor its turn behind.
class Sleeper {
  public:
    Sleeper(THREAD_POOL_T &pool, WaitingCaller &caller) : m_pool(pool), m_caller(caller) {
        caller.bAsleep.store(true);
    }
    ~Sleeper() VYX_UNCHECKED {
        if (m_bAwake)
            return;
        if (m_caller.eAnswer.load() == Answer::None)
            m_pool.waiting.Remove(m_caller);
        else if (m_caller.eAnswer.load() == Answer::Again)
            (void)AnswerFirst_Local(m_pool, Answer::Again);
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;

    void Awake() { m_bAwake = true; }

  private:
    THREAD_POOL_T &m_pool;
    WaitingCaller &m_caller;
    bool m_bAwake = false;
};

// Waits for the answer to a caller that stands among those that wait.
Answer AwaitAnswer_Local(THREAD_POOL_T &pool, WaitingCaller &caller) {
    if (!TryBriefly([&caller] { return caller.eAnswer.load() != Answer::None; })) {
        const LockGuard guard(pool.hLock);
        Sleeper sleeper(pool, caller);
        while (caller.eAnswer.load() == Answer::None)
            caller.wake.Wait(pool.hLock);
        sleeper.Awake();
    }
    return caller.eAnswer.load();
}

} // namespace

const vyx_inter::ForkRow g_struPoolForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    ForgetParent_Local,
};

int32_t VYX_InitThreadPool_Inter(void) {
    const LockGuard guard(s_csLock);
    for (; s_nUsed != 0; s_nUsed &= s_nUsed - 1)
        Forget_Local(s_struThreadPools[__builtin_ctzll(s_nUsed)]);
    return VYX_OK;
}

int32_t VYX_FiniThreadPool_Inter(void) {
    return VYX_OK; // s_csLock outlives the stage
}

void VYX_LeavePool_Inter(THREAD_POOL_T &pool, uint32_t nPlace) {
    pool.pPlaces[nPlace] = {};
    pool.idle.Remove(nPlace);
    --pool.nCurrCount;
    (void)AnswerFirst_Local(pool, Answer::Again);
}

void VYX_AnswerCaller_Inter(WaitingCaller &caller, Answer eAnswer) {
    const bool bAsleep = caller.bAsleep.load();
    caller.eAnswer.store(eAnswer); // a caller that is awake may be gone from here on
    if (bAsleep)
        caller.wake.Signal();
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateFlex(uint32_t nInitCount, uint32_t nMaxCount, uint32_t nStackSize,
                                                uint32_t nIdleTimeOut) {
    if (nMaxCount > MAX_THREAD_PER_THREADPOOL) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create nMaxCount > MAX_THREAD_PER_THREADPOOL error, "
                              "return -1 1\n");
        return nullptr;
    }
    THREAD_POOL_T *pPool = TakePool_Local();
    if (pPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create VYX_GetIdleThreadPool_Local error, "
                              "return -1 2\n");
        return nullptr;
    }
    if (Open_Local(*pPool, nInitCount, nMaxCount, nStackSize, nIdleTimeOut))
        return pPool;
    StopWorkers_Local(*pPool);
    (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create VYX_InitThread_Local error, return -1 3\n");
    VYX_MoveToIdleThreadPool_Local(pPool);
    return nullptr;
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_Create(uint32_t nInitCount, uint32_t nMaxCount) {
    return VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, 0, VYX_INFINITE);
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateEx(uint32_t nInitCount, uint32_t nMaxCount, uint32_t nStackSize) {
    return VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, nStackSize, VYX_INFINITE);
}

int32_t VYX_ThreadPool_Work(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam) {
    return VYX_ThreadPool_WorkEx(hPool, fnWork, pParam, 0);
}

int32_t VYX_ThreadPool_WorkEx(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam,
                              int32_t bWait) {
    if (hPool == nullptr || fnWork == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Work param error, return -1 1\n");
        return VYX_ERROR;
    }
    const uint32_t nEra = hPool->nEra.load();
    if (!IsOpen_Local(nEra))
        return VYX_ERROR;
    WaitingCaller caller(fnWork, pParam);
    Answer eAnswer = Answer::Again;
    while (eAnswer == Answer::Again) {
        eAnswer = OfferItem_Local(*hPool, nEra, caller, bWait != 0);
        if (eAnswer == Answer::None)
            eAnswer = AwaitAnswer_Local(*hPool, caller);
    }
    return eAnswer == Answer::Taken ? VYX_OK : VYX_ERROR;
}

int32_t VYX_ThreadPool_Destroy(VYX_HANDLE_THREADPOOL hPool) {
    if (hPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Destroy pThreadPool == NULL return\n");
        return VYX_ERROR;
    }
    const Uncancelled uncancelled;
    {
        const LockGuard guard(hPool->hLock);
        Close_Local(*hPool);
    }
    StopWorkers_Local(*hPool);
    VYX_MoveToIdleThreadPool_Local(hPool);
    return VYX_OK;
}

VYX_ThreadPool::VYX_ThreadPool() : m_hPool(nullptr) {}
VYX_ThreadPool::~VYX_ThreadPool() = default;

int VYX_ThreadPool::Create(unsigned int nInitCount, unsigned int nMaxCount) {
    m_hPool = VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, 0, VYX_INFINITE);
    return m_hPool != nullptr ? VYX_OK : VYX_ERROR;
}

int VYX_ThreadPool::Destroy() {
    return VYX_ThreadPool_Destroy(m_hPool);
}

int VYX_ThreadPool::Work(void *(*work)(void *), void *param) {
    return VYX_ThreadPool_WorkEx(m_hPool, work, param, 0);
}

/* ---- Description */

namespace vyx_inter {

struct PoolRows {
    static constexpr DescriptionRow kRows[] = {
        VYX_REGISTRY("pool", s_struThreadPools),
        VYX_SINGLE("pool_used", s_nUsed), // bit N: pool N is taken
        VYX_LOCK("PoolRegistry", s_csLock),
        VYX_FIELD("pool.lock", THREAD_POOL_T, hLock),
        VYX_FIELD("pool.era", THREAD_POOL_T, nEra), // odd: it takes items
        VYX_FIELD("pool.workers", THREAD_POOL_T, nCurrCount),
        VYX_FIELD("pool.first", THREAD_POOL_T, nInitCount),
        VYX_FIELD("pool.most", THREAD_POOL_T, nMaxCount),
        VYX_FIELD("pool.idle", THREAD_POOL_T, idle), // a bit for each worker
        VYX_FIELD_OF("pool.waiting", THREAD_POOL_T, waiting, WaitingCallers, m_nCount),
        VYX_FIELD("pool.items", THREAD_POOL_T, nItems),
    };
};

} // namespace vyx_inter

VYX_DESCRIBE(pools, vyx_inter::PoolRows::kRows)
