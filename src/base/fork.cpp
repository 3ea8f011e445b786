// Sets up the handlers of a fork, and holds locks across it.
#include "base/fork.h"

#include <sched.h>

#include "base/first_init.h"

namespace {

// Without memory for the handlers, forked children may find the library's locks taken.
struct Handlers {
    Handlers() {
        (void)pthread_atfork(vyx_inter::BeforeFork, vyx_inter::AfterForkInParent,
                             vyx_inter::AfterForkInChild);
    }
};
VYX_FIRST_INIT const Handlers s_handlers;

constexpr int64_t PatienceMicros_Local(vyx_inter::Holder eHolder) {
    const bool bAtEdge = eHolder == vyx_inter::Holder::AtEdge;
    return (bAtEdge ? vyx_inter::kForkPatienceAtEdge : vyx_inter::kForkPatienceUnknown) *
           vyx_inter::kMicrosPerMilli;
}

} // namespace

namespace vyx_inter {

const char g_cForkHandlers = 0;

void ForkHold::Before() {
    const bool bInnermost = IsInnermost(m_lock.m_eRank);
    const Deadline last = Deadline::In(bInnermost ? kForkPatienceInnermost : kForkPatience, Clock::Monotonic);
    int64_t iUntoldSince = Now(Clock::Monotonic);
    bool bTaken = false;
    for (uint32_t nLooks = 1, nUntold = 1;; ++nLooks, ++nUntold) {
        m_bHeld = bTaken || m_lock.TryForFork();
        const Holder eHolder = m_bHeld ? Holder::Other : HolderOf(m_lock.m_hMutex);
        m_bOwn = eHolder == Holder::Self;
        m_bOthers = !m_bHeld && eHolder == Holder::Other;
        m_bWhole = m_bHeld || eHolder == Holder::AtEdge;
        if (m_bHeld || m_bOwn || (last.HasPassed() && nLooks >= kForkLeastLooks))
            return;
        const int64_t iNow = Now(Clock::Monotonic);
        if (eHolder == Holder::Other) {
            iUntoldSince = iNow;
            nUntold = 0;
        }
        if (iNow - iUntoldSince > PatienceMicros_Local(eHolder) && nUntold >= kForkLeastLooks)
            return;
        if (bInnermost && eHolder == Holder::Other)
            bTaken = m_lock.AwaitForFork(Deadline::In(kForkSleep, Clock::Monotonic));
        else
            (void)sched_yield();
    }
}

void ForkHold::InParent() {
    if (m_bHeld)
        m_lock.ReleaseAfterFork();
}

bool ForkHold::InChild() {
    if (m_bOwn)
        return false;
    m_lock.Renew();
    return true;
}

} // namespace vyx_inter
