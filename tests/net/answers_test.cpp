// What becomes of the platform's answers: a socket, a host name and a clock that the tests make up, put in at link time
// (CMakeLists.txt). Built twice, the second time with Darwin's way to send and its kernel's.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <stdexcept>

#include "net/net_support.h"
#include "support/calls.h"

namespace {

#if defined(VYX_TESTS_DARWIN)
constexpr bool kSendsLookAtFlags = false;
#else
constexpr bool kSendsLookAtFlags = true;
#endif

constexpr int32_t kSize = 8;               // of what is to be transferred
constexpr uint32_t kInterruptedAfter = 30; // milliseconds
constexpr VYX_SOCK_T kSocket = 1000;       // nothing ever reaches a real one
constexpr VYX_SOCK_T kSends = 1002;        // another
constexpr int kBlocking = O_RDWR;          // the socket's mode

// What a transfer answers: bytes, or an error number negated.
struct Answers {
    short iEvents;          // poll reports them at once; without any it sleeps
    int iFirst;             // the first transfer
    int iThen;              // the others
    uint32_t nLate = 0;     // milliseconds that each sleep lasts longer
    uint32_t nSlow = 0;     // milliseconds that each transfer takes
    int iInterruptions = 0; // so many polls are interrupted
    int iPollError = 0;
    int iSocketError = 0; // SO_ERROR
    int iFailingOption = 0;
};

struct Platform {
    Answers answers;
    uint32_t nNow = 0xFFFFFFF0; // milliseconds; the tick wraps around
    int iFlags = kBlocking;
    int iPolls = 0;
    int iTransfers = 0;
    bool bBlocked = false; // a call would have waited in the kernel
    std::string options;   // set and asked for
    int iValues = 0;       // those asked for are 1, 2, ...
};
Platform s_platform;

ssize_t Transfer(size_t nLen, int iFlags, bool bMayBlock) {
    EXPECT_EQ(iFlags & ~MSG_DONTWAIT, 0);
    const Answers &answers = s_platform.answers;
    const int iAnswer = s_platform.iTransfers++ == 0 ? answers.iFirst : answers.iThen;
    s_platform.nNow += answers.nSlow;
    s_platform.bBlocked |= iAnswer == -EAGAIN && bMayBlock && (s_platform.iFlags & O_NONBLOCK) == 0;
    if (iAnswer >= 0)
        return std::min(iAnswer, static_cast<int>(nLen));
    errno = -iAnswer;
    return -1;
}

int Poll(pollfd *pFds, nfds_t nCount, int iTimeOut) {
    Answers &answers = s_platform.answers;
    if (++s_platform.iPolls > 10000)
        throw std::runtime_error("it waits for ever");
    EXPECT_LE(nCount, 1U);
    const auto nTimeOut = static_cast<uint32_t>(iTimeOut); // for ever is long enough
    if (answers.iInterruptions > 0) {
        --answers.iInterruptions;
        s_platform.nNow += std::min(nTimeOut, kInterruptedAfter);
        errno = EINTR;
        return -1;
    }
    if (nCount > 0 && answers.iPollError != 0) {
        errno = answers.iPollError;
        return -1;
    }
    if (nCount > 0 && answers.iEvents != 0) {
        pFds->revents = static_cast<short>(answers.iEvents & (pFds->events | POLLERR | POLLHUP | POLLNVAL));
        return 1;
    }
    s_platform.nNow += nTimeOut + answers.nLate;
    return 0;
}

// An option as it is noted: set to a value, or asked for.
std::string Named(int iLevel, int iOption) {
    return " " + std::to_string(iLevel) + "/" + std::to_string(iOption) + " ";
}
template <class Value>
std::string Set(int iLevel, int iOption, const Value &value) {
    return Named(iLevel, iOption) + std::string(reinterpret_cast<const char *>(&value), sizeof value);
}
std::string Get(int iLevel, int iOption, socklen_t nLength) {
    return Named(iLevel, iOption) + std::to_string(nLength);
}

} // namespace

