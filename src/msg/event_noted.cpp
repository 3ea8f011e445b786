// Which threads wait for which events, and until when: for tools.
//
// Each thread that has ever waited with a limit has a record in a list, until it ends. The record points to the note of the
// wait, on the thread's stack, while there is one. Nobody in the process reads that; a reader from outside has read a note
// that was true if the pointer and the count of waits, in this order, are the same after it has read the note.
#include <pthread.h>

#include "base/describe.h"
#include "msg/event_inter.h"

namespace vyx_inter {

static Lock s_waitersLock{Rank::Event};

struct EventWaiter {
    std::atomic<const NotedWait *> pWait;           // null while there is none
    std::atomic<uint32_t> nWaits;                   // with a note, modulo 2^32
    bool bKnown;                                    // the thread is in the list, or could not be put there
    uint32_t nThread VYX_GUARDED_BY(s_waitersLock); // as the system numbers it; 0 where it does not tell
    Links<EventWaiter> all VYX_GUARDED_BY(s_waitersLock);
};

namespace {

thread_local EventWaiter t_waiter = {};

List<EventWaiter, &EventWaiter::all> s_waiters VYX_GUARDED_BY(s_waitersLock);
pthread_key_t s_hEndKey VYX_GUARDED_BY(s_waitersLock); // has the platform tell when a thread ends
bool s_bEndKeyMade VYX_GUARDED_BY(s_waitersLock) = false;

// The thread may still wait, in another destructor: that is not noted.
void EndOfThread_Local(void *pWaiter) {
    const LockGuard guard(s_waitersLock);
    s_waiters.Remove(static_cast<EventWaiter *>(pWaiter));
}

void Append_Local(EventWaiter &waiter) VYX_REQUIRES(s_waitersLock) {
    waiter.nThread = s_waitersLock.OwnThread();
    s_waiters.Append(&waiter);
}

void Register_Local(EventWaiter &waiter) {
    waiter.bKnown = true;
    const LockGuard guard(s_waitersLock);
    s_bEndKeyMade = s_bEndKeyMade || pthread_key_create(&s_hEndKey, EndOfThread_Local) == 0;
    if (s_bEndKeyMade && pthread_setspecific(s_hEndKey, &waiter) == 0) // it may be short of memory
        Append_Local(waiter);
}

} // namespace

void NotedWait::Begin(const VYX_EVENT *pEvents, int32_t iEvents) {
    m_pWaiter = &t_waiter;
    if (!m_pWaiter->bKnown)
        Register_Local(*m_pWaiter);
    m_pEvents = pEvents;
    m_iEvents = iEvents;
    m_pWaiter->nWaits.store(m_pWaiter->nWaits.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    m_pWaiter->pWait.store(this, std::memory_order_release);
}

void NotedWait::End() {
    m_pWaiter->pWait.store(nullptr, std::memory_order_release);
    // The thread's next note may lie in the same place, and is not to be seen there before this one has gone.
    std::atomic_thread_fence(std::memory_order_release);
}

void ForgetOtherEventWaits() {
    s_waitersLock.Renew();
    const LockGuard guard(s_waitersLock);
    const bool bListed = s_bEndKeyMade && pthread_getspecific(s_hEndKey) == &t_waiter;
    s_waiters = {};
    if (bListed)
        Append_Local(t_waiter);
}

/* ---- Description */

struct EventWaitRows {
    static constexpr DescriptionRow kRows[] = {
        VYX_SINGLE("event_waiter", s_waiters.pFirst), // the first of the threads that have ever waited
        VYX_LOCK("EventWaiters", s_waitersLock),
        VYX_FIELD_OF("event_waiter.next", EventWaiter, all, Links<EventWaiter>, pNext),
        VYX_FIELD("event_waiter.thread", EventWaiter, nThread),
        VYX_FIELD("event_waiter.wait", EventWaiter, pWait),
        VYX_FIELD("event_waiter.waits", EventWaiter, nWaits),
        VYX_FIELD("event_wait.events", NotedWait, m_pEvents),
        VYX_FIELD("event_wait.count", NotedWait, m_iEvents),
        VYX_FIELD("event_wait.deadline", NotedWait, m_deadline), // of the monotonic clock
    };
};

} // namespace vyx_inter

VYX_DESCRIBE(event_waits, vyx_inter::EventWaitRows::kRows)
