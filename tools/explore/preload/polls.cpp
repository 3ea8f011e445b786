// Waits for several descriptors: poll, select, epoll.
#include "descriptors.h"

namespace explore {
namespace {

// Looks, waits, and looks again until something is there or the time is out. `look` is a call that does not wait;
// its result is the call's.
template <class Look>
int PollUntil(Thread *me, const Look &look, pollfd *polls, nfds_t count, int64_t deadline, const void *site) {
    const Point point = {Op::Poll, count > 0 ? Kind::Descriptor : Kind::None,
                         count > 0 ? DescriptorObject(polls[0].fd) : nullptr, site, false};
    if (me->cancelled) {
        Leave(me);
        CancelPoint(me);
        (void)Enter();
    }
    PassPoint(me, point);
    int ready = 0;
    while ((ready = look()) == 0 && deadline > Now()) {
        const Wake why = AwaitReady(me, point, polls, count, deadline);
        if (why == Wake::TimedOut) {
            ready = look();
            break;
        }
        if (why == Wake::Cancelled) {
            Leave(me);
            CancelPoint(me);
            (void)Enter();
        }
    }
    RaceAcquire(me, DescriptorObject(-2));
    const int saved = errno;
    Leave(me);
    errno = saved;
    return ready;
}

int64_t AfterMilliseconds(int milliseconds) {
    return milliseconds < 0 ? kNever : Now() + int64_t{milliseconds} * 1000000;
}

int Poll(pollfd *polls, nfds_t count, int milliseconds, const void *site) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.poll(polls, count, milliseconds);
    return PollUntil(
        me, [&] { return real.poll(polls, count, 0); }, polls, count, AfterMilliseconds(milliseconds), site);
}

constexpr int kMaxSelected = FD_SETSIZE;

struct Sets {
    fd_set *sets[3]; // for reading, writing, exceptions; null: none
};
constexpr short kEvents[3] = {POLLIN | POLLHUP | POLLERR, POLLOUT | POLLERR, POLLPRI};

nfds_t ToPolls(int limit, const Sets &sets, pollfd *polls) {
    nfds_t count = 0;
    for (int descriptor = 0; descriptor < limit && descriptor < kMaxSelected; descriptor++) {
        short events = 0;
        for (int i = 0; i < 3; i++)
            if (sets.sets[i] != nullptr && FD_ISSET(descriptor, sets.sets[i]))
                events = static_cast<short>(events | kEvents[i]);
        if (events != 0)
            polls[count++] = {descriptor, static_cast<short>(events & (POLLIN | POLLOUT | POLLPRI)), 0};
    }
    return count;
}

int Select(int limit, const Sets &sets, int64_t deadline, const void *site, Thread *me) {
    pollfd polls[kMaxSelected];
    fd_set wanted[3];
    for (int i = 0; i < 3; i++)
        if (sets.sets[i] != nullptr)
            wanted[i] = *sets.sets[i];
    const nfds_t count = ToPolls(limit, sets, polls);
    const auto look = [&] {
        timeval none = {0, 0};
        for (int i = 0; i < 3; i++)
            if (sets.sets[i] != nullptr)
                *sets.sets[i] = wanted[i];
        return GetReal().select(limit, sets.sets[0], sets.sets[1], sets.sets[2], &none);
    };
    return PollUntil(me, look, polls, count, deadline, site);
}

} // namespace
} // namespace explore

using namespace explore;

EXPLORE_API int poll(pollfd *polls, nfds_t count, int milliseconds) {
    return Poll(polls, count, milliseconds, EXPLORE_SITE);
}

EXPLORE_API int __poll_chk(pollfd *polls, nfds_t count, int milliseconds, size_t room) {
    if (count > room / sizeof *polls)
        __builtin_trap();
    return Poll(polls, count, milliseconds, EXPLORE_SITE);
}

EXPLORE_API int ppoll(pollfd *polls, nfds_t count, const timespec *limit, const sigset_t *mask) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.ppoll(polls, count, limit, mask);
    const timespec none = {0, 0};
    return PollUntil(
        me, [&] { return real.ppoll(polls, count, &none, mask); }, polls, count, After(limit), EXPLORE_SITE);
}

EXPLORE_API int select(int limit, fd_set *read, fd_set *write, fd_set *except, timeval *time) {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().select(limit, read, write, except, time);
    const int64_t deadline =
        time == nullptr ? kNever : Now() + time->tv_sec * kSecond + int64_t{time->tv_usec} * 1000;
    const int ready = Select(limit, {{read, write, except}}, deadline, EXPLORE_SITE, me);
    if (time != nullptr) { // the time left, as the platform has it
        const int64_t rest = deadline > Now() ? deadline - Now() : 0;
        time->tv_sec = static_cast<time_t>(rest / kSecond);
        time->tv_usec = static_cast<suseconds_t>(rest % kSecond / 1000);
    }
    return ready;
}

EXPLORE_API int pselect(int limit, fd_set *read, fd_set *write, fd_set *except, const timespec *time,
                        const sigset_t *mask) {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().pselect(limit, read, write, except, time, mask);
    return Select(limit, {{read, write, except}}, After(time), EXPLORE_SITE, me);
}

EXPLORE_API int epoll_wait(int descriptor, epoll_event *events, int room, int milliseconds) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.epoll_wait(descriptor, events, room, milliseconds);
    pollfd poll = {descriptor, POLLIN, 0};
    return PollUntil(
        me, [&] { return real.epoll_wait(descriptor, events, room, 0); }, &poll, 1,
        AfterMilliseconds(milliseconds), EXPLORE_SITE);
}

EXPLORE_API int epoll_pwait(int descriptor, epoll_event *events, int room, int milliseconds,
                            const sigset_t *mask) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr)
        return real.epoll_pwait(descriptor, events, room, milliseconds, mask);
    pollfd poll = {descriptor, POLLIN, 0};
    return PollUntil(
        me, [&] { return real.epoll_pwait(descriptor, events, room, 0, mask); }, &poll, 1,
        AfterMilliseconds(milliseconds), EXPLORE_SITE);
}
