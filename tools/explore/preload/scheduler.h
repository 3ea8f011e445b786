// The scheduler of a process under exploration.
//
// One thread runs at a time: the holder of the baton. At every call that this library stands in for, the holder
// enters the scheduler, the strategy picks who goes on, and if that is another thread the baton goes there and the
// old holder parks. All state below is touched by the holder only, inside the scheduler, and needs no lock.
//
// The objects themselves (mutexes, semaphores, ...) keep their state where it always is: this library works on them
// with the platform's calls that never wait (try, post, unlock), and does the waiting itself. So objects initialised
// in any way work, and a forked child finds them in order.
//
// A thread that stays away from the scheduler for long (it spins, or sits in a call that is not known here) is
// "outside": the process that serves takes the baton from it after kGrace and gives it to a parked thread. When the
// thread comes back it queues as one that can run.
#ifndef VYX_EXPLORE_SCHEDULER_H_
#define VYX_EXPLORE_SCHEDULER_H_

#include <cstdint>
#include <poll.h>
#include <pthread.h>
#include <sys/types.h>

#include "../mapping.h"

namespace explore {

constexpr int64_t kNever = INT64_MAX; // a deadline

enum class State : uint8_t { Unused, Runnable, Blocked, Outside, Finished };
enum class Wake : uint8_t { None, Signalled, TimedOut, Cancelled, Retry };

struct Thread {
    uint32_t number;
    State state;
    Wake wake;   // why a wait ended
    bool inside; // in the scheduler; calls of signal handlers pass through meanwhile
    bool detached;
    bool joined;
    bool cancelled; // pthread_cancel was called for it and it may act on that
    bool yielded;   // the default schedule prefers others once
    Op op;          // what it does or waits for
    Kind kind;
    uint32_t object_number;
    const void *object;
    pthread_mutex_t *mutex; // of a condition wait: to be taken again
    int64_t deadline;       // kNever: none
    uint64_t order;         // of waiting: who waits longest has the smallest
    pollfd *polls;          // descriptors that it waits for
    nfds_t poll_count;
    bool outside_poll;                 // one of them is fed by somebody unknown
    uint32_t moments[Decision::Types]; // see Decision; Late counts with Switch
    uint32_t in_row;                   // points without another thread's
    int64_t priority;                  // pct
    pid_t tid;
    pthread_t handle;
    void *(*start)(void *);
    void *argument;
    const void *site;
    uint32_t record; // its last
    uint32_t exit_rounds;
};

// The runtime's own state.
struct Scheduler {
    Mapping *mapping; // null: not explored
    bool forked;      // a child of the program: no scheduling, but the clock goes on from where it was
    int64_t now;      // nanoseconds since the start of the schedule, virtual time only
    int64_t late;     // how much of Order::lateness is used
    uint32_t count;   // of threads
    uint32_t alive[kMaxThreads];
    uint32_t alive_count;
    uint32_t outside; // threads outside
    bool polls_stale; // a descriptor was used since those who wait for one were last looked at
    bool foreign;     // something happened outside the scheduler: all who wait look again
    pid_t leaving;    // a thread that is about to be gone
    uint64_t waits;
    int64_t blocks; // of the heap, given out and not back
    Thread threads[kMaxThreads];
};
extern Scheduler g;

// This process runs a schedule. On a page that a fork leaves behind empty, so that a child of the program's is out of
// it from its first instruction on.
extern const volatile uint32_t *g_live;
inline bool Active() {
    return *g_live != 0;
}
void SetActive(bool active);

extern thread_local Thread *t_self __attribute__((tls_model("initial-exec")));

// Enters the scheduler: the calling thread's record, or null if its call is to pass through. Waits for the baton if
// it was taken meanwhile.
Thread *Enter();
void Leave(Thread *me);

struct Point {
    Op op;
    Kind kind;
    const void *object;
    const void *site;
    bool after; // the operation has been done
};
// A point: the strategy picks who goes on. Inside.
void PassPoint(Thread *me, const Point &point);
// The same after the operation.
inline void PassAfter(Thread *me, Op op, Kind kind, const void *object, const void *site) {
    PassPoint(me, {op, kind, object, site, true});
}
// Waits until woken or until `deadline`. Inside.
Wake Block(Thread *me, const Point &point, int64_t deadline);
// A wait of this kind ends when the thread is cancelled.
bool EndsByCancel(Op op);
// Those who wait for `object` can run again. Inside.
void WakeAll(const void *object, Wake why);
void WakeThread(Thread *thread, Wake why);
// The one of those who wait for `object` that a signal wakes: the strategy's choice. Null if none waits. Inside.
Thread *PickWaiter(Thread *me, const void *object, Op op, Op other);

// Whether a call that may fail on purpose does so: the strategy's decision (FailCall). Inside or not.
bool FailNow(Thread *me, uint32_t call);

// The number of an object by first use. Inside.
uint32_t NumberOf(Kind kind, const void *object);
// The next object at this address is another one.
void Forget(Kind kind, const void *object);
// Who holds a mutex, by its number; kNobody if nobody does.
void SetOwner(Kind kind, const void *object, uint32_t owner);
uint32_t OwnerOf(Kind kind, const void *object);

Thread *NewThread(); // null if there are too many
Thread *FindThread(pthread_t handle);
void ThreadReady(Thread *me);  // first thing in a new thread: waits for the baton
void FinishThread(Thread *me); // last thing
void StartSchedule(Mapping *mapping);
void EndInChild(); // after a fork, in the child

// Ends the process with a fault. The text may have several lines.
[[noreturn]] void Stop(Fault fault, const void *site, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
// A note in the answer that is a fault only if asked for.
void NoteMisuse(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The strategy (strategy.cpp). `enabled` is sorted by number; `able`: me is among them.
struct Choice {
    Thread *me;
    Thread *const *enabled;
    uint32_t count;
    bool able;
};
void StartStrategy();
void StrategyThread(Thread *thread); // a new one
Thread *StrategyPick(const Choice &choice);
bool StrategyLate(Thread *me); // the next deadline passes now
Thread *StrategyWaiter(Thread *me, Thread *const *waiters, uint32_t count);
bool StrategyFail(Thread *me);
void StrategyYield(Thread *me);

// Records of points (trace.cpp).
void StartTrace();
uint32_t Trace(Thread *me, const Point &point, uint32_t object, uint8_t flags);
void TraceAccess(uint32_t thread, const void *site, bool write); // one side of a race
void TraceNext(Thread *me, uint32_t next, uint8_t flags);

// Descriptors that threads wait for (descriptors.cpp). Inside.
bool PollWaiting(int milliseconds); // true if a waiting thread can run
bool OutsidePossible();             // something unknown may still wake one

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kPointTime = 1000; // nanoseconds that a point takes
constexpr uint32_t kLongRow = 1000;  // points in a row after which the default schedule prefers others

int64_t RealNow(); // the platform's monotonic clock, nanoseconds
int64_t Now();     // the schedule's
void FutexWait(std::atomic<uint32_t> *word, uint32_t value, int64_t nanoseconds);
void FutexWake(std::atomic<uint32_t> *word);

} // namespace explore

#endif
