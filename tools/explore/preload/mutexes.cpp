// Mutexes of every type, conditions, and the locks of streams.
#include "calls.h"

namespace explore {
namespace {

bool IsErrorCheck(const pthread_mutex_t *mutex) {
    return (mutex->__data.__kind & 3) == PTHREAD_MUTEX_ERRORCHECK;
}

// What the platform would refuse at once although the mutex is held: a second lock by its holder.
bool RefusedAtOnce(const Thread *me, const pthread_mutex_t *mutex) {
    return IsErrorCheck(mutex) && OwnerOf(Kind::Mutex, mutex) == me->number;
}

} // namespace

int TakeMutex(Thread *me, pthread_mutex_t *mutex, const Point &point, int64_t deadline) {
    const Real &real = GetReal();
    for (;;) {
        const int status = real.pthread_mutex_trylock(mutex);
        if (status == 0 || status == EOWNERDEAD) {
            SetOwner(Kind::Mutex, mutex, me->number);
            RaceAcquire(me, mutex);
            return status;
        }
        if (status != EBUSY)
            return status;
        if (RefusedAtOnce(me, mutex))
            return EDEADLK;
        if (Block(me, point, deadline) == Wake::TimedOut)
            return ETIMEDOUT;
    }
}

int ReleaseMutex(Thread *me, pthread_mutex_t *mutex) {
    const uint32_t owner = OwnerOf(Kind::Mutex, mutex);
    RaceRelease(me, mutex);
    const int status = GetReal().pthread_mutex_unlock(mutex);
    if (status == 0 && owner != kNobody && owner != me->number)
        NoteMisuse("thread %u unlocks mutex %u, which thread %u holds", me->number,
                   NumberOf(Kind::Mutex, mutex), owner);
    if (status == 0 && mutex->__data.__lock == 0) {
        SetOwner(Kind::Mutex, mutex, kNobody);
        WakeAll(mutex, Wake::Signalled);
    }
    return status;
}

namespace {

int TimedLock(pthread_mutex_t *mutex, clockid_t clock, const timespec *at, const void *site) {
    Thread *me = Enter();
    if (me == nullptr) {
        const timespec limit = ToPlatform(clock, at);
        return GetReal().pthread_mutex_clocklock(mutex, clock, &limit);
    }
    const Point point = {Op::TimedLock, Kind::Mutex, mutex, site, false};
    PassPoint(me, point);
    const int status = Valid(at) ? TakeMutex(me, mutex, point, Deadline(clock, at))
                                 : GetReal().pthread_mutex_clocklock(mutex, clock, at);
    Leave(me);
    return status;
}

// The condition's clock as its attributes set it.
clockid_t ClockOf(const pthread_cond_t *condition) {
    return (condition->__data.__wrefs & 2) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

int WaitFor(Thread *me, pthread_cond_t *condition, pthread_mutex_t *mutex, int64_t deadline,
            const void *site) {
    const Op op = deadline == kNever ? Op::Wait : Op::TimedWait;
    if (me->cancelled) {
        Leave(me);
        CancelPoint(me); // may not return
        (void)Enter();
    }
    PassPoint(me, {op, Kind::Condition, condition, site, false});
    const uint32_t owner = OwnerOf(Kind::Mutex, mutex);
    if (owner != me->number)
        NoteMisuse("thread %u waits for condition %u without holding mutex %u", me->number,
                   NumberOf(Kind::Condition, condition), NumberOf(Kind::Mutex, mutex));
    const int released = ReleaseMutex(me, mutex);
    if (released != 0) {
        Leave(me);
        return released;
    }
    me->mutex = mutex;
    const Wake why = Block(me, {op, Kind::Condition, condition, site, false}, deadline);
    me->mutex = nullptr;
    const int taken = TakeMutex(me, mutex, {Op::Relock, Kind::Mutex, mutex, site, false}, kNever);
    if (why == Wake::Signalled)
        RaceAcquire(me, condition);
    Leave(me);
    if (why == Wake::Cancelled)
        CancelPoint(me);
    if (taken != 0)
        return taken;
    return why == Wake::TimedOut ? ETIMEDOUT : 0;
}

int TimedWait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock, const timespec *at,
              const void *site) {
    Thread *me = Enter();
    if (me == nullptr) {
        const timespec limit = ToPlatform(clock, at);
        return GetReal().pthread_cond_clockwait(condition, mutex, clock, &limit);
    }
    if (!Valid(at)) {
        Leave(me);
        return EINVAL;
    }
    return WaitFor(me, condition, mutex, Deadline(clock, at), site);
}

} // namespace
} // namespace explore

using namespace explore;

