// The table of what a fork does to each subsystem.
#include "base/fork.h"

#include <atomic>
#include <iterator>
#include <sched.h>

#include "base/describe.h"
#include "container/container_inter.h"
#include "frame/frame_inter.h"
#include "log/log_service.h"
#include "msg/event_inter.h"
#include "msg/msgq_inter.h"
#include "msg/timer_inter.h"
#include "pool/thread_pool_inter.h"
#include "pool/thrmgr.h"
#include "sync/atomic_inter.h"
#include "sync/cond_wait.h"
#include "sync/sem_record.h"
#include "sync/timed_wait.h"
#include "sys/c_library.h"
#include "time/calendar.h"

namespace vyx_inter {

namespace {

// In the order of the locks' ranks.
constexpr const ForkRow *kRows[] = {
    &g_struStartForkRow,   &g_struTimerForkRow,    &g_struMsgQForkRow,     &g_struPoolForkRow,
    &g_struFlexForkRow,    &g_struEventForkRow,    &g_struLogForkRow,      &g_struTimedWaitForkRow,
    &g_struSemWaitForkRow, &g_struCondWaitForkRow, &g_struCalendarForkRow, &g_struCLibraryForkRow,
    &g_struAtomicForkRow,  &g_struRingForkRow,     &g_struSemNameForkRow,
};

// Two threads that fork at once do so one after the other: what the rows hold belongs to one fork. A fork that does not get
// its turn goes on without the rows, and gives back nothing that is another one's.
Lock s_hForkLock{Rank::Fork};
constexpr uint32_t kTurn = 10000; // milliseconds that a fork waits for its turn

// A fork in a signal handler that interrupts a fork of the same thread is left out altogether.
thread_local std::atomic<uint32_t> t_nForks{0};
thread_local bool t_bTurn = false;

bool AwaitTurn_Local() {
    const Deadline last = Deadline::In(kTurn, Clock::Monotonic);
    while (!s_hForkLock.TryForFork()) {
        if (last.HasPassed())
            return false;
        (void)sched_yield();
    }
    return true;
}

} // namespace

void BeforeFork() {
    if (t_nForks.fetch_add(1) != 0)
        return;
    t_bTurn = AwaitTurn_Local();
    if (!t_bTurn)
        return;
    for (const ForkRow *pRow : kRows)
        pRow->fnBefore();
}

void AfterForkInParent() {
    if (t_nForks.load() == 1 && t_bTurn) {
        for (size_t i = std::size(kRows); i > 0; --i)
            kRows[i - 1]->fnInParent();
        s_hForkLock.ReleaseAfterFork();
    }
    t_nForks.fetch_sub(1);
}

void AfterForkInChild() {
    if (t_nForks.load() == 1) {
        for (size_t i = std::size(kRows); i > 0; --i)
            kRows[i - 1]->fnInChild();
        s_hForkLock.Renew();
    }
    t_nForks.fetch_sub(1);
}

} // namespace vyx_inter

/* ---- Description */

static constexpr vyx_inter::DescriptionRow kForkRows[] = {VYX_LOCK("Fork", vyx_inter::s_hForkLock)};
VYX_DESCRIBE(fork, kForkRows)