extern "C" {
uint32_t __wrap_VYX_GetTimeTick() {
    return s_platform.nNow;
}
int __wrap_poll(pollfd *pFds, nfds_t nCount, int iTimeOut) {
    return Poll(pFds, nCount, iTimeOut);
}
ssize_t __wrap_send(int /*iFd*/, const void * /*pBuf*/, size_t nLen, int iFlags) {
    return Transfer(nLen, iFlags, !kSendsLookAtFlags || (iFlags & MSG_DONTWAIT) == 0);
}
ssize_t __wrap_recv(int /*iFd*/, void * /*pBuf*/, size_t nLen, int iFlags) {
    return Transfer(nLen, iFlags, (iFlags & MSG_DONTWAIT) == 0);
}
int __wrap_fcntl64(int /*iFd*/, int iCommand, int iFlags) {
    if (iCommand == F_SETFL)
        s_platform.iFlags = iFlags;
    return iCommand == F_SETFL ? 0 : s_platform.iFlags;
}
int __wrap_fcntl(int iFd, int iCommand, int iFlags) {
    return __wrap_fcntl64(iFd, iCommand, iFlags);
}
int __wrap_connect(int /*iFd*/, const sockaddr * /*pAddr*/, socklen_t /*nLength*/) {
    s_platform.bBlocked = (s_platform.iFlags & O_NONBLOCK) == 0;
    errno = EINPROGRESS;
    return -1;
}
int __wrap_getsockopt(int iFd, int iLevel, int iOption, void *pValue, socklen_t *pLength) {
    const bool bError = iLevel == SOL_SOCKET && iOption == SO_ERROR;
    *static_cast<int *>(pValue) = bError ? s_platform.answers.iSocketError : ++s_platform.iValues;
    s_platform.options += Get(iLevel, iOption, *pLength);
    return iFd == kSocket ? 0 : -1;
}
int __wrap_setsockopt(int iFd, int iLevel, int iOption, const void *pValue, socklen_t nLength) {
    s_platform.options += Named(iLevel, iOption) + std::string(static_cast<const char *>(pValue), nLength);
    return iFd == kSocket && iOption != s_platform.answers.iFailingOption ? 0 : -1;
}
int __wrap_accept(int /*iFd*/, sockaddr * /*pAddr*/, socklen_t * /*pLength*/) {
    return 7;
}
int __wrap_gethostname(char *szBuf, size_t nLen) {
    szBuf[nLen - 1] = '\0'; // as Darwin's
    return 0;
}
}

