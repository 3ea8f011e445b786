// What becomes of the platform's answers: a socket, a host name and a clock that the tests make up, put in at link time
// (CMakeLists.txt). Built twice, the second time with Darwin's way to send and its kernel's.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>

#include "net/net_support.h"

namespace {

#if defined(VYX_TESTS_DARWIN)
constexpr bool kSendsLookAtFlags = false;
#else
constexpr bool kSendsLookAtFlags = true;
#endif

constexpr int32_t kSize = 8;               // of what is to be transferred
constexpr uint32_t kInterruptedAfter = 30; // milliseconds
constexpr VYX_SOCK_T kSocket = 1000;       // nothing ever reaches a real one
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
};

struct Platform {
    Answers answers;
    uint32_t nNow = 0xFFFFFFF0; // milliseconds; the tick wraps around
    int iFlags = kBlocking;
    int iPolls = 0;
    int iTransfers = 0;
    bool bBlocked = false; // a transfer would have waited in the kernel
};
Platform s_platform;

ssize_t Transfer(size_t nLen, bool bMayBlock) {
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
        pFds->revents = static_cast<short>(answers.iEvents & (pFds->events | POLLERR | POLLHUP));
        return 1;
    }
    s_platform.nNow += nTimeOut + answers.nLate;
    return 0;
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
    return Transfer(nLen, !kSendsLookAtFlags || (iFlags & MSG_DONTWAIT) == 0);
}
ssize_t __wrap_recv(int /*iFd*/, void * /*pBuf*/, size_t nLen, int iFlags) {
    return Transfer(nLen, (iFlags & MSG_DONTWAIT) == 0);
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
    errno = EINPROGRESS;
    return -1;
}
int __wrap_getsockopt(int /*iFd*/, int iLevel, int iOption, void *pValue, socklen_t * /*pLength*/) {
    *static_cast<int *>(pValue) =
        iLevel == SOL_SOCKET && iOption == SO_ERROR ? s_platform.answers.iSocketError : -1;
    return 0;
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
    return VYX_Sendn(kSocket, "12345678", kSize, nTimeOut);
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

        {"as much as there is", Recv, 100, {kIn, 3, 0}, 3, 0},
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

// There is nobody who waits, or data come in one piece: nothing is asked beforehand.
TEST(Answers, TransfersAskOnlyWhenTheyMustWait) {
    (void)Ask({POLLOUT, kSize, 0}, [] { return Sendn(100); });
    EXPECT_EQ(s_platform.iPolls, 0);
    (void)Ask({POLLRDNORM, kSize, 0}, [] { return Recvn(100); });
    EXPECT_EQ(s_platform.iPolls, 0);
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
        const std::string said = nettest::ErrorsOf(
            [&] { answer = Ask(test.answers, [&] { return VYX_ConnectWithTimeOut(kSocket, &addr, 100); }); });
        EXPECT_EQ(answer, std::make_pair(test.iResult, test.nTook));
        EXPECT_EQ(said, test.said);
        EXPECT_EQ(s_platform.iFlags, kBlocking);
    }
    const std::string none = nettest::ErrorsOf([&] {
        (void)close(STDERR_FILENO);
        (void)Ask(cases[5].answers, [&] { return VYX_ConnectWithTimeOut(kSocket, &addr, 100); });
        EXPECT_EQ(errno, ENOMEM) << "not that of the line nobody takes";
    });
    EXPECT_EQ(none, "");
}

TEST(Answers, AcceptWantsAConnection) {
    const auto accept = [] { return VYX_Accept(kSocket, nullptr, 100); };
    EXPECT_EQ(Ask({POLLRDNORM, 0, 0}, accept).first, 7);
    EXPECT_EQ(Ask({POLLHUP, 0, 0}, accept).first, -1);
    EXPECT_EQ(Ask({0, 0, 0}, accept), std::make_pair(-1, 100U));
}

TEST(Answers, HostNameOfNoRoom) {
    char szName[] = "xy";
    EXPECT_EQ(VYX_GetHostName(szName + 1, 0), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_STREQ(szName, "xy") << "the platform would write in front of it";
    EXPECT_EQ(VYX_GetHostName(szName, 1), 0);
}

} // namespace
