// What a fork does to the library's state. The table of all rows is in frame/fork.cpp.
#ifndef VYX_BASE_FORK_H
#define VYX_BASE_FORK_H

#include "base/lock.h"
#include "base/platform.h"

namespace vyx_inter {

// One subsystem's part. The thread that forks calls fnBefore; then fnInParent in the parent and fnInChild in the child,
// where it is the only thread. No function may be null.
struct ForkRow {
    void (*fnBefore)();   // takes the locks under which the state changes, so that the child finds it whole
    void (*fnInParent)(); // gives them back
    void (*fnInChild)();  // makes them anew, and forgets what belongs to the parent's threads
};

// One lock across a fork.
//
// Whoever holds it is waited for, as nobody holds a lock of the library for long. Two things would make that wait last
// for ever: a fork in a signal handler that interrupted the holder, and a holder that waits for the forking thread. The
// first is recognised where the platform tells the holder; where it does not, the wait is short.
//
// The end of the process may come in a signal handler as well; there the log service uses it for the same.
class ForkHold {
  public:
    explicit constexpr ForkHold(Lock &lock) : m_lock(lock) {}
    void Before();
    void InParent();
    // Makes the lock anew. Result: false if the thread was interrupted while it held the lock: then it goes on with what
    // it was doing when the signal handler returns, and nothing is to be changed.
    bool InChild();
    // After Before: whether what the lock guards is whole, since nobody was just changing it.
    [[nodiscard]] bool IsWhole() const { return m_bWhole; }
    // After Before: whether another thread has the lock all the time.
    [[nodiscard]] bool IsOthers() const { return m_bOthers; }

  private:
    Lock &m_lock;
    bool m_bHeld = false;
    bool m_bWhole = false;
    bool m_bOthers = false;
    bool m_bOwn = false; // the calling thread was interrupted while it held the lock
};

// Milliseconds for which a fork waits for a lock: in all; in all for an innermost one; while its holder is AtEdge; while the
// platform does not tell the holder. A holder that is AtEdge for longer is the calling thread, interrupted by a signal, or
// gets no processor.
//
// For an innermost lock the fork sleeps in between, since its holder cannot be waiting for the forking thread, and takes part
// in the race for the lock each time it is given back. It wakes up by itself as well: where threads take the lock all the
// time, on a busy machine, that needs a tenth of the time of a sleep without end, and looks alone may fail for ten seconds.
constexpr uint32_t kForkPatience = 1000;
constexpr uint32_t kForkPatienceInnermost = 10000;
constexpr uint32_t kForkSleep = 1;
constexpr uint32_t kForkPatienceAtEdge = 1;
constexpr uint32_t kForkPatienceUnknown = 20;
// A fork also looks at least so often. On a busy machine a long time may pass between two looks: both may meet the lock
// while it is being passed on, or while its holder has not run. After so many looks the other threads have run, too.
constexpr uint32_t kForkLeastLooks = 200;

// The order is that of the locks' ranks. Called in a fork, by the handlers that the library sets up when it is loaded.
void BeforeFork();
void AfterForkInParent();
void AfterForkInChild();

} // namespace vyx_inter

#endif
