// The C library's own functions behind those that this library stands in for.
#ifndef VYX_EXPLORE_REAL_H_
#define VYX_EXPLORE_REAL_H_

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define EXPLORE_API extern "C" __attribute__((visibility("default")))

// clang-format off
#define EXPLORE_REAL(X) \
    X(pthread_create) X(pthread_join) X(pthread_tryjoin_np) X(pthread_timedjoin_np) X(pthread_clockjoin_np) \
    X(pthread_detach) X(pthread_cancel) X(pthread_once) \
    X(pthread_mutex_lock) X(pthread_mutex_trylock) X(pthread_mutex_timedlock) X(pthread_mutex_clocklock) \
    X(pthread_mutex_unlock) X(pthread_mutex_init) X(pthread_mutex_destroy) \
    X(pthread_cond_wait) X(pthread_cond_timedwait) X(pthread_cond_clockwait) X(pthread_cond_signal) \
    X(pthread_cond_broadcast) X(pthread_cond_init) X(pthread_cond_destroy) \
    X(pthread_rwlock_rdlock) X(pthread_rwlock_tryrdlock) X(pthread_rwlock_timedrdlock) X(pthread_rwlock_wrlock) \
    X(pthread_rwlock_trywrlock) X(pthread_rwlock_timedwrlock) X(pthread_rwlock_unlock) X(pthread_rwlock_destroy) \
    X(pthread_barrier_init) X(pthread_barrier_wait) X(pthread_barrier_destroy) \
    X(pthread_spin_lock) X(pthread_spin_trylock) X(pthread_spin_unlock) \
    X(sem_init) X(sem_destroy) X(sem_wait) X(sem_trywait) X(sem_timedwait) X(sem_clockwait) X(sem_post) \
    X(sem_open) X(sem_close) X(sem_unlink) \
    X(clock_gettime) X(gettimeofday) X(time) X(timespec_get) X(nanosleep) X(clock_nanosleep) X(usleep) X(sleep) \
    X(sched_yield) X(fork) X(waitpid) X(wait) X(wait4) X(waitid) \
    X(flockfile) X(ftrylockfile) X(funlockfile) \
    X(read) X(readv) X(write) X(writev) X(close) X(pipe) X(pipe2) X(dup) X(dup2) X(dup3) X(eventfd) \
    X(socket) X(socketpair) X(connect) X(accept) X(accept4) X(shutdown) X(recv) X(recvfrom) X(recvmsg) X(send) \
    X(sendto) X(sendmsg) X(poll) X(ppoll) X(select) X(pselect) X(epoll_wait) X(epoll_pwait) X(syscall)
// clang-format on

namespace explore {

struct Real {
#define EXPLORE_FIELD(name) decltype(&::name) name;
    EXPLORE_REAL(EXPLORE_FIELD)
#undef EXPLORE_FIELD
};

// Ready from the first call on, which may come before any constructor.
const Real &GetReal();

} // namespace explore

#endif
