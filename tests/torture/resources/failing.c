/*
 * Each function here stands before the C library's of the same name, also for the C library's own calls of malloc. It
 * fails if it is its turn, and otherwise passes on. What gives something back (close, sem_unlink, ...) does so and
 * then reports a failure, as Linux does.
 *
 * Of calls with offsets of two sizes only those of 64 bits are here, which the library makes.
 *
 * Never failing: clock_gettime, whose wall clock can be set, and locking, unlocking and signalling what only the
 * library knows. Waits on conditions end early instead of failing, and a try of a mutex finds it taken.
 */
#define _GNU_SOURCE
#include "failing.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <iconv.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

/* ---- Whose turn it is */

enum { MOST_OWNED = 16, MOST_RETRIES = 100 };

static atomic_int s_armed, s_hits, s_error, s_calls[failing_kinds + 1];
static atomic_long s_blocks, s_names;
static atomic_int s_watched; /* somebody asks for s_blocks */
static int s_kind, s_nth, s_on;
static const void *s_owned[MOST_OWNED];
static _Thread_local int s_spared, s_acting;
static int s_reached;         /* by the thread that armed */
static struct rlimit s_limit; /* as it was, while one is lowered */

static int limited(void) {
    return s_kind == fails_mappings ? RLIMIT_AS : s_kind == fails_openings ? RLIMIT_NOFILE : -1;
}

/* One more call of the kind. Result: it fails. */
static int counts(int kind) {
    const int n = atomic_fetch_add(&s_calls[kind], 1) + 1;
    if (kind != s_kind || s_nth == 0 || n < s_nth || (!s_on && n > s_nth))
        return 0;
    /* What the caller may try again for ever succeeds some time. */
    if (kind == fails_interrupts && n >= s_nth + MOST_RETRIES)
        return 0;
    atomic_fetch_add(&s_hits, 1);
    return 1;
}

/* Lowers the limit for this call, or from this call on. */
static void limits(int n) {
    const int which = limited();
    if (which < 0 || s_nth == 0 || n < s_nth)
        return;
    const struct rlimit none = {0, s_limit.rlim_max};
    if (n == s_nth) {
        setrlimit(which, &none);
        atomic_fetch_add(&s_hits, 1);
    } else if (n == s_nth + 1 && !s_on) {
        setrlimit(which, &s_limit);
    }
}

enum fate { passes, fails, interrupted, shortened };
enum { INTERRUPTIBLE = 1, DIVISIBLE = 2 };

static enum fate fate_of(enum failing_kind kind, int error, int traits) {
    if (!atomic_load(&s_armed) || s_spared)
        return passes;
    if (s_acting)
        ++s_reached;
    limits(atomic_fetch_add(&s_calls[failing_kinds], 1) + 1);
    enum fate fate = passes;
    if (counts(kind))
        fate = fails;
    if ((traits & INTERRUPTIBLE) != 0 && counts(fails_interrupts))
        fate = interrupted;
    if ((traits & DIVISIBLE) != 0 && counts(fails_shorts))
        fate = shortened;
    if (fate == fails || fate == interrupted) {
        errno = fate == interrupted ? EINTR : error;
        atomic_store(&s_error, errno);
    }
    return fate;
}

void failing_arm(enum failing_kind kind, int n, int on) {
    s_kind = (int)kind;
    s_nth = n;
    s_on = on;
    s_reached = 0;
    s_acting = 1;
    atomic_store(&s_hits, 0);
    atomic_store(&s_error, 0);
    for (int i = 0; i <= failing_kinds; ++i)
        atomic_store(&s_calls[i], 0);
    if (limited() >= 0)
        getrlimit(limited(), &s_limit);
    atomic_store(&s_armed, 1);
}

void failing_disarm(void) {
    s_acting = 0;
    atomic_store(&s_armed, 0);
    if (limited() >= 0)
        setrlimit(limited(), &s_limit);
    for (int i = 0; i < MOST_OWNED; ++i)
        s_owned[i] = NULL;
}

