// The flexible pools' records.
#ifndef VYX_POOL_THRMGR_H
#define VYX_POOL_THRMGR_H

#include <atomic>

#include <vyx/pool.h>

#include "base/fork.h"
#include "base/lock.h"

// Queued pointers, in blocks that come and go as they are needed; the last one stays.
class thrmgr_queue_t {
  public:
    thrmgr_queue_t() = default;
    ~thrmgr_queue_t();
    thrmgr_queue_t(const thrmgr_queue_t &) = delete;
    thrmgr_queue_t &operator=(const thrmgr_queue_t &) = delete;

    // Result: false if memory is short.
    bool Append(void *pData);
    // Takes the first. Result: false if there is none.
    bool Take(void **ppData);
    // Drops all without freeing the blocks, where they may have been changed half-way.
    void Forget();
    [[nodiscard]] uint32_t Count() const { return m_nCount.load(std::memory_order_relaxed); }

  private:
    friend struct FlexRows;
    struct Block;
    Block *m_pFirst = nullptr;
    Block *m_pLast = nullptr;
    uint32_t m_nFirst = 0; // where in the first block the first pointer is
    uint32_t m_nEnd = 0;   // where in the last block the next pointer goes
    std::atomic<uint32_t> m_nCount{0};
};

enum class FlexState : uint8_t {
    Running,
    Destroying,
    Abandoned, // made by the parent of a forked process: there are no workers, and no items are accepted
};

extern vyx_inter::Lock g_hFlexLock; // of the list of all pools

struct thrmgr_pool_t {
    vyx_inter::Lock hLock{vyx_inter::Rank::FlexPool};
    FlexState eState VYX_GUARDED_BY(hLock) = FlexState::Running;
    bool bHasShrunk VYX_GUARDED_BY(hLock) =
        false;                                 // a worker has retired: no more are started while there is one
    uint32_t nAlive VYX_GUARDED_BY(hLock) = 0; // live workers
    uint32_t nIdle VYX_GUARDED_BY(hLock) = 0;  // of these: without work
    uint32_t
        nLooking VYX_GUARDED_BY(hLock) = 0; // of these: awake, and will look at the queue before they sleep
    uint32_t nAsleep VYX_GUARDED_BY(hLock) = 0; // the others of these
    uint32_t nWoken VYX_GUARDED_BY(hLock) = 0;  // of those asleep: signalled, and not yet back
    thrmgr_queue_t queue VYX_GUARDED_BY(hLock);
    vyx_inter::Condition work;                   // where workers sleep
    vyx_inter::Condition gone;                   // where the destroyer waits for the last worker
    uint64_t nItems VYX_GUARDED_BY(hLock) = 0;   // taken from the queue since the pool was made
    uint32_t nStarted VYX_GUARDED_BY(hLock) = 0; // workers since the pool was made

    // Set when the pool is made.
    uint32_t nNumber = 0; // the lowest that no other pool had
    uint32_t nMaxThreads = 0;
    uint32_t nIdleTimeOut = 0; // milliseconds; VYX_INFINITE: workers never retire
    uint32_t nStackSize = 0;   // bytes of each worker
    VYX_THRMGR_PROC fnHandler = nullptr;

    vyx_inter::ForkHold forkHold{hLock};
    thrmgr_pool_t *pNext VYX_GUARDED_BY(g_hFlexLock) = nullptr;
};

// A worker's body; pPool is its pool. The thread is detached.
extern "C" void *thrmgr_worker(void *pPool);

// In the child the parent's pools refuse work, and are freed by their destruction.
extern const vyx_inter::ForkRow g_struFlexForkRow;

#endif