EXPLORE_API int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    Thread *me = InUnwinder(EXPLORE_SITE) ? nullptr : Enter();
    if (me == nullptr)
        return GetReal().pthread_mutex_lock(mutex);
    const Point point = {Op::Lock, Kind::Mutex, mutex, EXPLORE_SITE, false};
    PassPoint(me, point);
    const int status = TakeMutex(me, mutex, point, kNever);
    Leave(me);
    return status;
}

EXPLORE_API int pthread_mutex_trylock(pthread_mutex_t *mutex) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_mutex_trylock(mutex);
    PassPoint(me, {Op::TryLock, Kind::Mutex, mutex, EXPLORE_SITE, false});
    const int status = real.pthread_mutex_trylock(mutex);
    if (status == 0 || status == EOWNERDEAD) {
        SetOwner(Kind::Mutex, mutex, me->number);
        RaceAcquire(me, mutex);
    }
    Leave(me);
    return status;
}

EXPLORE_API int pthread_mutex_timedlock(pthread_mutex_t *mutex, const timespec *at) noexcept {
    return TimedLock(mutex, CLOCK_REALTIME, at, EXPLORE_SITE);
}

EXPLORE_API int pthread_mutex_clocklock(pthread_mutex_t *mutex, clockid_t clock,
                                        const timespec *at) noexcept {
    return TimedLock(mutex, clock, at, EXPLORE_SITE);
}

EXPLORE_API int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    Thread *me = InUnwinder(EXPLORE_SITE) ? nullptr : Enter();
    if (me == nullptr)
        return GetReal().pthread_mutex_unlock(mutex);
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Unlock, Kind::Mutex, mutex, site, false});
    const int status = ReleaseMutex(me, mutex);
    PassAfter(me, Op::Unlock, Kind::Mutex, mutex, site);
    Leave(me);
    return status;
}

EXPLORE_API int pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        Forget(Kind::Mutex, mutex);
        Leave(me);
    }
    return GetReal().pthread_mutex_init(mutex, attributes);
}

EXPLORE_API int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        if (OwnerOf(Kind::Mutex, mutex) != kNobody)
            NoteMisuse("thread %u destroys mutex %u, which thread %u holds", me->number,
                       NumberOf(Kind::Mutex, mutex), OwnerOf(Kind::Mutex, mutex));
        else
            Forget(Kind::Mutex, mutex);
        Leave(me);
    }
    return GetReal().pthread_mutex_destroy(mutex);
}

EXPLORE_API int pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_cond_wait(condition, mutex);
    return WaitFor(me, condition, mutex, kNever, EXPLORE_SITE);
}

EXPLORE_API int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                       const timespec *at) {
    return TimedWait(condition, mutex, ClockOf(condition), at, EXPLORE_SITE);
}

EXPLORE_API int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                       const timespec *at) {
    return TimedWait(condition, mutex, clock, at, EXPLORE_SITE);
}

EXPLORE_API int pthread_cond_signal(pthread_cond_t *condition) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_cond_signal(condition);
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Signal, Kind::Condition, condition, site, false});
    RaceRelease(me, condition);
    Thread *waiter = PickWaiter(me, condition, Op::Wait, Op::TimedWait);
    if (waiter != nullptr)
        WakeThread(waiter, Wake::Signalled);
    PassAfter(me, Op::Signal, Kind::Condition, condition, site);
    Leave(me);
    return 0;
}

EXPLORE_API int pthread_cond_broadcast(pthread_cond_t *condition) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_cond_broadcast(condition);
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Broadcast, Kind::Condition, condition, site, false});
    RaceRelease(me, condition);
    WakeAll(condition, Wake::Signalled);
    PassAfter(me, Op::Broadcast, Kind::Condition, condition, site);
    Leave(me);
    return 0;
}

EXPLORE_API int pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        Forget(Kind::Condition, condition);
        Leave(me);
    }
    return GetReal().pthread_cond_init(condition, attributes);
}

EXPLORE_API int pthread_cond_destroy(pthread_cond_t *condition) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        const Thread *waiter = PickWaiter(me, condition, Op::Wait, Op::TimedWait);
        if (waiter != nullptr)
            NoteMisuse("thread %u destroys condition %u, for which thread %u waits", me->number,
                       NumberOf(Kind::Condition, condition), waiter->number);
        else
            Forget(Kind::Condition, condition);
        Leave(me);
    }
    return GetReal().pthread_cond_destroy(condition);
}

EXPLORE_API void flockfile(FILE *stream) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr) {
        real.flockfile(stream);
        return;
    }
    while (real.ftrylockfile(stream) != 0)
        (void)Block(me, {Op::Lock, Kind::Stream, stream, EXPLORE_SITE, false}, kNever);
    Leave(me);
}

EXPLORE_API void funlockfile(FILE *stream) noexcept {
    GetReal().funlockfile(stream);
    Thread *me = Enter();
    if (me != nullptr) {
        WakeAll(stream, Wake::Signalled);
        Leave(me);
    }
}
