// Message queues.
//
// A queue is an entry of a static registry; its handle is the entry's address. A message goes through two
// stations. Senders push it onto a list without a lock (pNewest), so that they hold up neither each other nor
// a receiver, and a send costs the same whatever is queued. Receivers, under hQueueLock, first move what has come
// into the index, which keeps it in order, and then take the index's first.
//
// A sender broadcasts only if a receiver may wait. A receiver sets bRecvWaits and then looks at pNewest once more; a
// sender pushes and then looks at bRecvWaits. These accesses are sequentially consistent, so one of the two sees
// the other. Whoever broadcasts clears the flag under hRecvLock, which the receiver holds from setting the flag until it
// sleeps. From finding the index empty until it has set the flag, the receiver holds hQueueLock, so that no other
// receiver moves messages into the index meanwhile.
//
// Senders and receivers may still be about to leave when a queue ends: see VYX_MQ_INTER.
#include <cstddef>
#include <cstring>
#include <new>
#include <vyx/msg.h>
#include <vyx/time.h>

#include "base/describe.h"
#include "base/first_init.h"
#include "base/lock.h"
#include "base/probes.h"
#include "msg/msgq_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(VYX_MSG_BLOCK_T, iMsgType) == 0 && offsetof(VYX_MSG_BLOCK_T, iPriority) == 4 &&
              offsetof(VYX_MSG_BLOCK_T, iDataLen) == 8 && offsetof(VYX_MSG_BLOCK_T, szData) == 12 &&
              sizeof(VYX_MSG_BLOCK_T) == 8108);

using vyx_inter::Clock;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;

VYX_MQ_MSG_S g_struMsgQClosed = {};

Lock s_msgQMutex{vyx_inter::Rank::QueueRegistry};
VYX_FIRST_INIT static VYX_MQ_INTER s_msgQBlocks[VYX_MAX_MSGQ];
static vyx_inter::MsgIndex
    s_msgQIndexes[VYX_MAX_MSGQ]; // apart: zeros, which take no memory until they are used
static bool s_bMsgQStarted VYX_GUARDED_BY(s_msgQMutex) = false;

namespace {

// Frees a message when the block ends.
class MsgHolder {
  public:
    explicit MsgHolder(VYX_MQ_MSG_S *pMsg) : m_pMsg(pMsg) {}
    ~MsgHolder() { ::operator delete(m_pMsg); }
    MsgHolder(const MsgHolder &) = delete;
    MsgHolder &operator=(const MsgHolder &) = delete;

