// Locks for readers and writers, spin locks, barriers, and futexes that are called directly.
#include <cstdarg>
#include <linux/futex.h>
#include <sys/syscall.h>

#include "calls.h"

namespace explore {
namespace {

using TryLock = int (*)(pthread_rwlock_t *);

int LockRw(pthread_rwlock_t *lock, TryLock try_lock, Op op, int64_t deadline, const void *site, Thread *me) {
    const Point point = {op, Kind::RwLock, lock, site, false};
    PassPoint(me, point);
    int status = 0;
    while ((status = try_lock(lock)) == EBUSY) {
        if (op == Op::WriteLock && OwnerOf(Kind::RwLock, lock) == me->number) {
            status = EDEADLK;
            break;
        }
        if (Block(me, point, deadline) == Wake::TimedOut) {
            status = ETIMEDOUT;
            break;
        }
    }
    if (status == 0) {
        if (op == Op::WriteLock)
            SetOwner(Kind::RwLock, lock, me->number);
        RaceAcquire(me, lock);
    }
    Leave(me);
    return status;
}

struct Round { // of a barrier
    const void *barrier;
    uint32_t needed;
    uint32_t present;
    uint32_t number;
};
constexpr uint32_t kMaxBarriers = 256;
Round s_barriers[kMaxBarriers];

Round *FindBarrier(const void *barrier) {
    for (Round &round : s_barriers)
        if (round.barrier == barrier)
            return &round;
    return nullptr;
}

// A futex wait. Inside. 0 or the error.
int WaitFutex(Thread *me, const uint32_t *word, uint32_t value, int64_t deadline, const void *site) {
    const Point point = {Op::FutexWait, Kind::Futex, word, site, false};
    PassPoint(me, point);
    if (__atomic_load_n(word, __ATOMIC_SEQ_CST) != value)
        return EAGAIN;
    const Wake why = Block(me, point, deadline);
    RaceAcquire(me, word);
    return why == Wake::TimedOut ? ETIMEDOUT : 0;
}

int WakeFutex(Thread *me, const uint32_t *word, int limit, const void *site) {
    PassPoint(me, {Op::FutexWake, Kind::Futex, word, site, false});
    RaceRelease(me, word);
    int woken = 0;
    for (; woken < limit; woken++) {
        Thread *waiter = PickWaiter(me, word, Op::FutexWait, Op::FutexWait);
        if (waiter == nullptr)
            break;
        WakeThread(waiter, Wake::Signalled);
    }
    PassAfter(me, Op::FutexWake, Kind::Futex, word, site);
    return woken;
}

// Those that wait for `word` beyond the first `limit` wait for `other` from now on.
int RequeueFutex(Thread *me, const uint32_t *word, int limit, const uint32_t *other, int moved_limit,
                 const void *site) {
    int count = WakeFutex(me, word, limit, site);
    for (int moved = 0; moved < moved_limit; moved++, count++) {
        Thread *waiter = PickWaiter(me, word, Op::FutexWait, Op::FutexWait);
        if (waiter == nullptr)
            break;
        waiter->object = other;
        waiter->object_number = NumberOf(Kind::Futex, other);
    }
    return count;
}

struct FutexCall {
    const uint32_t *word;
    int op;
    uint32_t value;
    const timespec *time; // or a number
    const uint32_t *other;
    uint32_t other_value;
};

// True if the call is one that is known here; its result is then in `result`, an error below 0.
bool Futex(Thread *me, const FutexCall &call, const void *site, long *result) {
    const int command = call.op & FUTEX_CMD_MASK;
    const clockid_t clock = (call.op & FUTEX_CLOCK_REALTIME) != 0 ? CLOCK_REALTIME : CLOCK_MONOTONIC;
    const auto number = static_cast<int>(reinterpret_cast<intptr_t>(call.time));
    switch (command) {
    case FUTEX_WAIT:
        *result = -WaitFutex(me, call.word, call.value, After(call.time), site);
        return true;
    case FUTEX_WAIT_BITSET:
        *result = -WaitFutex(me, call.word, call.value, Deadline(clock, call.time), site);
        return true;
    case FUTEX_WAKE:
    case FUTEX_WAKE_BITSET:
        *result = WakeFutex(me, call.word, static_cast<int>(call.value), site);
        return true;
    case FUTEX_REQUEUE:
        *result = RequeueFutex(me, call.word, static_cast<int>(call.value), call.other, number, site);
        return true;
    case FUTEX_CMP_REQUEUE:
        if (__atomic_load_n(call.word, __ATOMIC_SEQ_CST) != call.other_value)
            *result = -EAGAIN;
        else
            *result = RequeueFutex(me, call.word, static_cast<int>(call.value), call.other, number, site);
        return true;
    default:
        return false;
    }
}

} // namespace
} // namespace explore

