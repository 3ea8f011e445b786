// Reading, writing, and the calls that make and close descriptors.
#include <cstdarg>
#include <cstring>
#include <fcntl.h>

#include "descriptors.h"

namespace explore {
namespace {

constexpr size_t kSurelyFits = 4096; // what a writable pipe or socket takes at once

struct Transfer {
    Op op;
    int descriptor;
    bool may_wait; // not with MSG_DONTWAIT
    const void *site;
};

// True with errno set: this call is one that fails on purpose.
bool FailTransfer(Thread *me) {
    if (!FailNow(me, FailIo))
        return false;
    errno = EINTR;
    return true;
}

template <class Call>
ssize_t Read(const Transfer &transfer, const Call &call) {
    Thread *me = MayWait(transfer.descriptor) ? Enter() : nullptr;
    if (me == nullptr)
        return call();
    ssize_t count = -1;
    if (!FailTransfer(me) &&
        BeginTransfer(me, transfer.op, transfer.descriptor, POLLIN, transfer.may_wait, transfer.site)) {
        RaceAcquire(me, DescriptorObject(-2)); // whoever wrote anything before
        count = call();
    }
    const int saved = errno;
    NoteUsed();
    Leave(me);
    errno = saved;
    return count;
}

// The call may take a part; `call(done)` goes on after that.
template <class Call>
ssize_t WriteAll(Thread *me, const Transfer &transfer, size_t size, const Call &call) {
    size_t done = 0;
    for (;;) {
        const Unblocked unblocked(transfer.descriptor);
        const ssize_t count = call(done);
        unblocked.Restore();
        NoteUsed();
        if (count > 0)
            done += static_cast<size_t>(count);
        const bool more = count > 0 ? done < size : count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        if (!more || !unblocked.WasBlocking())
            return done > 0 ? static_cast<ssize_t>(done) : count;
        if (!BeginTransfer(me, transfer.op, transfer.descriptor, POLLOUT, true, transfer.site))
            return done > 0 ? static_cast<ssize_t>(done) : -1;
    }
}

template <class Call>
ssize_t Write(const Transfer &transfer, size_t size, const Call &call) {
    Thread *me = MayWait(transfer.descriptor) ? Enter() : nullptr;
    if (me == nullptr)
        return call(0);
    ssize_t count = -1;
    if (!FailTransfer(me) &&
        BeginTransfer(me, transfer.op, transfer.descriptor, POLLOUT, transfer.may_wait, transfer.site)) {
        RaceRelease(me, DescriptorObject(-2));
        count = size <= kSurelyFits || !transfer.may_wait ? call(0) : WriteAll(me, transfer, size, call);
    }
    const int saved = errno;
    NoteUsed();
    PassAfter(me, transfer.op, Kind::Descriptor, DescriptorObject(transfer.descriptor), transfer.site);
    Leave(me);
    errno = saved;
    return count;
}

size_t SizeOf(const iovec *parts, size_t count) {
    size_t size = 0;
    for (size_t i = 0; i < count; i++)
        size += parts[i].iov_len;
    return size;
}

int Made(int descriptor) {
    if (t_self != nullptr && Active())
        NoteMade(descriptor);
    return descriptor;
}

// A call that makes a descriptor fails on purpose.
bool FailMaking() {
    Thread *me = Enter();
    if (me == nullptr)
        return false;
    const bool fail = FailNow(me, FailIo);
    Leave(me);
    if (fail)
        errno = EMFILE;
    return fail;
}

int Connect(Thread *me, int descriptor, const sockaddr *address, socklen_t length, const void *site) {
    const Real &real = GetReal();
    const Point point = {Op::Connect, Kind::Descriptor, DescriptorObject(descriptor), site, false};
    PassPoint(me, point);
    const Unblocked unblocked(descriptor);
    int status = real.connect(descriptor, address, length);
    unblocked.Restore();
    NoteUsed();
    if (status == 0 || errno != EINPROGRESS || !unblocked.WasBlocking())
        return status;
    pollfd poll = {descriptor, POLLOUT, 0};
    while (real.poll(&poll, 1, 0) == 0)
        (void)AwaitReady(me, point, &poll, 1, kNever);
    socklen_t size = sizeof status;
    (void)getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &status, &size);
    errno = status;
    return status == 0 ? 0 : -1;
}

template <class Call>
int Accept(int descriptor, const void *site, const Call &call) {
    return Made(static_cast<int>(Read({Op::Accept, descriptor, true, site}, call)));
}

} // namespace
} // namespace explore

using namespace explore;

EXPLORE_API ssize_t read(int descriptor, void *buffer, size_t size) {
    return Read({Op::Read, descriptor, true, EXPLORE_SITE},
                [=] { return GetReal().read(descriptor, buffer, size); });
}

EXPLORE_API ssize_t __read_chk(int descriptor, void *buffer, size_t size, size_t room) {
    if (size > room)
        __builtin_trap();
    return Read({Op::Read, descriptor, true, EXPLORE_SITE},
                [=] { return GetReal().read(descriptor, buffer, size); });
}

EXPLORE_API ssize_t readv(int descriptor, const iovec *parts, int count) {
    return Read({Op::Read, descriptor, true, EXPLORE_SITE},
                [=] { return GetReal().readv(descriptor, parts, count); });
}

EXPLORE_API ssize_t write(int descriptor, const void *buffer, size_t size) {
    return Write({Op::Write, descriptor, true, EXPLORE_SITE}, size, [=](size_t done) {
        return GetReal().write(descriptor, static_cast<const char *>(buffer) + done, size - done);
    });
}

EXPLORE_API ssize_t writev(int descriptor, const iovec *parts, int count) {
    return Write({Op::Write, descriptor, true, EXPLORE_SITE}, kSurelyFits,
                 [=](size_t) { return GetReal().writev(descriptor, parts, count); });
}

