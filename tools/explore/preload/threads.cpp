// Threads: start, end, join, cancellation; once.
#include <csignal>
#include <cstring>

#include "calls.h"

namespace explore {
namespace {

pthread_key_t s_end_key;            // its destructor is the last that is seen of a thread
constexpr uint32_t kExitRounds = 4; // the C library runs the destructors of keys that often

void AtEnd(void *record) {
    auto *me = static_cast<Thread *>(record);
    if (!Active() || t_self != me)
        return;
    if (++me->exit_rounds < kExitRounds)
        (void)pthread_setspecific(s_end_key, me); // the destructors of other keys come first
    else
        FinishThread(me);
}

void *RunThread(void *record) {
    auto *me = static_cast<Thread *>(record);
    ThreadReady(me);
    (void)pthread_setspecific(s_end_key, me);
    Thread *entered = Enter();
    if (entered != nullptr) {
        RaceStack();
        PassPoint(me, {Op::Start, Kind::Thread, me, reinterpret_cast<const void *>(me->start), false});
        Leave(me);
    }
    return me->start(me->argument);
}

} // namespace

// Before any thread that is explored.
void PrepareThreads() {
    (void)pthread_key_create(&s_end_key, AtEnd);
}

void PrepareMainThread() {
    (void)pthread_setspecific(s_end_key, t_self);
}

void CancelPoint(Thread *me) {
    if (me != nullptr && me->cancelled)
        pthread_testcancel();
}

namespace {

// Waits for the end of a thread. Inside. 0 or ETIMEDOUT.
int AwaitEnd(Thread *me, Thread *target, Op op, int64_t deadline, const void *site) {
    PassPoint(me, {op, Kind::Thread, target, site, false});
    while (target->state != State::Finished) {
        const Wake why = Block(me, {op, Kind::Thread, target, site, false}, deadline);
        if (why == Wake::TimedOut)
            return ETIMEDOUT;
        if (why == Wake::Cancelled) {
            Leave(me);
            CancelPoint(me);
            if (Enter() == nullptr)
                return 0;
        }
    }
    RaceAcquire(me, target);
    return 0;
}

int Join(pthread_t thread, void **result, int64_t deadline, const void *site) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_join(thread, result);
    Thread *target = FindThread(thread);
    if (target == nullptr || target == me || target->detached) {
        Leave(me);
        return real.pthread_join(thread, result);
    }
    const int status = AwaitEnd(me, target, deadline == kNever ? Op::Join : Op::TimedWait, deadline, site);
    if (status == 0)
        target->joined = true;
    Leave(me);
    return status == 0 ? real.pthread_join(thread, result) : status;
}

} // namespace
} // namespace explore

using namespace explore;

EXPLORE_API int pthread_create(pthread_t *handle, const pthread_attr_t *attributes, void *(*start)(void *),
                               void *argument) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_create(handle, attributes, start, argument);
    if (FailNow(me, FailThread)) {
        Leave(me);
        return EAGAIN;
    }
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Create, Kind::None, nullptr, site, false});
    Thread *thread = NewThread();
    if (thread == nullptr)
        Stop(Fault::Endless, site, "more than %u threads in one schedule", kMaxThreads - 1);
    thread->start = start;
    thread->argument = argument;
    int detached = PTHREAD_CREATE_JOINABLE;
    if (attributes != nullptr)
        (void)pthread_attr_getdetachstate(attributes, &detached);
    thread->detached = detached == PTHREAD_CREATE_DETACHED;
    RaceCreate(me, thread);
    const int status = real.pthread_create(handle, attributes, RunThread, thread);
    if (status == 0) {
        thread->handle = *handle;
        PassAfter(me, Op::Create, Kind::Thread, thread, site);
    } else {
        thread->state = State::Finished;
        thread->joined = true;
        g.alive_count--; // the newest is the last
    }
    Leave(me);
    return status;
}

EXPLORE_API int pthread_join(pthread_t thread, void **result) {
    return Join(thread, result, kNever, EXPLORE_SITE);
}

EXPLORE_API int pthread_timedjoin_np(pthread_t thread, void **result, const timespec *at) {
    return t_self == nullptr || !Active() ? GetReal().pthread_timedjoin_np(thread, result, at)
                                          : Join(thread, result, Deadline(CLOCK_REALTIME, at), EXPLORE_SITE);
}

EXPLORE_API int pthread_clockjoin_np(pthread_t thread, void **result, clockid_t clock, const timespec *at) {
    return t_self == nullptr || !Active() ? GetReal().pthread_clockjoin_np(thread, result, clock, at)
                                          : Join(thread, result, Deadline(clock, at), EXPLORE_SITE);
}

EXPLORE_API int pthread_tryjoin_np(pthread_t thread, void **result) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_tryjoin_np(thread, result);
    Thread *target = FindThread(thread);
    PassPoint(me, {Op::Join, Kind::Thread, target, EXPLORE_SITE, false});
    const bool ended = target == nullptr || target->state == State::Finished;
    if (ended && target != nullptr) {
        target->joined = true;
        RaceAcquire(me, target);
    }
    Leave(me);
    return ended ? real.pthread_join(thread, result) : EBUSY;
}

EXPLORE_API int pthread_detach(pthread_t handle) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        Thread *target = FindThread(handle);
        PassPoint(me, {Op::Detach, Kind::Thread, target, EXPLORE_SITE, false});
        if (target != nullptr)
            target->detached = true;
        Leave(me);
    }
    return GetReal().pthread_detach(handle);
}

EXPLORE_API int pthread_cancel(pthread_t handle) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_cancel(handle);
    Thread *target = FindThread(handle);
    PassPoint(me, {Op::Cancel, Kind::Thread, target, EXPLORE_SITE, false});
    const int status = real.pthread_cancel(handle);
    if (status == 0 && target != nullptr) {
        target->cancelled = true;
        if (target->state == State::Blocked && EndsByCancel(target->op))
            WakeThread(target, Wake::Cancelled);
    }
    Leave(me);
    return status;
}

EXPLORE_API int pthread_once(pthread_once_t *control, void (*routine)()) {
    const Real &real = GetReal();
    constexpr int kDone = 2; // as the C library marks it
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_once(control, routine);
    const Point point = {Op::Once, Kind::Once, control, EXPLORE_SITE, false};
    PassPoint(me, point);
    while ((*control & kDone) == 0 && OwnerOf(Kind::Once, control) != kNobody)
        (void)Block(me, point, kNever);
    if ((*control & kDone) != 0) {
        RaceAcquire(me, control);
        Leave(me);
        return 0;
    }
    SetOwner(Kind::Once, control, me->number);
    Leave(me);
    const int status = real.pthread_once(control, routine);
    if (Enter() != nullptr) {
        RaceRelease(me, control);
        SetOwner(Kind::Once, control, kNobody);
        WakeAll(control, Wake::Signalled);
        PassAfter(me, Op::Once, Kind::Once, control, point.site);
        Leave(me);
    }
    return status;
}