using namespace explore;

EXPLORE_API int pthread_rwlock_rdlock(pthread_rwlock_t *lock) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    return me == nullptr
               ? real.pthread_rwlock_rdlock(lock)
               : LockRw(lock, real.pthread_rwlock_tryrdlock, Op::ReadLock, kNever, EXPLORE_SITE, me);
}

EXPLORE_API int pthread_rwlock_wrlock(pthread_rwlock_t *lock) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    return me == nullptr
               ? real.pthread_rwlock_wrlock(lock)
               : LockRw(lock, real.pthread_rwlock_trywrlock, Op::WriteLock, kNever, EXPLORE_SITE, me);
}

EXPLORE_API int pthread_rwlock_timedrdlock(pthread_rwlock_t *lock, const timespec *at) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me != nullptr)
        return LockRw(lock, real.pthread_rwlock_tryrdlock, Op::ReadLock, Deadline(CLOCK_REALTIME, at),
                      EXPLORE_SITE, me);
    const timespec limit = ToPlatform(CLOCK_REALTIME, at);
    return real.pthread_rwlock_timedrdlock(lock, &limit);
}

EXPLORE_API int pthread_rwlock_timedwrlock(pthread_rwlock_t *lock, const timespec *at) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me != nullptr)
        return LockRw(lock, real.pthread_rwlock_trywrlock, Op::WriteLock, Deadline(CLOCK_REALTIME, at),
                      EXPLORE_SITE, me);
    const timespec limit = ToPlatform(CLOCK_REALTIME, at);
    return real.pthread_rwlock_timedwrlock(lock, &limit);
}

EXPLORE_API int pthread_rwlock_tryrdlock(pthread_rwlock_t *lock) noexcept {
    Thread *me = Enter();
    if (me != nullptr)
        PassPoint(me, {Op::TryLock, Kind::RwLock, lock, EXPLORE_SITE, false});
    const int status = GetReal().pthread_rwlock_tryrdlock(lock);
    if (me != nullptr) {
        if (status == 0)
            RaceAcquire(me, lock);
        Leave(me);
    }
    return status;
}

EXPLORE_API int pthread_rwlock_trywrlock(pthread_rwlock_t *lock) noexcept {
    Thread *me = Enter();
    if (me != nullptr)
        PassPoint(me, {Op::TryLock, Kind::RwLock, lock, EXPLORE_SITE, false});
    const int status = GetReal().pthread_rwlock_trywrlock(lock);
    if (me != nullptr) {
        if (status == 0) {
            SetOwner(Kind::RwLock, lock, me->number);
            RaceAcquire(me, lock);
        }
        Leave(me);
    }
    return status;
}

EXPLORE_API int pthread_rwlock_unlock(pthread_rwlock_t *lock) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_rwlock_unlock(lock);
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Unlock, Kind::RwLock, lock, site, false});
    RaceRelease(me, lock);
    const int status = GetReal().pthread_rwlock_unlock(lock);
    SetOwner(Kind::RwLock, lock, kNobody);
    WakeAll(lock, Wake::Signalled);
    PassAfter(me, Op::Unlock, Kind::RwLock, lock, site);
    Leave(me);
    return status;
}

