// The fixed pools: records, and what their source files share.
#ifndef VYX_POOL_THREAD_POOL_INTER_H
#define VYX_POOL_THREAD_POOL_INTER_H

#include <atomic>

#include <vyx/pool.h>

#include "base/fork.h"
#include "base/lock.h"

namespace vyx_inter {

// Some of a pool's places.
class PlaceSet {
  public:
    void Add(uint32_t nPlace) { m_words[nPlace / kBits] |= Bit(nPlace); }
    void Remove(uint32_t nPlace) { m_words[nPlace / kBits] &= ~Bit(nPlace); }
    // The lowest place, or kNone.
    [[nodiscard]] uint32_t First() const {
        for (uint32_t nWord = 0; nWord < kWords; ++nWord)
            if (m_words[nWord] != 0)
                return nWord * kBits + static_cast<uint32_t>(__builtin_ctzll(m_words[nWord]));
        return kNone;
    }
    static constexpr uint32_t kNone = UINT32_MAX;

  private:
    static constexpr uint32_t kBits = 64;
    static constexpr uint32_t kWords = MAX_THREAD_PER_THREADPOOL / kBits;
    static uint64_t Bit(uint32_t nPlace) { return uint64_t{1} << nPlace % kBits; }
    uint64_t m_words[kWords] = {};
};

// What becomes of a caller that waits for a worker.
enum class Answer : uint8_t {
    None,    // it waits
    Taken,   // a worker has its item
    Refused, // the pool is closed
    Again,   // there is room for another worker
};

// A caller that waits for a worker, with its item. The record is the caller's, which may free it as soon as it has
// its answer, but not while it is asleep and the pool's lock is held.
class WaitingCaller {
  public:
    WaitingCaller(VYX_THREAD_PROC fnItem, void *pItemParam) : fWork(fnItem), pParam(pItemParam) {}
    const VYX_THREAD_PROC fWork;
    void *const pParam;
    std::atomic<Answer> eAnswer{Answer::None};
    std::atomic<bool> bAsleep{false}; // changes under the pool's lock
    Condition wake;

  private:
    friend class WaitingCallers;
    WaitingCaller *m_pNext = nullptr;
};

// The callers that wait, the first to come at the front.
class WaitingCallers {
  public:
    void Append(WaitingCaller &caller) {
        (m_pLast == nullptr ? m_pFirst : m_pLast->m_pNext) = &caller;
        m_pLast = &caller;
        ++m_nCount;
    }
    void Remove(WaitingCaller &caller) {
        WaitingCaller *pBefore = nullptr;
        for (WaitingCaller *pOther = m_pFirst; pOther != &caller; pOther = pOther->m_pNext)
            pBefore = pOther;
        (pBefore == nullptr ? m_pFirst : pBefore->m_pNext) = caller.m_pNext;
        if (m_pLast == &caller)
            m_pLast = pBefore;
        caller.m_pNext = nullptr;
        --m_nCount;
    }
    // Result: the one at the front, which is to be answered now; null if there is none.
    WaitingCaller *TakeFirst() {
        WaitingCaller *pFirst = m_pFirst;
        if (pFirst != nullptr)
            Remove(*pFirst);
        return pFirst;
    }
    [[nodiscard]] uint32_t CountAsleep() const {
        uint32_t nAsleep = 0;
        for (const WaitingCaller *pCaller = m_pFirst; pCaller != nullptr; pCaller = pCaller->m_pNext)
            nAsleep += pCaller->bAsleep.load() ? 1U : 0U;
        return nAsleep;
    }

  private:
    friend struct PoolRows;
    WaitingCaller *m_pFirst = nullptr;
    WaitingCaller *m_pLast = nullptr;
    uint32_t m_nCount = 0; // for debuggers and tools
};

} // namespace vyx_inter

// One worker. The record is made by whoever starts the worker, and freed by the worker's thread when it ends.
struct THREAD_INFO_T {
    struct THREAD_POOL_T *pThreadPool;
    uint32_t nPool;        // the pool's place in the registry
    uint32_t nIndex;       // its place in the pool
    uint32_t nIdleTimeOut; // milliseconds without an item after which it retires; VYX_INFINITE: never
    VYX_SEM_T hSem;        // wakes the worker; starts at 0
    VYX_THREAD_PROC fWork; // the item, or null; the post of hSem that follows hands it over to the worker
    void *pParam;
};

// A place for a worker; free when all is zero. A worker belongs to the pool as long as it stands here, and no longer.
struct THREAD_PLACE_T {
    THREAD_INFO_T *pWorker;
    VYX_THREAD_T hThread;
};

// One pool. The record is never freed and its lock never destroyed, so a thread that is late in leaving a destroyed
// pool meets nothing freed.
struct alignas(64) THREAD_POOL_T {
    vyx_inter::Lock hLock{vyx_inter::Rank::FixedPool};
    // Becomes odd when the pool is opened for items, and even when it is closed. Changed under hLock, read without.
    std::atomic<uint32_t> nEra{0};
    uint32_t nCurrCount VYX_GUARDED_BY(hLock) = 0; // live workers
    // While callers wait, no worker is idle and the pool is full.
    vyx_inter::WaitingCallers waiting VYX_GUARDED_BY(hLock);
    vyx_inter::PlaceSet idle VYX_GUARDED_BY(hLock); // places whose worker waits for an item and may be chosen
    uint64_t nItems VYX_GUARDED_BY(hLock) = 0;      // accepted since the pool was made
    THREAD_PLACE_T *pPlaces VYX_PT_GUARDED_BY(hLock) = nullptr; // nMaxCount of them are used
    uint32_t nMaxCount VYX_GUARDED_BY(hLock) = 0;
    uint32_t nInitCount VYX_GUARDED_BY(hLock) = 0;
    uint32_t nStackSize VYX_GUARDED_BY(hLock) = 0;   // bytes; 0: 1 MiB
    uint32_t nIdleTimeOut VYX_GUARDED_BY(hLock) = 0; // milliseconds; VYX_INFINITE: workers never retire
};

VYX_BEGIN_DECLS

// Start and stop of the registry's stage. Both return 0. The start empties the
// registry: pools that were not destroyed before the last stop are forgotten, and their workers with them.
int32_t VYX_InitThreadPool_Inter(void);
int32_t VYX_FiniThreadPool_Inter(void);

// In the child the parent's pools refuse work; destroyed, they give their places back.
extern const vyx_inter::ForkRow g_struPoolForkRow;

// A worker's body; pParam is its THREAD_INFO_T.
void *f_Thread_Svc(void *pParam);

VYX_END_DECLS

// Takes the worker at that place out of its pool, and lets a caller that waits try to start another.
void VYX_LeavePool_Inter(THREAD_POOL_T &pool, uint32_t nPlace) VYX_REQUIRES(pool.hLock);

// Ends a caller's wait. It does not stand in the pool's list any more; the pool's lock is held.
void VYX_AnswerCaller_Inter(vyx_inter::WaitingCaller &caller, vyx_inter::Answer eAnswer);

// Whether that worker is the calling thread.
bool VYX_IsOwnWorker_Inter(const THREAD_INFO_T *pInfo);

// In a forked child: the calling thread, if it is a worker, leaves its semaphore to the parent.
void VYX_DisownWorker_Inter();

#endif