  private:
    VYX_MQ_MSG_S *m_pMsg;
};

// Result: a copy of the block with the given length; null if memory is short.
VYX_MQ_MSG_S *Copy_Local(const VYX_MSG_BLOCK_T &block, int32_t iDataLen) {
    constexpr size_t kWithoutData = offsetof(VYX_MQ_MSG_S, struMsg) + offsetof(VYX_MSG_BLOCK_T, szData);
    const auto nDataLen = static_cast<size_t>(iDataLen);
    auto *pMsg = static_cast<VYX_MQ_MSG_S *>(::operator new(kWithoutData + nDataLen, std::nothrow));
    if (pMsg == nullptr)
        return nullptr;
    pMsg->struMsg.iMsgType = block.iMsgType;
    pMsg->struMsg.iPriority = block.iPriority;
    pMsg->struMsg.iDataLen = iDataLen;
    std::memcpy(pMsg->struMsg.szData, block.szData, nDataLen);
    return pMsg;
}

// Puts a message onto the list. Result: false if the queue is not live.
bool Push_Local(VYX_MQ_INTER &queue, VYX_MQ_MSG_S *pMsg) {
    VYX_MQ_MSG_S *pNewest = queue.pNewest.load(std::memory_order_relaxed);
    do {
        if (pNewest == &g_struMsgQClosed)
            return false;
        pMsg->pNext = pNewest;
    } while (!queue.pNewest.compare_exchange_weak(pNewest, pMsg));
    VYX_PROBE1(queue_send, &queue);
    return true;
}

size_t Bytes_Local(const VYX_MQ_MSG_S &msg) {
    return static_cast<size_t>(msg.struMsg.iDataLen);
}

// Puts a list, newest first, into the index, oldest first.
void SortIn_Local(VYX_MQ_INTER &queue, VYX_MQ_MSG_S *pNewest) VYX_REQUIRES(queue.hQueueLock) {
    VYX_MQ_MSG_S *pOldest = nullptr;
    size_t nCount = 0;
    size_t nBytes = 0;
    while (pNewest != nullptr) {
        VYX_MQ_MSG_S *pOlder = pNewest->pNext;
        pNewest->pNext = pOldest;
        pOldest = pNewest;
        ++nCount;
        nBytes += Bytes_Local(*pNewest);
        pNewest = pOlder;
    }
    queue.nSorted += nCount;
    queue.nBytes += nBytes;
    while (pOldest != nullptr) {
        VYX_MQ_MSG_S *pNewer = pOldest->pNext;
        queue.pIndex->Append(pOldest);
        pOldest = pNewer;
    }
}

// Moves what has come into the index. The queue is live.
void TakeOver_Local(VYX_MQ_INTER &queue) VYX_REQUIRES(queue.hQueueLock) {
    if (queue.pNewest.load(std::memory_order_relaxed) == nullptr)
        return;
    SortIn_Local(queue, queue.pNewest.exchange(nullptr));
}

// A receiver that is about to sleep holds hRecvLock until it does, so none misses the broadcast. The lock is given back
// before: whoever wakes needs it.
void WakeAll_Local(VYX_MQ_INTER &queue) {
    if (queue.bRecvWaits.load() == 0)
        return;
    {
        const LockGuard guard(queue.hRecvLock);
        queue.bRecvWaits.store(0);
    }
    queue.hRecvCond.Broadcast();
}

bool IsLive_Local(const VYX_MQ_INTER &queue) {
    return queue.pNewest.load() != &g_struMsgQClosed;
}

// The result of a look at the queue.
enum class Look { Taken, Empty, Gone };

// Takes the first message, if the queue is still the one that the caller entered.
Look Take_Local(VYX_MQ_INTER &queue, uint32_t nGeneration, VYX_MQ_MSG_S *&pMsg)
    VYX_REQUIRES(queue.hQueueLock) {
    if (!IsLive_Local(queue) || queue.nGeneration.load() != nGeneration)
        return Look::Gone;
    TakeOver_Local(queue);
    pMsg = queue.pIndex->RemoveFirst();
    if (pMsg == nullptr)
        return Look::Empty;
    VYX_PROBE2(queue_receive, &queue, queue.nSorted);
    --queue.nSorted;
    queue.nBytes -= Bytes_Local(*pMsg);
    return Look::Taken;
}

// Waits for a message. Result: it, or null if the time is used up or the queue has gone.
VYX_MQ_MSG_S *Await_Local(VYX_MQ_INTER &queue, uint32_t nTimeOut) {
    const uint32_t nGeneration = queue.nGeneration.load();
    uint32_t nRemaining = nTimeOut;
    uint32_t nStart = 0;
    for (bool bFirst = true;; bFirst = false) {
        VYX_MQ_MSG_S *pMsg = nullptr;
        queue.hQueueLock.Acquire();
        if (Take_Local(queue, nGeneration, pMsg) != Look::Empty) {
            queue.hQueueLock.Release();
            return pMsg;
        }
        if (bFirst) // the usual case does not even look at the clock
            nStart = VYX_GetTimeTick();
        // Without a limit, what remains is counted but need not bound the sleep.
        // A clock that cannot be read stands still, so that the platform's wait alone knows that the time is out.
        if (!VYX_MsgQWaitTimeOut_Inter(&queue, nTimeOut == VYX_INFINITE ? nTimeOut : nRemaining))
            return nullptr;
        const uint32_t nNow = VYX_GetTimeTick();
        const uint32_t nElapsed = nNow - nStart;
        if (nRemaining < nElapsed)
            return nullptr;
        nRemaining -= nElapsed;
        nStart = nNow;
        // Deliberate: a time-out of 0 comes here after the next send, and leaves its message where it is.
        // Pinned by MsgQueue.TimeOutZeroWaitsForASendAndLeavesIt.
        if (nTimeOut != VYX_INFINITE && nRemaining == 0)
            return nullptr;
    }
}

// Hands a message over to the caller.
int32_t Deliver_Local(VYX_MQ_MSG_S *pMsg, VYX_MSG_BLOCK_T &block) {
    const MsgHolder holder(pMsg);
    const VYX_MSG_BLOCK_T &taken = pMsg->struMsg;
    block.iMsgType = taken.iMsgType;
    block.iPriority = taken.iPriority;
    // Deliberate: the message has left the queue by now, so a block with too little room loses it. Callers
    // offer the full size. Pinned by fuzz/queue_fuzz.cpp.
    if (block.iDataLen < taken.iDataLen)
        return VYX_ERROR;
    block.iDataLen = taken.iDataLen;
    std::memcpy(block.szData, taken.szData, static_cast<size_t>(taken.iDataLen));
    return VYX_OK;
}

// Which queues are live stays as it is while s_msgQMutex is held.
template <class Function>
void ForEachLive_Local(Function fn) {
    for (VYX_MQ_INTER &entry : s_msgQBlocks)
        if (IsLive_Local(entry))
            fn(entry);
}

// Those who wait, or wake them, exist in the parent only. The messages are the child's as well.
void RenewInChild_Local(VYX_MQ_INTER &entry) VYX_UNCHECKED {
    if (!entry.forkHold.InChild())
        return;
    entry.hRecvLock.Renew();
    entry.hRecvCond.Renew();
    entry.sleepers = {};
    ++entry.nForks; // bRecvWaits may stay: the next send clears it
}

// For as long as a receiver sleeps, with hRecvLock held.
class Sleeper {
  public:
    Sleeper(VYX_MQ_INTER &queue, const Deadline &deadline) VYX_UNCHECKED
        : m_queue(queue),
          m_nForks(queue.nForks),
          m_record{queue.hRecvLock.OwnThread(), VYX_GetTimeTick(), deadline, {}} {
        queue.sleepers.Append(&m_record);
    }
    ~Sleeper() VYX_UNCHECKED {
        if (m_nForks == m_queue.nForks) // else the list is a forked child's, and does not have this thread
            m_queue.sleepers.Remove(&m_record);
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;

  private:
    VYX_MQ_INTER &m_queue;
    const uint32_t m_nForks;
    VYX_MQ_SLEEPER_S m_record;
};

vyx_inter::ForkHold s_forkHold(s_msgQMutex);

} // namespace

const vyx_inter::ForkRow g_struMsgQForkRow = {
    [] {
        s_forkHold.Before();
        ForEachLive_Local([](VYX_MQ_INTER &entry) { entry.forkHold.Before(); });
    },
    [] {
        ForEachLive_Local([](VYX_MQ_INTER &entry) { entry.forkHold.InParent(); });
        s_forkHold.InParent();
    },
    [] {
        ForEachLive_Local(RenewInChild_Local);
        (void)s_forkHold.InChild();
    },
};

int32_t VYX_MsgQInitEx_Inter(void) {
    const LockGuard guard(s_msgQMutex);
    s_bMsgQStarted = true;
    return VYX_OK;
}

int32_t VYX_MsgQFiniEx_Inter(void) {
    const LockGuard guard(s_msgQMutex);
    for (VYX_MQ_INTER &entry : s_msgQBlocks)
        VYX_MsgQClearEx_Inter(&entry);
    s_bMsgQStarted = false;
    return VYX_OK;
}

int32_t VYX_MsgQInitMQ_Inter(VYX_MQ_INTER *pEntry) {
    const LockGuard hold(pEntry->hQueueLock);
    pEntry->nGeneration.fetch_add(1);
    pEntry->pIndex = &s_msgQIndexes[pEntry - s_msgQBlocks];
    pEntry->pNewest.store(nullptr);
    return VYX_OK;
}

void VYX_MsgQClearEx_Inter(VYX_MQ_INTER *pEntry) {
    if (pEntry == nullptr || !IsLive_Local(*pEntry))
        return;
    {
        const LockGuard hold(pEntry->hQueueLock);
        VYX_MQ_MSG_S *pNewest = pEntry->pNewest.exchange(&g_struMsgQClosed);
        while (pNewest != nullptr) {
            const MsgHolder holder(pNewest);
            pNewest = pNewest->pNext;
        }
        while (VYX_MQ_MSG_S *pMsg = pEntry->pIndex->RemoveFirst())
            const MsgHolder holder(pMsg);
        pEntry->nSorted = 0;
        pEntry->nBytes = 0;
    }
    WakeAll_Local(*pEntry);
}

bool VYX_MsgQWaitTimeOut_Inter(VYX_MQ_INTER *pEntry, uint32_t nTimeOut) {
    const Deadline deadline = nTimeOut == 0 ? Deadline::Never() : Deadline::In(nTimeOut, Clock::Wall);
    const LockGuard guard(pEntry->hRecvLock);
    pEntry->bRecvWaits.store(1);
    const bool bCome = pEntry->pNewest.load() != nullptr;
    pEntry->hQueueLock.Release();
    if (bCome)
        return true;
    const Sleeper sleeper(*pEntry, deadline);
    // Woken by WakeAll_Local, of a sender or of the queue's end.
    VYX_PROBE1(cond_wait_begin, &pEntry->hRecvCond);
    const bool bWoken = pEntry->hRecvCond.WaitUntil(pEntry->hRecvLock, deadline);
    VYX_PROBE2(cond_wait_end, &pEntry->hRecvCond, bWoken ? VYX_OK : VYX_ERROR);
    return bWoken;
}

int32_t VYX_MsgQCreateEx(VYX_HANDLE_MSGQ *phQueue) {
    if (phQueue == nullptr)
        return VYX_ERROR;
    const LockGuard guard(s_msgQMutex);
    if (!s_bMsgQStarted)
        return VYX_ERROR;
    for (VYX_MQ_INTER &entry : s_msgQBlocks) {
        if (IsLive_Local(entry))
            continue;
        *phQueue = &entry;
        return VYX_MsgQInitMQ_Inter(&entry);
    }
    return VYX_ERROR;
}

int32_t VYX_MsgQDestroyEx(VYX_HANDLE_MSGQ hQueue) {
    if (hQueue == nullptr)
        return VYX_ERROR;
    const LockGuard guard(s_msgQMutex);
    if (!s_bMsgQStarted)
        return VYX_ERROR;
    VYX_MsgQClearEx_Inter(hQueue);
    return VYX_OK;
}

int32_t VYX_MsgQSendEx(VYX_HANDLE_MSGQ hQueue, const VYX_MSG_BLOCK_T *pMsg) {
    if (hQueue == nullptr || pMsg == nullptr || !IsLive_Local(*hQueue))
        return VYX_ERROR;
    const int32_t iDataLen = pMsg->iDataLen;
    if (iDataLen < 0 || iDataLen > VYX_MSG_DATA_SIZE)
        return VYX_ERROR;
    VYX_MQ_MSG_S *pCopy = Copy_Local(*pMsg, iDataLen);
    if (pCopy == nullptr)
        return VYX_ERROR;
    if (!Push_Local(*hQueue, pCopy)) {
        ::operator delete(pCopy);
        return VYX_ERROR;
    }
    WakeAll_Local(*hQueue);
    return VYX_OK;
}

int32_t VYX_MsgQReceiveEx(VYX_HANDLE_MSGQ hQueue, VYX_MSG_BLOCK_T *pMsg, int32_t iTimeOut) {
    if (pMsg == nullptr || hQueue == nullptr)
        return VYX_ERROR;
    VYX_MQ_MSG_S *pTaken = Await_Local(*hQueue, static_cast<uint32_t>(iTimeOut));
    if (pTaken == nullptr)
        return VYX_ERROR;
    return Deliver_Local(pTaken, *pMsg);
}

/* ---- Description */

namespace vyx_inter {

struct QueueRows {
    static constexpr DescriptionRow kRows[] = {
        VYX_REGISTRY("queue", s_msgQBlocks),
        VYX_SINGLE("queue_closed", g_struMsgQClosed), // the newest message of a queue that is not live
        VYX_LOCK("QueueRegistry", s_msgQMutex),
        VYX_FIELD("queue.lock", VYX_MQ_INTER, hQueueLock),
        VYX_FIELD("queue.newest", VYX_MQ_INTER, pNewest), // of those that are not in order yet
        VYX_FIELD("queue.sorted", VYX_MQ_INTER, nSorted), // how many are
        VYX_FIELD("queue.sorted_bytes", VYX_MQ_INTER, nBytes),
        VYX_FIELD("queue.index", VYX_MQ_INTER, pIndex),
        VYX_FIELD("queue_index.used", MsgIndex, m_nBuckets), // the last of them has the highest priority
        VYX_FIELD("queue_index.buckets", MsgIndex, m_buckets),
        {"queue_bucket", 0, sizeof(MsgIndex::Bucket), 0, nullptr},
        VYX_FIELD("queue_bucket.highest", MsgIndex::Bucket, iHighest),
        VYX_FIELD("queue.receive_lock", VYX_MQ_INTER, hRecvLock),
        VYX_FIELD_OF("queue.receivers", VYX_MQ_INTER, sleepers, decltype(VYX_MQ_INTER::sleepers), pFirst),
        VYX_FIELD_OF("receiver.next", VYX_MQ_SLEEPER_S, all, Links<VYX_MQ_SLEEPER_S>, pNext),
        VYX_FIELD("receiver.thread", VYX_MQ_SLEEPER_S, nThread),
        VYX_FIELD("receiver.since", VYX_MQ_SLEEPER_S, nSince), // milliseconds of the wall clock, modulo 2^32
        VYX_FIELD("receiver.deadline", VYX_MQ_SLEEPER_S, deadline), // of the wall clock, or never
        VYX_FIELD("message.next", VYX_MQ_MSG_S, pNext),
        VYX_FIELD_OF("message.priority", VYX_MQ_MSG_S, struMsg, VYX_MSG_BLOCK_T, iPriority),
        VYX_FIELD_OF("message.bytes", VYX_MQ_MSG_S, struMsg, VYX_MSG_BLOCK_T, iDataLen),
    };
};

} // namespace vyx_inter

VYX_DESCRIBE(queues, vyx_inter::QueueRows::kRows)