int failing_calls(int kind) {
    return atomic_load(&s_calls[kind]);
}
int failing_reached(void) {
    return s_reached;
}
int failing_hits(void) {
    return atomic_load(&s_hits);
}
int failing_error(void) {
    return atomic_load(&s_error);
}
long failing_blocks(void) {
    atomic_store(&s_watched, 1);
    return atomic_load(&s_blocks);
}
long failing_sem_names(void) {
    return atomic_load(&s_names);
}

void failing_own(const void *object) {
    for (int i = 0; i < MOST_OWNED; ++i)
        if (s_owned[i] == NULL) {
            s_owned[i] = object;
            return;
        }
}
void failing_spare(void) {
    s_spared = 1;
}
static int is_owned(const void *object) {
    for (int i = 0; i < MOST_OWNED && s_owned[i] != NULL; ++i)
        if (s_owned[i] == object)
            return 1;
    return 0;
}

/* ---- Memory */

extern void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t), *__libc_realloc(void *, size_t);
extern void *__libc_memalign(size_t, size_t);
extern void __libc_free(void *);

/* What pthread_create takes stays with the thread's stack, which the C library keeps for later threads: not counted. */
static _Thread_local int s_creating;
static _Atomic(void *) s_kept[256];

static void *taken(void *block) {
    int place = s_creating && s_watched && block != NULL ? 0 : 256;
    for (void *none = NULL; place < 256 && !atomic_compare_exchange_strong(&s_kept[place], &none, block);
         none = NULL)
        ++place;
    atomic_fetch_add(&s_blocks, block != NULL && place == 256);
    return block;
}
static void given_back(void *block) {
    int place = s_watched && block != NULL ? 0 : 256;
    for (void *kept = block; place < 256 && !atomic_compare_exchange_strong(&s_kept[place], &kept, NULL);
         kept = block)
        ++place;
    atomic_fetch_sub(&s_blocks, block != NULL && place == 256);
}

#define TAKES_MEMORY(call) return fate_of(fails_memory, ENOMEM, 0) == passes ? taken(call) : NULL
void *malloc(size_t size) {
    TAKES_MEMORY(__libc_malloc(size));
}
void *calloc(size_t count, size_t size) {
    TAKES_MEMORY(__libc_calloc(count, size));
}
void *aligned_alloc(size_t alignment, size_t size) {
    TAKES_MEMORY(__libc_memalign(alignment, size));
}
void *realloc(void *old, size_t size) {
    if (fate_of(fails_memory, ENOMEM, 0) != passes)
        return NULL;
    void *const block = __libc_realloc(old, size);
    atomic_fetch_add(&s_blocks, (block != NULL) - (old != NULL && (block != NULL || size == 0)));
    return block;
}
void free(void *block) {
    given_back(block);
    __libc_free(block);
}

/* ---- The others */

