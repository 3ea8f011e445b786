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

} // namespace

namespace vyx_inter {

const char g_cForkHandlers = 0;

void ForkHold::Before() {
    const Deadline last = Deadline::In(kForkPatience, Clock::Monotonic);
    Deadline soon = Deadline::In(kForkPatienceUnknown, Clock::Monotonic);
    for (;;) {
        m_bOwn = false;
        m_bHeld = m_lock.TryForFork();
        if (m_bHeld || last.HasPassed())
            return;
        switch (HolderOf(m_lock.m_hMutex)) {
        case Holder::Self:
            m_bOwn = true;
            return;
        case Holder::Other:
            soon = Deadline::In(kForkPatienceUnknown, Clock::Monotonic);
            break;
        case Holder::Unknown:
            if (soon.HasPassed())
                return;
        }
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