namespace {

// A call with the answers of a new platform: its result, and the milliseconds that it took.
template <class Call>
std::pair<int32_t, uint32_t> Ask(const Answers &answers, Call call) {
    s_platform = {};
    s_platform.answers = answers;
    const uint32_t nStart = s_platform.nNow;
    const int32_t iResult = call();
    return {iResult, s_platform.nNow - nStart};
}

// The time-out that is left comes with the result.
TEST(Answers, PollExCountsTheTimeAcrossInterruptions) {
    const struct {
        uint32_t nTimeOut;
        Answers answers;
        int32_t iResult;
        uint32_t nTook;
        uint32_t nLeft;
    } cases[] = {
        {0, {0, 0, 0}, 0, 0, 0},
        {100, {0, 0, 0}, 0, 100, 0},
        {100, {POLLOUT, 0, 0}, 1, 0, 100},
        {100, {0, 0, 0, 7}, 0, 107, 0},
        {100, {0, 0, 0, 0, 0, 2}, 0, 100, 0},
        {100, {POLLOUT, 0, 0, 0, 0, 2}, 1, 60, 40},
        {100, {POLLOUT, 0, 0, 0, 0, 9}, -1, 100, 0},
        {100, {0, 0, 0, 0, 0, 0, EINVAL}, -1, 0, 100},
        {100,
         {0, 0, 0, static_cast<uint32_t>(-150)},
         0,
         static_cast<uint32_t>(-50),
         150}, // the clock was set back
        {0x7FFFFFFF, {POLLOUT, 0, 0, 0, 0, 1}, 1, 30, 0x7FFFFFFF - 30},
        {0x80000000, {POLLOUT, 0, 0}, 1, 0, 0},
        {0x80000000, {POLLOUT, 0, 0, 0, 0, 1}, -1, 30, 0},
        {VYX_INFINITE, {POLLOUT, 0, 0, 0, 0, 9}, 1, 270, VYX_INFINITE},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        pollfd fd = {kSocket, POLLOUT, 0};
        uint32_t nLeft = test.nTimeOut;
        const auto [iResult, nTook] = Ask(test.answers, [&] { return VYX_PollEx(&fd, 1, &nLeft); });
        EXPECT_EQ(iResult, test.iResult);
        EXPECT_EQ(nTook, test.nTook);
        EXPECT_EQ(nLeft, test.nLeft);
    }
    pollfd fd = {kSocket, POLLOUT, 0};
    const Answers thrice = {POLLOUT, 0, 0, 0, 0, 3};
    EXPECT_EQ(Ask(thrice, [&] { return VYX_PollEx(&fd, 1, nullptr); }), std::make_pair(1, 90U));
}

int32_t Sendn(uint32_t nTimeOut) {
    return VYX_Sendn(kSends, "12345678", kSize, nTimeOut);
}
int32_t Recvn(uint32_t nTimeOut) {
    char szBytes[kSize];
    return VYX_Recvn(kSocket, szBytes, kSize, nTimeOut);
}
int32_t Recv(uint32_t nTimeOut) {
    char szBytes[kSize];
    return VYX_RecvWithTimeOut(kSocket, szBytes, kSize, nTimeOut);
}

TEST(Answers, TransfersEndWithTheirTimeOrTheirPeer) {
    constexpr short kIn = POLLRDNORM;
    const struct {
        const char *szName;
        int32_t (*pfnCall)(uint32_t nTimeOut);
        uint32_t nTimeOut;
        Answers answers;
        int32_t iResult;
        uint32_t nTook;
    } cases[] = {
        {"room", Sendn, 100, {0, kSize, 0}, kSize, 0},
        {"pieces", Sendn, 100, {POLLOUT, 3, 3}, kSize, 0},
        {"a full buffer", Sendn, 100, {0, 3, -EAGAIN}, 3, 100},
        {"one piece without time", Sendn, 0, {POLLOUT, 3, 3}, 3, 0},
        {"room without time, seen late", Sendn, 0, {POLLOUT, -EAGAIN, 3}, 3, 0},
        {"transfers that take time", Sendn, 100, {POLLOUT, 1, 1, 0, 30}, 5, 150},
        {"more time than poll knows", Sendn, 0x80000000, {POLLOUT, 3, 3}, 3, 0},
        {"the same, waited for", Sendn, 0x80000000, {POLLOUT, -EAGAIN, 3}, 3, 0},
        {"a signal in a send", Sendn, VYX_INFINITE, {POLLOUT, -EINTR, kSize}, kSize, 0},
        {"another was quicker", Sendn, VYX_INFINITE, {POLLOUT, -EWOULDBLOCK, kSize}, kSize, 0},
        {"a peer that is gone", Sendn, 5000, {POLLHUP, -EPIPE, 0}, 0, 0},
        {"the same, seen by poll", Sendn, 5000, {POLLHUP, -EAGAIN, -EPIPE}, 0, 0},
        {"the same, without a limit", Sendn, VYX_INFINITE, {POLLHUP, -EAGAIN, -EPIPE}, 0, 0},
        {"an error that is none", Sendn, 1000, {POLLERR, -EAGAIN, -EAGAIN, 5}, 0, 1002},
        {"the same, then room", Sendn, VYX_INFINITE, {POLLERR, -EAGAIN, kSize}, kSize, 0},
        {"a poll that fails", Sendn, 50, {0, -EAGAIN, 0, 0, 0, 0, ENOMEM}, 0, 50},
        {"the same, without a limit", Sendn, VYX_INFINITE, {0, 3, 0, 0, 0, 0, ENOMEM}, 3, 0},
        {"a send that takes nothing", Sendn, VYX_INFINITE, {POLLOUT, 0, 1}, 0, 0},
        {"no socket", Sendn, 100, {0, -EBADF, 0}, 0, 100},
        {"a closed descriptor", Sendn, VYX_INFINITE, {POLLNVAL, -EBADF, -EBADF}, 0, 0},

        {"data", Recvn, 100, {0, kSize, 0}, kSize, 0},
        {"data in pieces", Recvn, VYX_INFINITE, {kIn, 3, 3}, kSize, 0},
        {"half", Recvn, 100, {0, 4, -EAGAIN}, 4, 100},
        {"half without time", Recvn, 0, {kIn, 4, 4}, 4, 0},
        {"nothing", Recvn, 100, {0, -EAGAIN, 0, 7}, 0, 107},
        {"signals until the time is out", Recvn, 60, {0, 3, -EAGAIN, 0, 0, 9}, -1, 60},
        {"a signal in a receive", Recvn, VYX_INFINITE, {kIn, -EINTR, kSize}, kSize, 0},
        {"the end after half", Recvn, 100, {kIn, 4, 0}, -1, 0},
        {"a reset that poll shows as an end", Recvn, 100, {POLLHUP, 4, -ECONNRESET}, -1, 0},
        {"data behind an end", Recvn, 100, {POLLHUP, 4, 4}, kSize, 0},
        {"an error that is none", Recvn, 100, {POLLERR, 4, -EAGAIN, 5}, 4, 102},
        {"a poll that fails", Recvn, 50, {0, 3, 3, 0, 0, 0, ENOMEM}, -1, 0},
        {"no socket", Recvn, 100, {0, -EBADF, 0}, 0, 100},
        {"another thing than a socket", Recvn, 100, {0, -ENOTSOCK, 0}, 0, 100},
        {"a closed descriptor", Recvn, VYX_INFINITE, {POLLNVAL, -EBADF, -EBADF}, -1, 0},

        {"as much as there is", Recv, 100, {kIn, 1, 0}, 1, 0},
        {"nothing", Recv, 100, {0, 3, 0}, -1, 100},
        {"another was quicker", Recv, 100, {kIn, -EAGAIN, 3}, 3, 0},
        {"data behind an end", Recv, 100, {POLLHUP, 3, 0}, 3, 0},
        {"a reset", Recv, VYX_INFINITE, {POLLHUP, -ECONNRESET, 3}, -1, 0},
        {"an error that is none", Recv, 100, {POLLERR, -EAGAIN, -EAGAIN, 5}, -1, 102},
        {"a poll that fails", Recv, 50, {0, 3, 3, 0, 0, 0, ENOMEM}, -1, 0},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        const auto [iResult, nTook] = Ask(test.answers, [&] { return test.pfnCall(test.nTimeOut); });
        EXPECT_EQ(iResult, test.iResult);
        EXPECT_EQ(nTook, test.nTook);
        EXPECT_EQ(s_platform.bBlocked, test.nTimeOut == VYX_INFINITE && test.answers.iFirst == -EAGAIN);
        EXPECT_EQ(s_platform.iFlags, kBlocking);
    }
}

TEST(Answers, TransfersAskOnlyWhenTheyMustWait) {
    const auto answer = [] {
        char szBytes[kSize];
        return VYX_Recvn(kSends, szBytes, kSize, 100);
    };
    (void)Ask({POLLOUT, kSize, 0}, [] { return Sendn(100); });
    EXPECT_EQ(s_platform.iPolls, 0);
    (void)Ask({POLLRDNORM, kSize, 0}, [] { return Recvn(100); });
    EXPECT_EQ(s_platform.iPolls, 0);
    EXPECT_EQ(Ask({POLLRDNORM, kSize, 0}, answer).first, kSize);
    EXPECT_TRUE(s_platform.iPolls == 1 && s_platform.iTransfers == 1) << "an answer takes a while";
    EXPECT_EQ(Ask({POLLRDNORM, kSize, 0}, answer).first, kSize);
    EXPECT_EQ(s_platform.iPolls, 0) << "what follows it is there";
    // No bytes at all, and even fewer.
    EXPECT_EQ(Ask({0, 0, 0}, [] { return VYX_Sendn(kSocket, nullptr, 0, 100); }), std::make_pair(0, 100U));
    EXPECT_EQ(Ask({0, 0, 0}, [] { return VYX_Recvn(kSocket, nullptr, 0, 100); }), std::make_pair(0, 100U));
    s_platform = {};
    EXPECT_EQ(VYX_Sendn(kSocket, nullptr, -1, 100), 0);
    EXPECT_EQ(VYX_Recvn(kSocket, nullptr, -1, 100), -1);
    EXPECT_EQ(VYX_RecvWithTimeOut(kSocket, nullptr, -1, 100), -1);
    EXPECT_EQ(s_platform.iPolls + s_platform.iTransfers, 0);
}

TEST(Answers, ConnectTellsOfRefusalHoweverPollShowsIt) {
    const std::string start = "quelby !!! VYX_ConnectWithTimeOut ";
    const std::string refused =
        start + "getsockopt !iError return error, " + std::to_string(EINPROGRESS) + ", Error\n\n";
    const std::string noPoll = start + "select/poll return error, " + std::to_string(ENOMEM) + ", Error\n\n";
    const struct {
        Answers answers;
        int32_t iResult;
        uint32_t nTook;
        std::string said;
    } cases[] = {
        {{POLLOUT, 0, 0}, 0, 0, ""},
        {{0, 0, 0}, -1, 100, ""},
        {{POLLOUT | POLLHUP | POLLERR, 0, 0, 0, 0, 0, 0, ECONNREFUSED}, -1, 0, refused},
        {{POLLHUP, 0, 0, 0, 0, 0, 0, ECONNREFUSED}, -1, 0, refused},
        {{POLLHUP, 0, 0}, -1, 0, ""},
        {{0, 0, 0, 0, 0, 0, ENOMEM}, -1, 0, noPoll},
    };
    const VYX_ADDR_T addr = nettest::Loopback(AF_INET, 9);
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        std::pair<int32_t, uint32_t> answer;
        const std::string said = support::ErrorsOf(
            [&] { answer = Ask(test.answers, [&] { return VYX_ConnectWithTimeOut(kSocket, &addr, 100); }); });
        EXPECT_EQ(answer, std::make_pair(test.iResult, test.nTook));
        EXPECT_EQ(said, test.said);
        EXPECT_FALSE(s_platform.bBlocked);
        EXPECT_EQ(s_platform.iFlags, kBlocking);
    }
    const auto fail = [&] {
        (void)Ask(cases[5].answers, [&] { return VYX_ConnectWithTimeOut(kSocket, &addr, 100); });
    };
    EXPECT_EQ(support::ErrnoOf(fail), ENOMEM) << "not that of the line nobody takes";
}

