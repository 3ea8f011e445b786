// The timed-wait service.
//
// Waiters keep their time themselves (sem_wait.cpp, cond.cpp), so the service's thread has work only where the platform
// has no bounded wait for a semaphore; elsewhere it sleeps from start to stop.
#include "sync/timed_wait.h"

#include <atomic>
#include <vyx/thread.h>

#include "base/platform.h"
#include "sync/cond_wait.h"
#include "sync/sem_wait.h"
#include "thread/service_thread.h"

namespace {

constexpr uint32_t kStackSize = 262144; // bytes

std::atomic<int32_t> s_bBreakTimer{1};
VYX_THREAD_T s_hThreadId VYX_GUARDED_BY(s_vyxmutex) = VYX_INVALID_THREAD;

} // namespace

const vyx_inter::ForkRow g_struTimedWaitForkRow = {
    [] {},
    [] {},
    []() VYX_UNCHECKED { // the only thread
        s_bBreakTimer.store(1);
        s_hThreadId = VYX_INVALID_THREAD;
    },
};

int32_t VYX_InitTimeWait_Inter(void) {
    s_bBreakTimer.store(0);
    s_hThreadId = VYX_StartServiceThread_Inter(timer_svc, nullptr, kStackSize);
    if (s_hThreadId == VYX_INVALID_THREAD)
        return VYX_ERROR;
    VYX_SemWaitsStart_Inter();
    VYX_CondWaitsStart_Inter();
    return VYX_OK;
}

int32_t VYX_FiniTimedWait_Inter(void) {
    s_bBreakTimer.store(1);
    VYX_SemWaitsStop_Inter();
    VYX_CondWaitsStop_Inter();
    (void)VYX_Thread_Wait(s_hThreadId); // invalid, hence not waited for, in a forked child
    s_hThreadId = VYX_INVALID_THREAD;
    return VYX_OK;
}

uint32_t VYX_TimedWaitPending_Inter(void) {
    return VYX_SemWaitsPending_Inter() + VYX_CondWaitsPending_Inter();
}

void *timer_svc(void * /*pIgnored*/) {
    VYX_NameThread_Inter("timer_svc");
    VYX_SemWaitsServe_Inter(s_bBreakTimer);
    return nullptr;
}
