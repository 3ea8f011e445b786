// The threads of C11, which the C library makes of its own insides rather than of the calls that can be stood in for.
// Its objects are laid out as those of POSIX.
#include <cerrno>
#include <pthread.h>
#include <threads.h>

#include "real.h"
#include "scheduler.h"

namespace {

static_assert(sizeof(mtx_t) == sizeof(pthread_mutex_t) && sizeof(cnd_t) == sizeof(pthread_cond_t));

pthread_mutex_t *Mutex(mtx_t *mutex) {
    return reinterpret_cast<pthread_mutex_t *>(mutex);
}
pthread_cond_t *Condition(cnd_t *condition) {
    return reinterpret_cast<pthread_cond_t *>(condition);
}

int Result(int status) {
    switch (status) {
    case 0:
        return thrd_success;
    case ENOMEM:
        return thrd_nomem;
    case ETIMEDOUT:
        return thrd_timedout;
    case EBUSY:
        return thrd_busy;
    default:
        return thrd_error;
    }
}

} // namespace

// The routine's result fits: its caller takes it for a pointer's size, and thrd_join takes an int from that.
EXPLORE_API int thrd_create(thrd_t *thread, thrd_start_t routine, void *argument) {
    using Routine = void *(*)(void *);
    const auto start = reinterpret_cast<Routine>(reinterpret_cast<void *>(routine));
    return Result(pthread_create(thread, nullptr, start, argument));
}

EXPLORE_API int thrd_join(thrd_t thread, int *result) {
    void *value = nullptr;
    const int status = pthread_join(thread, &value);
    if (status == 0 && result != nullptr)
        *result = static_cast<int>(reinterpret_cast<intptr_t>(value));
    return Result(status);
}

EXPLORE_API int thrd_detach(thrd_t thread) {
    return Result(pthread_detach(thread));
}
EXPLORE_API void thrd_yield() {
    (void)sched_yield();
}

EXPLORE_API int thrd_sleep(const timespec *span, timespec *rest) {
    const int status = clock_nanosleep(CLOCK_REALTIME, 0, span, rest);
    return status == 0 ? 0 : status == EINTR ? -1 : -2;
}

EXPLORE_API int mtx_lock(mtx_t *mutex) {
    return Result(pthread_mutex_lock(Mutex(mutex)));
}
EXPLORE_API int mtx_trylock(mtx_t *mutex) {
    return Result(pthread_mutex_trylock(Mutex(mutex)));
}
EXPLORE_API int mtx_unlock(mtx_t *mutex) {
    return Result(pthread_mutex_unlock(Mutex(mutex)));
}
EXPLORE_API int mtx_timedlock(mtx_t *mutex, const timespec *at) {
    return Result(pthread_mutex_timedlock(Mutex(mutex), at));
}
EXPLORE_API void mtx_destroy(mtx_t *mutex) {
    (void)pthread_mutex_destroy(Mutex(mutex));
}

EXPLORE_API int cnd_wait(cnd_t *condition, mtx_t *mutex) {
    return Result(pthread_cond_wait(Condition(condition), Mutex(mutex)));
}
EXPLORE_API int cnd_timedwait(cnd_t *condition, mtx_t *mutex, const timespec *at) {
    return Result(pthread_cond_timedwait(Condition(condition), Mutex(mutex), at));
}
EXPLORE_API int cnd_signal(cnd_t *condition) {
    return Result(pthread_cond_signal(Condition(condition)));
}
EXPLORE_API int cnd_broadcast(cnd_t *condition) {
    return Result(pthread_cond_broadcast(Condition(condition)));
}
EXPLORE_API void cnd_destroy(cnd_t *condition) {
    (void)pthread_cond_destroy(Condition(condition));
}

EXPLORE_API void call_once(once_flag *flag, void (*routine)()) {
    static_assert(sizeof(once_flag) == sizeof(pthread_once_t));
    (void)pthread_once(reinterpret_cast<pthread_once_t *>(flag), routine);
}