TEST(Answers, AcceptWantsAConnection) {
    const auto accept = [] { return VYX_Accept(kSocket, nullptr, 100); };
    EXPECT_EQ(Ask({POLLRDNORM, 0, 0}, accept).first, 7);
    EXPECT_EQ(Ask({POLLHUP, 0, 0}, accept).first, -1);
    EXPECT_EQ(Ask({0, 0, 0}, accept), std::make_pair(-1, 100U));
}

template <int32_t (*Change)(VYX_SOCK_T, const VYX_ADDR_T *, const VYX_ADDR_T *), int Family>
int32_t Member(VYX_SOCK_T hSocket) {
    VYX_ADDR_T group = nettest::Loopback(Family);
    const VYX_ADDR_T local = nettest::Loopback(AF_INET);
    if (Family == AF_INET6)
        group.in6.sin6_flowinfo = 5; // the interface
    return Change(hSocket, &local, &group);
}
template <int32_t (*Ask)(VYX_SOCK_T, int32_t *)>
int32_t Value(VYX_SOCK_T hSocket) {
    int32_t iValue = 0;
    return Ask(hSocket, &iValue) == 0 ? iValue : -1;
}
int32_t BuffSizes(VYX_SOCK_T hSocket) {
    int32_t iSend = 0;
    int32_t iRecv = 0;
    return VYX_GetBuffSize(hSocket, &iSend, &iRecv) == 0 ? 10 * iRecv + iSend : -1;
}

