// Lets threads in one at a time, so that none is left behind by those that come later.
#ifndef VYX_SYNC_TURNS_H
#define VYX_SYNC_TURNS_H

#include "base/fork.h"
#include "base/list.h"
#include "base/lock.h"

namespace vyx_inter {

// In front of a lock that is held for about as long as it takes to wake a thread, or longer. Such a lock goes to whoever
// asks for it at the right moment: a few threads on the processors take it again and again, and thousands that sleep may
// do so for as long as those go on. Here, too, a thread that finds the turn free takes it at once, which is what keeps
// the processors busy; but whoever has waited for a while is given it next.
class Turns {
  public:
    explicit constexpr Turns(Rank eRank) : m_hLock(eRank, Taken::Spin), m_forkHold(m_hLock) {}
    void Enter();
    void Leave();

    // Around a fork. In the child the turn is free.
    void BeforeFork() { m_forkHold.Before(); }
    void InParent() { m_forkHold.InParent(); }
    void InChild() VYX_UNCHECKED;

  private:
    struct Waiter {
        explicit Waiter(int64_t iNow) : iSince(iNow) {}
        const int64_t iSince; // microseconds of the monotonic clock
        Condition wake;
        bool bGiven = false; // it has the turn, and stands in the list no more
        bool bWoken = false; // to look whether the turn is still free
        Links<Waiter> links = {};
    };
    Lock m_hLock;
    bool m_bTaken VYX_GUARDED_BY(m_hLock) = false;
    List<Waiter, &Waiter::links> m_waiting VYX_GUARDED_BY(m_hLock);
    ForkHold m_forkHold;
};

} // namespace vyx_inter

#endif