EXPLORE_API int pthread_spin_lock(pthread_spinlock_t *lock) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.pthread_spin_lock(lock);
    const void *object = const_cast<const int *>(lock);
    const Point point = {Op::Lock, Kind::SpinLock, object, EXPLORE_SITE, false};
    PassPoint(me, point);
    while (real.pthread_spin_trylock(lock) == EBUSY)
        (void)Block(me, point, kNever);
    RaceAcquire(me, object);
    Leave(me);
    return 0;
}

EXPLORE_API int pthread_spin_unlock(pthread_spinlock_t *lock) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_spin_unlock(lock);
    const void *object = const_cast<const int *>(lock);
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Unlock, Kind::SpinLock, object, site, false});
    RaceRelease(me, object);
    const int status = GetReal().pthread_spin_unlock(lock);
    WakeAll(object, Wake::Signalled);
    PassAfter(me, Op::Unlock, Kind::SpinLock, object, site);
    Leave(me);
    return status;
}

EXPLORE_API int pthread_barrier_init(pthread_barrier_t *barrier, const pthread_barrierattr_t *attributes,
                                     unsigned count) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        Round *round = FindBarrier(barrier);
        round = round != nullptr ? round : FindBarrier(nullptr);
        if (round == nullptr)
            Stop(Fault::Endless, EXPLORE_SITE, "more than %u barriers", kMaxBarriers);
        *round = {barrier, count, 0, 0};
        Forget(Kind::Barrier, barrier);
        Leave(me);
    }
    return GetReal().pthread_barrier_init(barrier, attributes, count);
}

EXPLORE_API int pthread_barrier_destroy(pthread_barrier_t *barrier) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        Round *round = FindBarrier(barrier);
        if (round != nullptr)
            round->barrier = nullptr;
        Leave(me);
    }
    return GetReal().pthread_barrier_destroy(barrier);
}

EXPLORE_API int pthread_barrier_wait(pthread_barrier_t *barrier) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pthread_barrier_wait(barrier);
    const Point point = {Op::Barrier, Kind::Barrier, barrier, EXPLORE_SITE, false};
    PassPoint(me, point);
    Round *round = FindBarrier(barrier);
    int status = 0;
    RaceRelease(me, barrier);
    if (round != nullptr && ++round->present >= round->needed) {
        round->present = 0;
        round->number++;
        WakeAll(barrier, Wake::Signalled);
        status = PTHREAD_BARRIER_SERIAL_THREAD;
    } else if (round != nullptr) {
        const uint32_t number = round->number;
        while (round->number == number)
            (void)Block(me, point, kNever);
    }
    RaceAcquire(me, barrier);
    Leave(me);
    return status;
}

EXPLORE_API long syscall(long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    long argument[6];
    for (long &one : argument)
        one = va_arg(arguments, long);
    va_end(arguments);
    const Real &real = GetReal();
    Thread *me = number == SYS_futex ? Enter() : nullptr;
    if (me != nullptr) {
        const FutexCall call = {reinterpret_cast<const uint32_t *>(argument[0]),
                                static_cast<int>(argument[1]),
                                static_cast<uint32_t>(argument[2]),
                                reinterpret_cast<const timespec *>(argument[3]),
                                reinterpret_cast<const uint32_t *>(argument[4]),
                                static_cast<uint32_t>(argument[5])};
        long result = 0;
        const bool known = Futex(me, call, EXPLORE_SITE, &result);
        Leave(me);
        if (known) {
            if (result >= 0)
                return result;
            errno = static_cast<int>(-result);
            return -1;
        }
    }
    return real.syscall(number, argument[0], argument[1], argument[2], argument[3], argument[4], argument[5]);
}
