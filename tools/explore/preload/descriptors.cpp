// Descriptors through which threads meet: pipes, event counters, sockets. They stay the platform's; a call that would
// wait becomes a wait in the scheduler until poll says that the descriptor is ready.
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include "descriptors.h"

namespace explore {
namespace {

enum class Type : uint8_t { Unknown, Plain, Own, Foreign };

constexpr int kMaxTypes = 4096;
Type s_types[kMaxTypes];
uint32_t s_open; // made and not closed

// What a descriptor is that was not seen when it was made. Whoever is at the other end is unknown.
Type TypeOf(int descriptor) {
    if (descriptor < 0 || descriptor >= kMaxTypes)
        return Type::Plain;
    Type &type = s_types[descriptor];
    if (type != Type::Unknown)
        return type;
    struct stat information;
    const int saved = errno;
    if (fstat(descriptor, &information) != 0)
        return Type::Plain;
    errno = saved;
    const bool terminal = S_ISCHR(information.st_mode) && isatty(descriptor) != 0;
    const bool anonymous = (information.st_mode & S_IFMT) == 0; // a counter, an epoll set and the like
    type = terminal || anonymous || S_ISFIFO(information.st_mode) || S_ISSOCK(information.st_mode)
               ? Type::Foreign
               : Type::Plain;
    errno = saved;
    return type;
}

bool IsBlocking(int descriptor) {
    return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

int RawPoll(pollfd *polls, nfds_t count, int milliseconds) {
    const timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    const int saved = errno;
    const auto ready = static_cast<int>(GetReal().syscall(SYS_ppoll, polls, count, &limit, nullptr, 0));
    errno = saved;
    return ready;
}

// The socket's own limit (SO_RCVTIMEO, SO_SNDTIMEO) as a moment.
int64_t SocketLimit(int descriptor, short events) {
    timeval limit = {};
    socklen_t length = sizeof limit;
    const int saved = errno;
    const int option = (events & POLLIN) != 0 ? SO_RCVTIMEO : SO_SNDTIMEO;
    const bool known = getsockopt(descriptor, SOL_SOCKET, option, &limit, &length) == 0;
    errno = saved;
    if (!known || (limit.tv_sec == 0 && limit.tv_usec == 0))
        return kNever;
    return Now() + limit.tv_sec * kSecond + limit.tv_usec * 1000;
}

} // namespace

void NoteMade(int descriptor) {
    if (descriptor >= 0 && descriptor < kMaxTypes) {
        s_types[descriptor] = Type::Own;
        s_open++;
    }
}

void NoteClosed(int descriptor) {
    if (descriptor >= 0 && descriptor < kMaxTypes) {
        s_open -= s_types[descriptor] == Type::Own && s_open > 0 ? 1 : 0;
        s_types[descriptor] = Type::Unknown;
    }
}

void NoteUsed() {
    g.polls_stale = true;
}

uint32_t OpenDescriptors() {
    return s_open;
}

bool MayWait(int descriptor) {
    return TypeOf(descriptor) != Type::Plain;
}

bool PollWaiting(int milliseconds) {
    bool any = false;
    bool waiting = false;
    for (int pass = 0; pass < 2 && !any; pass++) {
        for (uint32_t i = 0; i < g.alive_count; i++) {
            Thread &thread = g.threads[g.alive[i]];
            if (thread.state != State::Blocked || thread.polls == nullptr)
                continue;
            waiting = true;
            if (RawPoll(thread.polls, thread.poll_count, pass == 0 ? 0 : milliseconds) > 0) {
                WakeThread(&thread, Wake::Signalled);
                any = true;
            }
        }
        if (milliseconds == 0 || !waiting)
            break;
    }
    return any;
}

bool OutsidePossible() {
    for (uint32_t i = 0; i < g.alive_count; i++)
        if (g.threads[g.alive[i]].state == State::Blocked && g.threads[g.alive[i]].outside_poll)
            return true;
    siginfo_t information;
    const int saved = errno;
    const bool children = GetReal().waitid(P_ALL, 0, &information, WEXITED | WNOHANG | WNOWAIT) == 0;
    errno = saved;
    return children;
}

Wake AwaitReady(Thread *me, const Point &point, pollfd *polls, nfds_t count, int64_t deadline) {
    me->polls = polls;
    me->poll_count = count;
    me->outside_poll = false;
    for (nfds_t i = 0; i < count; i++)
        me->outside_poll = me->outside_poll || TypeOf(polls[i].fd) == Type::Foreign;
    const Wake why = Block(me, point, deadline);
    me->polls = nullptr;
    me->outside_poll = false;
    return why;
}

bool BeginTransfer(Thread *me, Op op, int descriptor, short events, bool may_wait, const void *site) {
    const Point point = {op, Kind::Descriptor, DescriptorObject(descriptor), site, false};
    if (me->cancelled) {
        Leave(me);
        CancelPoint(me);
        (void)Enter();
    }
    PassPoint(me, point);
    pollfd poll = {descriptor, events, 0};
    if (RawPoll(&poll, 1, 0) != 0 || !may_wait || !IsBlocking(descriptor))
        return true;
    const int64_t limit = SocketLimit(descriptor, events);
    while (RawPoll(&poll, 1, 0) == 0) {
        const Wake why = AwaitReady(me, point, &poll, 1, limit);
        if (why == Wake::TimedOut) {
            errno = EAGAIN;
            return false;
        }
        if (why == Wake::Cancelled) {
            Leave(me);
            CancelPoint(me);
            (void)Enter();
        }
    }
    return true;
}

Unblocked::Unblocked(int descriptor) : m_descriptor(descriptor), m_flags(fcntl(descriptor, F_GETFL)) {
    if ((m_flags & O_NONBLOCK) == 0)
        (void)fcntl(descriptor, F_SETFL, m_flags | O_NONBLOCK);
}

void Unblocked::Restore() const {
    const int saved = errno;
    if ((m_flags & O_NONBLOCK) == 0)
        (void)fcntl(m_descriptor, F_SETFL, m_flags);
    errno = saved;
}

bool IsLocal(const sockaddr *address, socklen_t length) {
    if (address->sa_family == AF_UNIX)
        return true;
    if (address->sa_family == AF_INET && length >= sizeof(sockaddr_in)) {
        sockaddr_in in;
        memcpy(&in, address, sizeof in);
        const uint32_t host = ntohl(in.sin_addr.s_addr);
        return host >> 24 == 127 || host == 0;
    }
    if (address->sa_family == AF_INET6 && length >= sizeof(sockaddr_in6)) {
        sockaddr_in6 in;
        memcpy(&in, address, sizeof in);
        return IN6_IS_ADDR_LOOPBACK(&in.sin6_addr) || IN6_IS_ADDR_UNSPECIFIED(&in.sin6_addr) ||
               (IN6_IS_ADDR_V4MAPPED(&in.sin6_addr) && in.sin6_addr.s6_addr[12] == 127);
    }
    return false;
}

} // namespace explore
