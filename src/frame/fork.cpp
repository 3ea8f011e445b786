// The table of what a fork does to each subsystem.
#include "base/fork.h"

#include <iterator>

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
#include "time/calendar.h"

namespace vyx_inter {

namespace {

// In the order of the locks' ranks.
constexpr const ForkRow *kRows[] = {
    &g_struStartForkRow,   &g_struTimerForkRow,    &g_struMsgQForkRow,     &g_struPoolForkRow,
    &g_struFlexForkRow,    &g_struEventForkRow,    &g_struLogForkRow,      &g_struTimedWaitForkRow,
    &g_struSemWaitForkRow, &g_struCondWaitForkRow, &g_struCalendarForkRow, &g_struAtomicForkRow,
    &g_struRingForkRow,    &g_struSemNameForkRow,
};

Lock s_hForkLock{Rank::Fork}; // two threads that fork at once do so one after the other
// One for each thread: a second thread may begin to fork before the first one has finished.
thread_local ForkHold s_forkHold(s_hForkLock);

} // namespace

void BeforeFork() {
    s_forkHold.Before();
    for (const ForkRow *pRow : kRows)
        pRow->fnBefore();
}

void AfterForkInParent() {
    for (size_t i = std::size(kRows); i > 0; --i)
        kRows[i - 1]->fnInParent();
    s_forkHold.InParent();
}

void AfterForkInChild() {
    for (size_t i = std::size(kRows); i > 0; --i)
        kRows[i - 1]->fnInChild();
    (void)s_forkHold.InChild();
}

} // namespace vyx_inter

/* ---- Description */

static constexpr vyx_inter::DescriptionRow kForkRows[] = {VYX_LOCK("Fork", vyx_inter::s_hForkLock)};
VYX_DESCRIBE(fork, kForkRows)