/* The next definition of the function that stands here. */
#define NEXT(name)                                                                                           \
    static __typeof__(name) *next;                                                                           \
    if (next == NULL)                                                                                        \
    next = (__typeof__(name) *)(uintptr_t)dlsym(RTLD_NEXT, #name)

/* A call that fails with `result` and the errno. */
#define FAILS_WITH(kind, type, name, parameters, arguments, result, error, traits)                           \
    type name parameters {                                                                                   \
        NEXT(name);                                                                                          \
        return fate_of(fails_##kind, error, traits) == passes ? next arguments : (result);                   \
    }
#define FAILS(kind, name, parameters, arguments, error)                                                      \
    FAILS_WITH(kind, int, name, parameters, arguments, -1, error, 0)
#define FAILS_OR_ENDS(kind, name, parameters, arguments, error)                                              \
    FAILS_WITH(kind, int, name, parameters, arguments, -1, error, INTERRUPTIBLE)
/* One that answers with an error number. */
#define ANSWERS(kind, name, parameters, arguments, error)                                                    \
    FAILS_WITH(kind, int, name, parameters, arguments, error, error, 0)
/* One that fails only for what the program owns, which is its first argument. */
#define FAILS_OWNER_WITH(kind, name, parameters, arguments, object, result, error)                           \
    int name parameters {                                                                                    \
        NEXT(name);                                                                                          \
        const int owned = is_owned((const void *)(uintptr_t)(object));                                       \
        return owned && fate_of(fails_##kind, error, 0) != passes ? (result) : next arguments;               \
    }
#define ANSWERS_OWNER(kind, name, parameters, arguments, object, error)                                      \
    FAILS_OWNER_WITH(kind, name, parameters, arguments, object, error, error)
#define FAILS_OWNER(kind, name, parameters, arguments, object, error)                                        \
    FAILS_OWNER_WITH(kind, name, parameters, arguments, object, -1, error)
/* One that gives something back, which it does in any case. */
#define GIVES_BACK(kind, name, parameters, arguments, error)                                                 \
    int name parameters {                                                                                    \
        NEXT(name);                                                                                          \
        const int result = next arguments;                                                                   \
        return fate_of(fails_##kind, error, 0) == passes ? result : -1;                                      \
    }
/* A transfer of `count` bytes, which may also be short. */
static unsigned s_no_copies; /* a flag that the kernel does not know */
void failing_refuse_copies(void) {
    s_no_copies = 1;
}
#define TRANSFERS(kind, type, name, parameters, arguments, count, error)                                     \
    type name parameters {                                                                                   \
        NEXT(name);                                                                                          \
        switch (fate_of(fails_##kind, error, INTERRUPTIBLE | DIVISIBLE)) {                                   \
        case passes:                                                                                         \
            return next arguments;                                                                           \
        case shortened:                                                                                      \
            count = (count + 1) / 2;                                                                         \
            return next arguments;                                                                           \
        default:                                                                                             \
            return -1;                                                                                       \
        }                                                                                                    \
    }

/* The wall clock, so many seconds ahead of the system's. Waits until a moment of it are cut into slices. */
enum { SLICE_NANOS = 5000000, NANOS = 1000000000 };
static atomic_int s_ahead, s_clock_moves;
void failing_set_clock(int ahead) {
    atomic_store(&s_clock_moves, 1);
    atomic_store(&s_ahead, ahead);
}
int clock_gettime(clockid_t clock, struct timespec *t) {
    const int result = (int)syscall(SYS_clock_gettime, clock, t);
    t->tv_sec += clock == CLOCK_REALTIME ? atomic_load(&s_ahead) : 0;
    return result;
}
static int64_t nanos_until(const struct timespec *due) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return (int64_t)(due->tv_sec - now.tv_sec) * NANOS + due->tv_nsec - now.tv_nsec;
}
/* A moment of the system's clock, not later than that of ours. */
static struct timespec slice_until(const struct timespec *due) {
    const int64_t left = nanos_until(due);
    struct timespec end;
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &end);
    end.tv_nsec += left < SLICE_NANOS ? (left > 0 ? left : 0) : SLICE_NANOS;
    end.tv_sec += end.tv_nsec / NANOS;
    end.tv_nsec %= NANOS;
    return end;
}

int pthread_create(pthread_t *t, const pthread_attr_t *a, void *(*f)(void *), void *p) {
    NEXT(pthread_create);
    if (fate_of(fails_threads, EAGAIN, 0) != passes)
        return EAGAIN;
    s_creating = 1;
    const int result = next(t, a, f, p);
    s_creating = 0;
    return result;
}
ANSWERS(threads, pthread_attr_init, (pthread_attr_t * a), (a), ENOMEM)
ANSWERS(threads, pthread_attr_setstacksize, (pthread_attr_t * a, size_t n), (a, n), EINVAL)
ANSWERS(threads, pthread_attr_setdetachstate, (pthread_attr_t * a, int n), (a, n), EINVAL)
ANSWERS(threads, pthread_attr_setschedpolicy, (pthread_attr_t * a, int n), (a, n), ENOTSUP)
ANSWERS(threads, pthread_getschedparam, (pthread_t t, int *n, struct sched_param *p), (t, n, p), ESRCH)
ANSWERS(threads, pthread_key_create, (pthread_key_t * k, void (*f)(void *)), (k, f), EAGAIN)
ANSWERS(threads, pthread_setspecific, (pthread_key_t k, const void *p), (k, p), ENOMEM)
ANSWERS_OWNER(threads, pthread_key_delete, (pthread_key_t k), (k), k + 1, EINVAL)
ANSWERS_OWNER(threads, pthread_join, (pthread_t t, void **p), (t, p), t, EDEADLK)

ANSWERS(locks, pthread_mutex_init, (pthread_mutex_t * m, const pthread_mutexattr_t *a), (m, a), ENOMEM)
ANSWERS(locks, pthread_mutexattr_init, (pthread_mutexattr_t * a), (a), ENOMEM)
ANSWERS(locks, pthread_mutexattr_settype, (pthread_mutexattr_t * a, int n), (a, n), EINVAL)
ANSWERS(locks, pthread_mutex_trylock, (pthread_mutex_t * m), (m), EBUSY)
ANSWERS(locks, pthread_cond_init, (pthread_cond_t * c, const pthread_condattr_t *a), (c, a), ENOMEM)
ANSWERS_OWNER(locks, pthread_mutex_lock, (pthread_mutex_t * m), (m), m, EAGAIN)
ANSWERS_OWNER(locks, pthread_mutex_unlock, (pthread_mutex_t * m), (m), m, EPERM)
ANSWERS_OWNER(locks, pthread_mutex_destroy, (pthread_mutex_t * m), (m), m, EBUSY)
ANSWERS_OWNER(locks, pthread_cond_signal, (pthread_cond_t * c), (c), c, EINVAL)
ANSWERS_OWNER(locks, pthread_cond_broadcast, (pthread_cond_t * c), (c), c, EINVAL)
ANSWERS_OWNER(locks, pthread_cond_destroy, (pthread_cond_t * c), (c), c, EBUSY)

static int wakes_early(pthread_mutex_t *mutex) {
    pthread_mutex_unlock(mutex);
    sched_yield();
    return pthread_mutex_lock(mutex);
}
int pthread_cond_wait(pthread_cond_t *c, pthread_mutex_t *m) {
    NEXT(pthread_cond_wait);
    if (fate_of(fails_locks, EINVAL, 0) == passes)
        return next(c, m);
    return is_owned(c) ? EINVAL : wakes_early(m);
}
int pthread_cond_clockwait(pthread_cond_t *c, pthread_mutex_t *m, clockid_t k, const struct timespec *t) {
    NEXT(pthread_cond_clockwait);
    if (fate_of(fails_locks, EINVAL, 0) != passes)
        return is_owned(c) ? EINVAL : wakes_early(m);
    if (k != CLOCK_REALTIME || !atomic_load(&s_clock_moves))
        return next(c, m, k, t);
    const struct timespec end = slice_until(t);
    const int result = next(c, m, k, &end);
    return result == ETIMEDOUT && nanos_until(t) > 0 ? 0 : result;
}

FAILS(interrupts, sem_wait, (sem_t * s), (s), EINTR)
int sem_timedwait(sem_t *s, const struct timespec *t) {
    NEXT(sem_timedwait);
    if (fate_of(fails_semaphores, ETIMEDOUT, INTERRUPTIBLE) != passes)
        return -1;
    for (;;) {
        const struct timespec end = atomic_load(&s_clock_moves) ? slice_until(t) : *t;
        if (next(s, &end) == 0)
            return 0;
        if (errno != ETIMEDOUT || nanos_until(t) <= 0)
            return -1;
    }
}
GIVES_BACK(semaphores, sem_close, (sem_t * s), (s), EINVAL)
FAILS_OWNER(semaphores, sem_trywait, (sem_t * s), (s), s, EAGAIN)
FAILS_OWNER(semaphores, sem_post, (sem_t * s), (s), s, EOVERFLOW)
sem_t *sem_open(const char *name, int flags, ...) {
    NEXT(sem_open);
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    const unsigned count = va_arg(rest, unsigned);
    va_end(rest);
    if (fate_of(fails_semaphores, ENOSPC, 0) != passes)
        return SEM_FAILED;
    sem_t *const semaphore = next(name, flags, mode, count);
    atomic_fetch_add(&s_names, semaphore != SEM_FAILED && (flags & O_CREAT) != 0);
    return semaphore;
}
int sem_unlink(const char *name) {
    NEXT(sem_unlink);
    const int result = next(name);
    atomic_fetch_sub(&s_names, result == 0);
    return fate_of(fails_semaphores, EACCES, 0) == passes ? result : -1;
}

int open64(const char *path, int flags, ...) {
    NEXT(open64);
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return fate_of(fails_descriptors, EMFILE, 0) == passes ? next(path, flags, mode) : -1;
}
#define CONTROLS(name, type, error)                                                                          \
    int name(int fd, type request, ...) {                                                                    \
        NEXT(name);                                                                                          \
        va_list rest;                                                                                        \
        va_start(rest, request);                                                                             \
        void *const argument = va_arg(rest, void *);                                                         \
        va_end(rest);                                                                                        \
        return fate_of(fails_descriptors, error, 0) == passes ? next(fd, request, argument) : -1;            \
    }
CONTROLS(fcntl64, int, ENOLCK)
CONTROLS(ioctl, unsigned long, ENOTTY)
GIVES_BACK(descriptors, close, (int fd), (fd), EIO)

int access(const char *path, int mode) { /* not of a semaphore's name, which may be any process's */
    NEXT(access);
    const int named = strncmp(path, "/dev/shm/", 9) == 0;
    return !named && fate_of(fails_files, EIO, 0) != passes ? -1 : next(path, mode);
}
FAILS(files, fstat64, (int fd, struct stat64 *s), (fd, s), EIO)
FAILS(files, fstatat64, (int fd, const char *p, struct stat64 *s, int f), (fd, p, s, f), EIO)
FAILS(files, chmod, (const char *p, mode_t m), (p, m), EIO)
FAILS(files, mkdir, (const char *p, mode_t m), (p, m), ENOSPC)
FAILS(files, remove, (const char *p), (p), EIO)
FAILS(files, rename, (const char *p, const char *q), (p, q), ENOSPC)
FAILS_OR_ENDS(files, ftruncate64, (int fd, off64_t n), (fd, n), EIO)
FAILS_OR_ENDS(files, fsync, (int fd), (fd), EIO)
FAILS_WITH(files, off64_t, lseek64, (int fd, off64_t n, int w), (fd, n, w), -1, EIO, 0)
FAILS_WITH(files, ssize_t, readlink, (const char *p, char *b, size_t n), (p, b, n), -1, EACCES, 0)
FAILS_WITH(files, char *, realpath, (const char *p, char *b), (p, b), NULL, EACCES, 0)

TRANSFERS(reads, ssize_t, read, (int fd, void *b, size_t n), (fd, b, n), n, EIO)
TRANSFERS(reads, ssize_t, pread64, (int fd, void *b, size_t n, off64_t o), (fd, b, n, o), n, EIO)
TRANSFERS(reads, ssize_t, recv, (int fd, void *b, size_t n, int f), (fd, b, n, f), n, ECONNRESET)
FAILS_WITH(reads, ssize_t, recvfrom, (int fd, void *b, size_t n, int f, __SOCKADDR_ARG a, socklen_t *l),
           (fd, b, n, f, a, l), -1, ENOMEM, INTERRUPTIBLE)
TRANSFERS(writes, ssize_t, write, (int fd, const void *b, size_t n), (fd, b, n), n, ENOSPC)
TRANSFERS(writes, ssize_t, pwrite64, (int fd, const void *b, size_t n, off64_t o), (fd, b, n, o), n, ENOSPC)
TRANSFERS(writes, ssize_t, writev, (int fd, const struct iovec *v, int n), (fd, v, n), n, ENOSPC)
TRANSFERS(writes, ssize_t, send, (int fd, const void *b, size_t n, int f), (fd, b, n, f), n, EPIPE)
TRANSFERS(writes, ssize_t, copy_file_range, (int s, off64_t *o, int t, off64_t *p, size_t n, unsigned f),
          (s, o, t, p, n, f | s_no_copies), n, EXDEV)
FAILS_WITH(writes, ssize_t, sendto,
           (int fd, const void *b, size_t n, int f, __CONST_SOCKADDR_ARG a, socklen_t l), (fd, b, n, f, a, l),
           -1, ENOBUFS, INTERRUPTIBLE)
FAILS(writes, fputs, (const char *s, FILE *f), (s, f), ENOSPC)
FAILS(writes, puts, (const char *s), (s), ENOSPC)

FAILS(sockets, socket, (int f, int t, int p), (f, t, p), EMFILE)
FAILS(sockets, bind, (int fd, __CONST_SOCKADDR_ARG a, socklen_t l), (fd, a, l), EADDRINUSE)
FAILS(sockets, listen, (int fd, int n), (fd, n), EADDRINUSE)
FAILS(sockets, shutdown, (int fd, int n), (fd, n), ENOTCONN)
FAILS(sockets, getsockname, (int fd, __SOCKADDR_ARG a, socklen_t *l), (fd, a, l), ENOBUFS)
FAILS(sockets, getpeername, (int fd, __SOCKADDR_ARG a, socklen_t *l), (fd, a, l), ENOTCONN)
FAILS(sockets, getsockopt, (int fd, int l, int o, void *v, socklen_t *n), (fd, l, o, v, n), ENOBUFS)
FAILS(sockets, setsockopt, (int fd, int l, int o, const void *v, socklen_t n), (fd, l, o, v, n), ENOBUFS)
FAILS_OR_ENDS(sockets, accept, (int fd, __SOCKADDR_ARG a, socklen_t *l), (fd, a, l), EMFILE)
FAILS_OR_ENDS(sockets, connect, (int fd, __CONST_SOCKADDR_ARG a, socklen_t l), (fd, a, l), ENETUNREACH)
FAILS(pipes, pipe, (int fds[2]), (fds), EMFILE)
FAILS_OR_ENDS(polls, poll, (struct pollfd * fds, nfds_t n, int t), (fds, n, t), ENOMEM)
FAILS_OR_ENDS(polls, select, (int n, fd_set *r, fd_set *w, fd_set *e, struct timeval *t), (n, r, w, e, t),
              ENOMEM)

FAILS_WITH(directories, DIR *, opendir, (const char *p), (p), NULL, EMFILE, 0)
FAILS_WITH(directories, struct dirent64 *, readdir64, (DIR * d), (d), NULL, EIO, 0)
GIVES_BACK(directories, closedir, (DIR * d), (d), EIO)

FAILS_WITH(names, int, getaddrinfo,
           (const char *n, const char *s, const struct addrinfo *h, struct addrinfo **r), (n, s, h, r),
           EAI_AGAIN, EAGAIN, 0)
FAILS_WITH(names, struct hostent *, gethostbyname, (const char *n), (n), NULL, EAGAIN, 0)
FAILS(names, gethostname, (char *b, size_t n), (b, n), ENAMETOOLONG)

FAILS_WITH(iconv, iconv_t, iconv_open, (const char *t, const char *f), (t, f), (iconv_t)-1, EINVAL, 0)
FAILS_WITH(iconv, size_t, iconv, (iconv_t c, char **i, size_t *n, char **o, size_t *r), (c, i, n, o, r),
           (size_t)-1, EILSEQ, 0)
GIVES_BACK(iconv, iconv_close, (iconv_t c), (c), EINVAL)

FAILS_WITH(random, ssize_t, getrandom, (void *b, size_t n, unsigned f), (b, n, f), -1, ENOSYS, INTERRUPTIBLE)

int gettimeofday(struct timeval *restrict t, void *restrict z) {
    NEXT(gettimeofday);
    if (fate_of(fails_clocks, EPERM, 0) != passes || next(t, z) != 0)
        return -1;
    t->tv_sec += atomic_load(&s_ahead);
    return 0;
}
time_t time(time_t *t) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (fate_of(fails_clocks, EPERM, 0) != passes)
        return -1;
    if (t != NULL)
        *t = now.tv_sec;
    return now.tv_sec;
}
FAILS_WITH(clocks, struct tm *, localtime_r, (const time_t *t, struct tm *f), (t, f), NULL, EOVERFLOW, 0)
FAILS_WITH(clocks, struct tm *, gmtime_r, (const time_t *t, struct tm *f), (t, f), NULL, EOVERFLOW, 0)
FAILS(interrupts, usleep, (useconds_t n), (n), EINTR)

FAILS_WITH(modules, void *, dlopen, (const char *p, int f), (p, f), NULL, ENOMEM, 0)
FAILS_WITH(modules, long, sysconf, (int n), (n), -1, EPERM, 0)
FAILS_OWNER(modules, dlclose, (void *m), (m), m, EINVAL)