EXPLORE_API ssize_t recv(int descriptor, void *buffer, size_t size, int flags) {
    return Read({Op::Read, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE},
                [=] { return GetReal().recv(descriptor, buffer, size, flags); });
}

EXPLORE_API ssize_t __recv_chk(int descriptor, void *buffer, size_t size, size_t room, int flags) {
    if (size > room)
        __builtin_trap();
    return Read({Op::Read, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE},
                [=] { return GetReal().recv(descriptor, buffer, size, flags); });
}

EXPLORE_API ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *address,
                             socklen_t *length) {
    return Read({Op::Read, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE},
                [=] { return GetReal().recvfrom(descriptor, buffer, size, flags, address, length); });
}

EXPLORE_API ssize_t recvmsg(int descriptor, msghdr *message, int flags) {
    return Read({Op::Read, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE},
                [=] { return GetReal().recvmsg(descriptor, message, flags); });
}

EXPLORE_API ssize_t send(int descriptor, const void *buffer, size_t size, int flags) {
    return Write({Op::Write, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE}, size, [=](size_t done) {
        return GetReal().send(descriptor, static_cast<const char *>(buffer) + done, size - done, flags);
    });
}

EXPLORE_API ssize_t sendto(int descriptor, const void *buffer, size_t size, int flags,
                           const sockaddr *address, socklen_t length) {
    return Write({Op::Write, descriptor, (flags & MSG_DONTWAIT) == 0, EXPLORE_SITE}, size, [=](size_t done) {
        return GetReal().sendto(descriptor, static_cast<const char *>(buffer) + done, size - done, flags,
                                address, length);
    });
}

EXPLORE_API ssize_t sendmsg(int descriptor, const msghdr *message, int flags) {
    const bool may_wait = (flags & MSG_DONTWAIT) == 0;
    return Write({Op::Write, descriptor, may_wait, EXPLORE_SITE},
                 SizeOf(message->msg_iov, message->msg_iovlen),
                 [=](size_t) { return GetReal().sendmsg(descriptor, message, flags); });
}

EXPLORE_API int accept(int descriptor, sockaddr *address, socklen_t *length) {
    return Accept(descriptor, EXPLORE_SITE, [=] { return GetReal().accept(descriptor, address, length); });
}

EXPLORE_API int accept4(int descriptor, sockaddr *address, socklen_t *length, int flags) {
    return Accept(descriptor, EXPLORE_SITE,
                  [=] { return GetReal().accept4(descriptor, address, length, flags); });
}

EXPLORE_API int connect(int descriptor, const sockaddr *address, socklen_t length) {
    // An unknown peer's answer takes as long as it takes: the call is outside.
    Thread *me = address != nullptr && IsLocal(address, length) ? Enter() : nullptr;
    if (me == nullptr)
        return GetReal().connect(descriptor, address, length);
    const int status = Connect(me, descriptor, address, length, EXPLORE_SITE);
    const int saved = errno;
    Leave(me);
    errno = saved;
    return status;
}

EXPLORE_API int shutdown(int descriptor, int how) noexcept {
    Thread *me = Enter();
    if (me == nullptr)
        return GetReal().shutdown(descriptor, how);
    PassPoint(me, {Op::Shutdown, Kind::Descriptor, DescriptorObject(descriptor), EXPLORE_SITE, false});
    const int status = GetReal().shutdown(descriptor, how);
    NoteUsed();
    Leave(me);
    return status;
}

EXPLORE_API int close(int descriptor) {
    Thread *me = MayWait(descriptor) ? Enter() : nullptr;
    if (me != nullptr)
        PassPoint(me, {Op::Close, Kind::Descriptor, DescriptorObject(descriptor), EXPLORE_SITE, false});
    const int status = GetReal().close(descriptor);
    NoteClosed(descriptor);
    if (me != nullptr) {
        NoteUsed();
        Leave(me);
    }
    return status;
}

EXPLORE_API int pipe(int ends[2]) noexcept {
    return pipe2(ends, 0);
}

EXPLORE_API int pipe2(int ends[2], int flags) noexcept {
    if (FailMaking())
        return -1;
    const int status = GetReal().pipe2(ends, flags);
    if (status == 0) {
        (void)Made(ends[0]);
        (void)Made(ends[1]);
    }
    return status;
}

EXPLORE_API int eventfd(unsigned value, int flags) noexcept {
    return FailMaking() ? -1 : Made(GetReal().eventfd(value, flags));
}

EXPLORE_API int socket(int family, int type, int protocol) noexcept {
    return FailMaking() ? -1 : Made(GetReal().socket(family, type, protocol));
}

EXPLORE_API int socketpair(int family, int type, int protocol, int ends[2]) noexcept {
    if (FailMaking())
        return -1;
    const int status = GetReal().socketpair(family, type, protocol, ends);
    if (status == 0) {
        (void)Made(ends[0]);
        (void)Made(ends[1]);
    }
    return status;
}

EXPLORE_API int dup(int descriptor) noexcept {
    const int copy = GetReal().dup(descriptor);
    return copy >= 0 && MayWait(descriptor) ? Made(copy) : copy;
}

EXPLORE_API int dup2(int descriptor, int wanted) noexcept {
    NoteClosed(wanted);
    const int copy = GetReal().dup2(descriptor, wanted);
    return copy >= 0 && MayWait(descriptor) ? Made(copy) : copy;
}

EXPLORE_API int dup3(int descriptor, int wanted, int flags) noexcept {
    NoteClosed(wanted);
    const int copy = GetReal().dup3(descriptor, wanted, flags);
    return copy >= 0 && MayWait(descriptor) ? Made(copy) : copy;
}
