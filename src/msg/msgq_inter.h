// The message queues' record and what the start and stop of the library need of them.
#ifndef VYX_MSG_MSGQ_INTER_H
#define VYX_MSG_MSGQ_INTER_H

#include <atomic>

#include <vyx/msg.h>

#include "base/fork.h"
#include "base/list.h"
#include "msg/msgq_index.h"

// Guards which entries are live.
extern vyx_inter::Lock s_msgQMutex;

// The end of the list of an entry that is not live: a send that finds it is refused.
extern VYX_MQ_MSG_S g_struMsgQClosed;

// A receiver that sleeps. Lies on its stack; for tools.
struct VYX_MQ_SLEEPER_S {
    uint32_t nThread; // as the system numbers it; 0 where it does not tell
    uint32_t nSince;  // when it went to sleep, as VYX_GetTimeTick
    vyx_inter::Deadline deadline;
    vyx_inter::Links<VYX_MQ_SLEEPER_S> all;
};

// One entry of the registry. It is static and its locks are never destroyed, so a thread that is late in
// leaving a destroyed queue touches nothing that has gone.
struct VYX_MQ_INTER {
    vyx_inter::Lock hQueueLock{vyx_inter::Rank::Queue};
    vyx_inter::MsgIndex *
        pIndex VYX_PT_GUARDED_BY(hQueueLock) = nullptr; // messages in order; null before the first queue
    size_t nSorted VYX_GUARDED_BY(hQueueLock) =
        0; // how many these are, and how many bytes of data they have; for tools
    size_t nBytes VYX_GUARDED_BY(hQueueLock) = 0;
    std::atomic<uint32_t> nGeneration{0}; // which of its queues the entry is; changes as it becomes live
    uint32_t
        nForks VYX_GUARDED_BY(hRecvLock) = 0; // how often the list of sleepers was begun anew, in a child
    vyx_inter::ForkHold forkHold{hQueueLock};

    // What senders use, on a cache line that a receiver's locking leaves alone.
    // Sent and not yet in the index, the newest first. Ends with g_struMsgQClosed while the entry is not live, which
    // changes with s_msgQMutex and hQueueLock held.
    alignas(64) std::atomic<VYX_MQ_MSG_S *> pNewest{&g_struMsgQClosed};
    std::atomic<uint32_t> bRecvWaits{0}; // somebody may wait on hRecvCond; changes with hRecvLock held
    vyx_inter::Lock hRecvLock{vyx_inter::Rank::QueueReceiver};
    vyx_inter::Condition hRecvCond; // a message has come, or the queue is no more
    vyx_inter::List<VYX_MQ_SLEEPER_S, &VYX_MQ_SLEEPER_S::all> sleepers VYX_GUARDED_BY(hRecvLock);
};

VYX_BEGIN_DECLS

// Start and stop of the registry's stage, under the start/stop mutex. The start leaves every entry free, the
// stop destroys the queues that are left. Both return 0.
int32_t VYX_MsgQInitEx_Inter(void);
int32_t VYX_MsgQFiniEx_Inter(void);

// Makes a free entry a live queue without messages, 0; and a live one free again, discarding its messages and
// waking who waits. Null and a free entry are left alone.
int32_t VYX_MsgQInitMQ_Inter(VYX_MQ_INTER *pEntry) VYX_REQUIRES(s_msgQMutex);
void VYX_MsgQClearEx_Inter(VYX_MQ_INTER *pEntry) VYX_REQUIRES(s_msgQMutex);

extern const vyx_inter::ForkRow g_struMsgQForkRow;

// Waits until something is sent, which the caller has found to be needed. It holds hQueueLock, which is released.
//   nTimeOut  milliseconds; 0 and VYX_INFINITE = no limit
// Result: false if the time is out. Otherwise something may have been sent: the caller looks for itself.
bool VYX_MsgQWaitTimeOut_Inter(VYX_MQ_INTER *pEntry, uint32_t nTimeOut) VYX_RELEASE(pEntry->hQueueLock);

VYX_END_DECLS

#endif
