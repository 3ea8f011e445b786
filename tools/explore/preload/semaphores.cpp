// Semaphores. Named ones are looked up in a table of the process's own: nothing is left behind in the system when a
// schedule ends in the middle, and schedules that run side by side do not meet.
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>

#include "calls.h"

namespace explore {
namespace {

constexpr uint32_t kMaxNamed = 4096;
constexpr uint32_t kMaxName = 251; // as the C library has it, without slashes

struct Named {
    char name[kMaxName + 1]; // empty: unlinked
    uint32_t opened;         // 0 and no name: free
    sem_t *semaphore;
};

Named *s_named;      // made with the first one
sem_t *s_semaphores; // shared with forked children
uint32_t s_open;     // successful sem_open calls less sem_close calls
uint32_t s_initialised;

bool Prepare() {
    if (s_named != nullptr)
        return true;
    void *named =
        mmap(nullptr, kMaxNamed * sizeof(Named), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    void *memory =
        mmap(nullptr, kMaxNamed * sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (named == MAP_FAILED || memory == MAP_FAILED)
        return false;
    s_named = static_cast<Named *>(named);
    s_semaphores = static_cast<sem_t *>(memory);
    return true;
}

const char *WithoutSlashes(const char *name) {
    while (*name == '/')
        name++;
    return name;
}

// 0 or the platform's error.
int CheckName(const char *name) {
    if (*name == 0 || strchr(name, '/') != nullptr)
        return EINVAL;
    return strlen(name) > kMaxName ? ENAMETOOLONG : 0;
}

Named *FindNamed(const char *name) {
    for (uint32_t i = 0; i < kMaxNamed; i++)
        if (strcmp(s_named[i].name, name) == 0)
            return &s_named[i];
    return nullptr;
}

Named *NewNamed(const char *name, unsigned value) {
    for (uint32_t i = 0; i < kMaxNamed; i++) {
        Named &entry = s_named[i];
        if (entry.name[0] != 0 || entry.opened > 0)
            continue;
        entry.semaphore = &s_semaphores[i];
        if (GetReal().sem_init(entry.semaphore, 1, value) != 0)
            return nullptr;
        strcpy(entry.name, name);
        return &entry;
    }
    errno = ENOSPC;
    return nullptr;
}

sem_t *OpenNamed(const char *name, int flags, unsigned value) {
    if (!Prepare())
        return SEM_FAILED;
    name = WithoutSlashes(name);
    errno = CheckName(name);
    if (errno != 0)
        return SEM_FAILED;
    Named *entry = FindNamed(name);
    if (entry != nullptr && (flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) {
        errno = EEXIST;
        return SEM_FAILED;
    }
    if (entry == nullptr && (flags & O_CREAT) == 0) {
        errno = ENOENT;
        return SEM_FAILED;
    }
    if (entry == nullptr)
        entry = NewNamed(name, value);
    if (entry == nullptr)
        return SEM_FAILED;
    entry->opened++;
    s_open++;
    return entry->semaphore;
}

// Waits for a unit. `deadline` kNever: without limit.
int WaitSemaphore(Thread *me, sem_t *semaphore, int64_t deadline, const void *site) {
    const Real &real = GetReal();
    if (me->cancelled) {
        Leave(me);
        CancelPoint(me);
        (void)Enter();
    }
    const Point point = {deadline == kNever ? Op::Wait : Op::TimedWait, Kind::Semaphore, semaphore, site,
                         false};
    PassPoint(me, point);
    const int saved = errno;
    int status = 0;
    while ((status = real.sem_trywait(semaphore)) != 0 && errno == EAGAIN) {
        const Wake why = Block(me, point, deadline);
        if (why == Wake::Cancelled) {
            Leave(me);
            CancelPoint(me);
            (void)Enter();
        }
        if (why == Wake::TimedOut) {
            status = real.sem_trywait(semaphore); // a post may have come with the deadline
            if (status != 0)
                errno = ETIMEDOUT;
            break;
        }
    }
    if (status == 0) {
        RaceAcquire(me, semaphore);
        errno = saved;
    }
    Leave(me);
    return status;
}

int TimedWait(sem_t *semaphore, clockid_t clock, const timespec *at, const void *site) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr) {
        const timespec limit = ToPlatform(clock, at);
        return real.sem_clockwait(semaphore, clock, &limit);
    }
    if (!Valid(at)) {
        Leave(me);
        errno = EINVAL;
        return -1;
    }
    return WaitSemaphore(me, semaphore, Deadline(clock, at), site);
}

} // namespace

uint32_t OpenSemaphores() {
    return s_open + s_initialised;
}

} // namespace explore

using namespace explore;

EXPLORE_API int sem_init(sem_t *semaphore, int shared, unsigned value) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        const bool fail = FailNow(me, FailSem);
        Forget(Kind::Semaphore, semaphore);
        s_initialised += fail ? 0 : 1;
        Leave(me);
        if (fail) {
            errno = ENOSPC;
            return -1;
        }
    }
    return GetReal().sem_init(semaphore, shared, value);
}