timeval Time(int iSeconds, int iMicros) {
    timeval time = {};
    time.tv_sec = iSeconds;
    time.tv_usec = iMicros;
    return time;
}

TEST(Answers, OptionsReachTheirLevelAndOption) {
    using H = VYX_SOCK_T;
    constexpr int kIp = IPPROTO_IP;
    constexpr int kIp6 = IPPROTO_IPV6;
    constexpr int kSol = SOL_SOCKET;
    const ip_mreq member4 = {{htonl(INADDR_LOOPBACK)}, {htonl(INADDR_LOOPBACK)}};
    const ipv6_mreq member6 = {in6addr_loopback, 5};
    const struct {
        int32_t (*pfnCall)(VYX_SOCK_T);
        std::string options;
        int32_t iResult = 0;
    } cases[] = {
        {[](H h) { return VYX_SetTTL(h, 77); }, Set(kIp, IP_TTL, 77)},
        {[](H h) { return VYX_SetTTL_V6(h, 77); }, Set(kIp6, IPV6_UNICAST_HOPS, 77)},
        {[](H h) { return VYX_SetMultiCastTTL(h, 77); }, Set(kIp, IP_MULTICAST_TTL, 77)},
        {[](H h) { return VYX_SetMultiCastTTL_V6(h, 77); }, Set(kIp6, IPV6_MULTICAST_HOPS, 77)},
        {[](H h) { return VYX_SetTOS(h, 77); }, Set(kIp, IP_TOS, 77)},
        {[](H h) { return VYX_SetReuseAddr(h, 7); }, Set(kSol, SO_REUSEADDR, 7)},
        {[](H h) { return VYX_SetNoDelay(h, 0); }, Set(IPPROTO_TCP, TCP_NODELAY, 0)},
        {[](H h) { return VYX_BroadCast(h); }, Set(kSol, SO_BROADCAST, 1)},
        {[](H h) { return VYX_LingerOff(h); }, Set(kSol, SO_LINGER, linger{0, 0})},
        {[](H h) { return VYX_LingerOn(h, 0x1FFFF); }, Set(kSol, SO_LINGER, linger{1, 0xFFFF})},
        {[](H h) { return VYX_SetBuffSize(h, 7, 8); }, Set(kSol, SO_RCVBUF, 8) + Set(kSol, SO_SNDBUF, 7)},
        {[](H h) { return VYX_SetBuffSize(h, 0, 8); }, Set(kSol, SO_RCVBUF, 8)},
        {[](H h) { return VYX_SetBuffSize(h, 7, 0); }, Set(kSol, SO_SNDBUF, 7)},
        {[](H h) { return VYX_SetTimeOut(h, 0, 2997); }, Set(kSol, SO_RCVTIMEO, Time(2, 997))},
        {[](H h) { return VYX_SetTimeOut(h, 1000, 0); }, Set(kSol, SO_SNDTIMEO, Time(1, 0))},
        {Value<VYX_GetTTL>, Get(kIp, IP_TTL, 8), 1},
        {Value<VYX_GetTTL_V6>, Get(kIp6, IPV6_UNICAST_HOPS, 8), 1},
        {Value<VYX_GetTOS>, Get(kIp, IP_TOS, 4), 1},
        {BuffSizes, Get(kSol, SO_RCVBUF, 4) + Get(kSol, SO_SNDBUF, 4), 12},
        {Member<VYX_JoinMultiCastGroup, AF_INET>, Set(kIp, IP_ADD_MEMBERSHIP, member4)},
        {Member<VYX_LeaveMultiCastGroup, AF_INET>, Set(kIp, IP_DROP_MEMBERSHIP, member4)},
        {Member<VYX_JoinMultiCastGroup, AF_INET6>, Set(kIp6, IPV6_JOIN_GROUP, member6)},
        {Member<VYX_LeaveMultiCastGroup, AF_INET6>, Set(kIp6, IPV6_LEAVE_GROUP, member6)},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        EXPECT_EQ(Ask({}, [&] { return test.pfnCall(kSocket); }).first, test.iResult);
        EXPECT_EQ(s_platform.options, test.options);
        EXPECT_EQ(Ask({}, [&] { return test.pfnCall(kSocket + 1); }).first, -1);
        EXPECT_EQ(s_platform.options, test.options);
    }
    const auto both = [] { return VYX_SetTimeOut(kSocket, 1, 1); };
    EXPECT_EQ(Ask({0, 0, 0}, both).first, 0);
    EXPECT_EQ(Ask({0, 0, 0, 0, 0, 0, 0, 0, SO_RCVTIMEO}, both).first, -1);
    EXPECT_EQ(Ask({0, 0, 0, 0, 0, 0, 0, 0, SO_SNDTIMEO}, both).first, -1);
    // Nothing to ask for.
    EXPECT_EQ(VYX_GetBuffSize(-1, nullptr, nullptr) + VYX_SetBuffSize(-1, 0, 0) + VYX_SetTimeOut(-1, 0, 0),
              0);
    const auto join = VYX_JoinMultiCastGroup;
    const VYX_ADDR_T local = nettest::Loopback(AF_INET);
    const VYX_ADDR_T other = {};
    EXPECT_TRUE(join(kSocket, &local, &other) == -1 && join(kSocket, &local, nullptr) == -1 &&
                join(kSocket, nullptr, &local) == -1);
}

TEST(Answers, HostNameOfNoRoom) {
    char szName[] = "xy";
    EXPECT_EQ(VYX_GetHostName(szName + 1, 0), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_STREQ(szName, "xy") << "the platform would write in front of it";
    EXPECT_EQ(VYX_GetHostName(szName, 1), 0);
}

} // namespace