EXPLORE_API int sem_destroy(sem_t *semaphore) noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        const Thread *waiter = PickWaiter(me, semaphore, Op::Wait, Op::TimedWait);
        if (waiter != nullptr)
            NoteMisuse("thread %u destroys semaphore %u, for which thread %u waits", me->number,
                       NumberOf(Kind::Semaphore, semaphore), waiter->number);
        s_initialised -= s_initialised > 0 ? 1 : 0;
        Leave(me);
    }
    return GetReal().sem_destroy(semaphore);
}

EXPLORE_API int sem_wait(sem_t *semaphore) {
    Thread *me = Enter();
    return me == nullptr ? GetReal().sem_wait(semaphore) : WaitSemaphore(me, semaphore, kNever, EXPLORE_SITE);
}

EXPLORE_API int sem_timedwait(sem_t *semaphore, const timespec *at) {
    return TimedWait(semaphore, CLOCK_REALTIME, at, EXPLORE_SITE);
}

EXPLORE_API int sem_clockwait(sem_t *semaphore, clockid_t clock, const timespec *at) {
    return TimedWait(semaphore, clock, at, EXPLORE_SITE);
}

EXPLORE_API int sem_trywait(sem_t *semaphore) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.sem_trywait(semaphore);
    PassPoint(me, {Op::TryWait, Kind::Semaphore, semaphore, EXPLORE_SITE, false});
    const int status = real.sem_trywait(semaphore);
    if (status == 0)
        RaceAcquire(me, semaphore);
    Leave(me);
    return status;
}

EXPLORE_API int sem_post(sem_t *semaphore) noexcept {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr) {
        g.foreign = true; // a signal handler's
        return real.sem_post(semaphore);
    }
    const void *site = EXPLORE_SITE;
    PassPoint(me, {Op::Post, Kind::Semaphore, semaphore, site, false});
    RaceRelease(me, semaphore);
    const int status = real.sem_post(semaphore);
    const int error = errno;
    WakeAll(semaphore, Wake::Signalled);
    PassAfter(me, Op::Post, Kind::Semaphore, semaphore, site);
    Leave(me);
    errno = error;
    return status;
}

EXPLORE_API sem_t *sem_open(const char *name, int flags, ...) noexcept {
    unsigned value = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        (void)va_arg(arguments, unsigned); // the mode
        value = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    if (g.mapping == nullptr)
        return GetReal().sem_open(name, flags, 0600, value);
    Thread *me = Enter();
    if (me == nullptr)
        return OpenNamed(name, flags, value);
    PassPoint(me, {Op::Open, Kind::None, nullptr, EXPLORE_SITE, false});
    sem_t *semaphore = SEM_FAILED;
    if (FailNow(me, FailSem)) {
        errno = ENOSPC;
    } else {
        semaphore = OpenNamed(name, flags, value);
    }
    Leave(me);
    return semaphore;
}

EXPLORE_API int sem_close(sem_t *semaphore) noexcept {
    if (g.mapping == nullptr)
        return GetReal().sem_close(semaphore);
    Thread *me = Enter();
    if (me != nullptr)
        PassPoint(me, {Op::Close, Kind::Semaphore, semaphore, EXPLORE_SITE, false});
    int status = -1;
    for (uint32_t i = 0; s_named != nullptr && i < kMaxNamed && status != 0; i++) {
        if (s_named[i].opened == 0 || s_named[i].semaphore != semaphore)
            continue;
        s_named[i].opened--;
        s_open--;
        if (s_named[i].opened == 0 && s_named[i].name[0] == 0 && me != nullptr)
            Forget(Kind::Semaphore, semaphore);
        status = 0;
    }
    if (me != nullptr)
        Leave(me);
    if (status != 0)
        errno = EINVAL;
    return status;
}

EXPLORE_API int sem_unlink(const char *name) noexcept {
    if (g.mapping == nullptr)
        return GetReal().sem_unlink(name);
    Named *entry = Prepare() ? FindNamed(WithoutSlashes(name)) : nullptr;
    if (entry == nullptr || *WithoutSlashes(name) == 0) {
        errno = ENOENT;
        return -1;
    }
    entry->name[0] = 0;
    return 0;
}
