// Sockets, their options, connecting and accepting, and waiting for descriptors.
#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/un.h>
#include <vector>

#include "net/net_support.h"

using nettest::ErrorsOf;
using nettest::Listener;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
using nettest::SignalStorm;
using nettest::Socket;

namespace {

int Option(VYX_SOCK_T hSocket, int iLevel, int iOption) {
    int iValue = -1;
    socklen_t nLength = sizeof iValue;
    EXPECT_EQ(getsockopt(hSocket, iLevel, iOption, &iValue, &nLength), 0);
    return iValue;
}

timeval TimeOption(VYX_SOCK_T hSocket, int iOption) {
    timeval value = {};
    socklen_t nLength = sizeof value;
    EXPECT_EQ(getsockopt(hSocket, SOL_SOCKET, iOption, &value, &nLength), 0);
    return value;
}

TEST(SocketOptions, ReachTheirLevelAndOption) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    const Socket udp(AF_INET, SOCK_DGRAM);
    int32_t iValue = 0;
    EXPECT_EQ(VYX_SetTTL(tcp, 77), 0);
    EXPECT_EQ(Option(tcp, IPPROTO_IP, IP_TTL), 77);
    EXPECT_EQ(VYX_GetTTL(tcp, &iValue), 0);
    EXPECT_EQ(iValue, 77);
    EXPECT_EQ(VYX_SetTOS(tcp, 0x10), 0);
    EXPECT_EQ(VYX_GetTOS(tcp, &iValue), 0);
    EXPECT_EQ(iValue, 0x10);
    EXPECT_EQ(VYX_SetMultiCastTTL(udp, 9), 0);
    EXPECT_EQ(Option(udp, IPPROTO_IP, IP_MULTICAST_TTL), 9);
    EXPECT_EQ(VYX_SetReuseAddr(tcp, 1), 0);
    EXPECT_NE(Option(tcp, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(VYX_SetNoDelay(tcp, 1), 0);
    EXPECT_NE(Option(tcp, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(VYX_SetNoDelay(tcp, 0), 0);
    EXPECT_EQ(Option(tcp, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(VYX_BroadCast(udp), 0);
    EXPECT_NE(Option(udp, SOL_SOCKET, SO_BROADCAST), 0);
    EXPECT_EQ(VYX_SetTTL(-1, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(SocketOptions, HopsOfIPv6) {
    const Socket six(AF_INET6, SOCK_DGRAM);
    if (six == VYX_INVALID_SOCKET)
        GTEST_SKIP() << "no IPv6 here";
    int32_t iValue = 0;
    EXPECT_EQ(VYX_SetTTL_V6(six, 33), 0);
    EXPECT_EQ(VYX_GetTTL_V6(six, &iValue), 0);
    EXPECT_EQ(iValue, 33);
    EXPECT_EQ(VYX_SetMultiCastTTL_V6(six, 5), 0);
    EXPECT_EQ(Option(six, IPPROTO_IPV6, IPV6_MULTICAST_HOPS), 5);
}

TEST(SocketOptions, TimeOutsAreNotScaled) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_SetTimeOut(tcp, 0, 2500), 0);
    // The kernel keeps its own ticks: 500 microseconds may come back as anything below a tick, never as half a second.
    EXPECT_EQ(TimeOption(tcp, SO_RCVTIMEO).tv_sec, 2);
    EXPECT_LT(TimeOption(tcp, SO_RCVTIMEO).tv_usec, 100000);
    EXPECT_EQ(TimeOption(tcp, SO_SNDTIMEO).tv_sec, 0);
    EXPECT_EQ(VYX_SetTimeOut(tcp, 7000, 0), 0);
    EXPECT_EQ(TimeOption(tcp, SO_SNDTIMEO).tv_sec, 7);
    EXPECT_EQ(TimeOption(tcp, SO_RCVTIMEO).tv_sec, 2) << "0 leaves it alone";
    EXPECT_EQ(VYX_SetTimeOut(-1, 1, 1), -1);
    EXPECT_EQ(VYX_SetTimeOut(-1, 0, 0), 0) << "nothing to do";
}

TEST(SocketOptions, BuffersAndLinger) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    int32_t iSend = 0;
    int32_t iRecv = 0;
    const int iBefore = Option(tcp, SOL_SOCKET, SO_SNDBUF);
    EXPECT_EQ(VYX_SetBuffSize(tcp, 0, 40000), 0);
    EXPECT_EQ(VYX_GetBuffSize(tcp, &iSend, &iRecv), 0);
    EXPECT_EQ(iSend, iBefore);
    EXPECT_GE(iRecv, 40000);
    EXPECT_EQ(VYX_GetBuffSize(tcp, nullptr, nullptr), 0);
    linger value = {};
    socklen_t nLength = sizeof value;
    EXPECT_EQ(VYX_LingerOn(tcp, 0x10007), 0);
    EXPECT_EQ(getsockopt(tcp, SOL_SOCKET, SO_LINGER, &value, &nLength), 0);
    EXPECT_TRUE(value.l_onoff != 0 && value.l_linger == 7) << "the low 16 bits count";
    EXPECT_EQ(VYX_LingerOff(tcp), 0);
    EXPECT_EQ(getsockopt(tcp, SOL_SOCKET, SO_LINGER, &value, &nLength), 0);
    EXPECT_EQ(value.l_onoff, 0);
}

TEST(Socket, NonBlockingAndClosing) {
    Pair pair;
    char szByte[1];
    int32_t iPending = -1;
    EXPECT_EQ(VYX_SetNonBlock(pair.server, 1), 0);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(VYX_SetNonBlock(pair.server, 0), 0);
    EXPECT_EQ(fcntl(pair.server, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(VYX_SetNonBlock(-1, 1), -1);
    EXPECT_EQ(VYX_Send(pair.client, "ab", 2), 2);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 1);
    EXPECT_EQ(VYX_Ioctl(pair.server, FIONREAD, &iPending), 0);
    EXPECT_EQ(iPending, 1);
    EXPECT_EQ(VYX_Send(pair.client, "a", -1), -1);
    EXPECT_EQ(errno, EINVAL);
    const int iKept = dup(pair.client); // the connection stays open unless it is shut down
    EXPECT_EQ(VYX_CloseSocket(pair.client.Release(), 1), 0);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 1);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 0) << "the end, because it was shut down first";
    close(iKept);
    EXPECT_EQ(VYX_CloseSocket(-1, 1), -1);
    EXPECT_EQ(VYX_Bind(pair.server, nullptr), -1);
}

TEST(Socket, AddressesOfBothEnds) {
    Pair pair;
    VYX_ADDR_T local;
    VYX_ADDR_T peer;
    memset(&local, 0, sizeof local);
    memset(&peer, 0, sizeof peer);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, &local, &peer), VYX_OK);
    VYX_ADDR_T other;
    memset(&other, 0, sizeof other);
    const VYX_ADDR_T server = LocalOf(pair.server);
    EXPECT_EQ(memcmp(&peer, &server, sizeof peer), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.server, nullptr, &other), VYX_OK);
    EXPECT_EQ(memcmp(&local, &other, sizeof local), 0);
    EXPECT_NE(VYX_GetAddrPort(&local), VYX_GetAddrPort(&peer));
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, nullptr, nullptr), VYX_ERROR);
    const Socket alone(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_GetAddrBySockFd(alone, &local, &peer), VYX_ERROR) << "it has no peer";
}

// A name of the local domain is longer than a record, and cut at its end.
TEST(Socket, AddressesOfBothEndsStayInsideTheRecords) {
    sockaddr_un names[2] = {};
    const Socket ends[] = {Socket(AF_UNIX, SOCK_STREAM), Socket(AF_UNIX, SOCK_STREAM)};
    for (int i = 0; i < 2; ++i) {
        names[i].sun_family = AF_UNIX;
        (void)snprintf(names[i].sun_path + 1, 100, "%ld %d %080d", static_cast<long>(getpid()), i, 0);
        ASSERT_EQ(bind(ends[i], reinterpret_cast<const sockaddr *>(&names[i]), sizeof names[i]), 0);
    }
    ASSERT_EQ(VYX_Listen(ends[0], 1), 0);
    ASSERT_EQ(connect(ends[1], reinterpret_cast<const sockaddr *>(&names[0]), sizeof names[0]), 0);
    struct {
        VYX_ADDR_T local;
        uint8_t byBehind[100];
        VYX_ADDR_T peer;
    } got;
    memset(&got, 0xC3, sizeof got);
    EXPECT_EQ(VYX_GetAddrBySockFd(ends[1], &got.local, &got.peer), VYX_OK);
    EXPECT_EQ(memcmp(&got.local, &names[1], sizeof got.local), 0);
    EXPECT_EQ(memcmp(&got.peer, &names[0], sizeof got.peer), 0);
    for (const uint8_t by : got.byBehind)
        ASSERT_EQ(by, 0xC3);
}

TEST(Connect, RefusedNullAndAlwaysBlockingAfterwards) {
    Socket client(AF_INET, SOCK_STREAM);
    VYX_ADDR_T nobody;
    {
        const Socket listener = Listener(AF_INET);
        nobody = LocalOf(listener);
    }
    (void)VYX_SetNonBlock(client, 1);
    int iResult = 0;
    const std::string said = ErrorsOf([&] { iResult = VYX_ConnectWithTimeOut(client, &nobody, LongTime()); });
    EXPECT_EQ(iResult, -1);
    EXPECT_EQ(said, "quelby !!! VYX_ConnectWithTimeOut getsockopt !iError return error, " +
                        std::to_string(EINPROGRESS) + ", Error\n\n")
        << "errno, not the socket's error";
    EXPECT_EQ(fcntl(client, F_GETFL) & O_NONBLOCK, 0) << "whatever it was before";
    EXPECT_EQ(VYX_ConnectWithTimeOut(client, nullptr, 10), -1);
    const Socket listener = Listener(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    Socket endless(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_ConnectWithTimeOut(endless, &addr, VYX_INFINITE), 0);
}

// A wait for one descriptor fails where none is allowed.
TEST(Connect, FailureToWaitIsTold) {
    const Socket listener = Listener(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    const Socket client(AF_INET, SOCK_STREAM);
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    const auto attempt = [&] {
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), -1);
        EXPECT_EQ(errno, EINVAL);
        setrlimit(RLIMIT_NOFILE, &before);
    };
    EXPECT_EQ(ErrorsOf(attempt), "quelby !!! VYX_ConnectWithTimeOut select/poll return error, " +
                                     std::to_string(EINVAL) + ", Error\n\n");
    (void)ErrorsOf([&] {
        (void)close(STDERR_FILENO);
        attempt(); // errno is not that of the line nobody takes
    });
    EXPECT_EQ(fcntl(client, F_GETFL) & O_NONBLOCK, 0);
}

TEST(Connect, RefusedAtOnceLooksConnected) {
    const Socket client(AF_INET, SOCK_STREAM);
    const VYX_ADDR_T otherFamily = Loopback(AF_INET6, 9);
    VYX_ADDR_T peer;
    EXPECT_EQ(VYX_ConnectWithTimeOut(client, &otherFamily, LongTime()), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(client, nullptr, &peer), VYX_ERROR) << "which tells";
}

TEST(Connect, TimesOutAtAPeerThatDoesNotAnswer) {
    // A full backlog: the kernel leaves further attempts unanswered.
    const Socket listener = Listener(AF_INET, 0);
    const VYX_ADDR_T addr = LocalOf(listener);
    std::vector<Socket> waiting;
    int iResult = 0;
    double fMs = 0;
    for (int i = 0; i < 10 && iResult == 0; ++i) {
        waiting.emplace_back(AF_INET, SOCK_STREAM);
        fMs = support::MillisecondsOf([&] { iResult = VYX_ConnectWithTimeOut(waiting.back(), &addr, 60); });
    }
    EXPECT_EQ(iResult, -1);
    EXPECT_GE(fMs, 59.0);
}

TEST(Accept, TimesOutAndTellsThePeer) {
    const Socket listener = Listener(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    EXPECT_EQ(VYX_Accept(listener, nullptr, 0), -1);
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(VYX_Accept(listener, nullptr, 50), -1); }), 49.0);
    Socket client(AF_INET, SOCK_STREAM);
    ASSERT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), 0);
    VYX_ADDR_T peer;
    memset(&peer, 0, sizeof peer);
    const Socket server(VYX_Accept(listener, &peer, VYX_INFINITE));
    const VYX_ADDR_T own = LocalOf(client);
    EXPECT_EQ(VYX_GetAddrPort(&peer), VYX_GetAddrPort(&own));
    EXPECT_EQ(VYX_Accept(-1, nullptr, 10), -1);
}

TEST(Accept, OutOfDescriptors) {
    const Socket listener = Listener(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    Socket client(AF_INET, SOCK_STREAM);
    ASSERT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), 0);
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    few.rlim_cur = 3;
    setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_EQ(VYX_Accept(listener, nullptr, 100), -1);
    EXPECT_EQ(VYX_CreateSocket(AF_INET, SOCK_STREAM, 0), -1);
    EXPECT_EQ(errno, EMFILE);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_NE(Socket(VYX_Accept(listener, nullptr, LongTime())), VYX_INVALID_SOCKET);
}

TEST(Poll, TimeLeftIsTold) {
    Pair pair;
    pollfd fd = {pair.server, POLLRDNORM, 0};
    uint32_t nTimeOut = 60;
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(VYX_PollEx(&fd, 1, &nTimeOut), 0); }), 59.0);
    EXPECT_LE(nTimeOut, 2U);
    nTimeOut = 0;
    EXPECT_EQ(VYX_PollEx(&fd, 1, &nTimeOut), 0);
    ASSERT_EQ(VYX_Send(pair.client, "a", 1), 1);
    nTimeOut = LongTime();
    EXPECT_EQ(VYX_PollEx(&fd, 1, &nTimeOut), 1);
    EXPECT_GT(nTimeOut, LongTime() / 2);
    nTimeOut = VYX_INFINITE;
    EXPECT_EQ(VYX_PollEx(&fd, 1, &nTimeOut), 1);
    EXPECT_EQ(nTimeOut, VYX_INFINITE);
    EXPECT_EQ(VYX_PollEx(&fd, 1, nullptr), 1);
    EXPECT_EQ(VYX_Poll(&fd, 1, -1), 1);
}

TEST(Poll, TimeLeftNeverFallsBelowZero) {
    Pair pair;
    pollfd fd = {pair.server, POLLRDNORM, 0};
    const SignalStorm storm;
    for (const uint32_t nAsked : {1U, 5U, 60U}) {
        uint32_t nTimeOut = nAsked;
        double fMs = 0;
        int32_t iResult = 1;
        fMs = support::MillisecondsOf([&] { iResult = VYX_PollEx(&fd, 1, &nTimeOut); });
        EXPECT_TRUE(iResult == 0 || (iResult == -1 && errno == EINTR)) << iResult;
        EXPECT_LE(nTimeOut, nAsked);
        EXPECT_GE(fMs, nAsked / 2.0 - 1) << "signals use the time up once";
    }
    EXPECT_EQ(VYX_Poll(&fd, 1, static_cast<int32_t>(LongTime())), -1) << "once, without a second try";
}

TEST(Select, KeepsOrLowersTheTime) {
    Pair pair;
    fd_set set;
    const auto only = [&] {
        FD_ZERO(&set);
        FD_SET(static_cast<int>(pair.server), &set);
        return &set;
    };
    timeval time = {0, 30000};
    EXPECT_EQ(VYX_Select(pair.server + 1, only(), nullptr, nullptr, &time), 0);
    EXPECT_TRUE(time.tv_sec == 0 && time.tv_usec == 30000);
    ASSERT_EQ(VYX_Send(pair.client, "a", 1), 1);
    EXPECT_EQ(VYX_Select(pair.server + 1, only(), nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(VYX_FdIsSet(pair.server, &set), static_cast<int32_t>(1U << (pair.server % 32)));
    EXPECT_EQ(VYX_FdIsSet(pair.client, &set), 0);
    EXPECT_EQ(VYX_SelectEx(pair.server + 1, only(), nullptr, nullptr, &time), 1);
    const uint32_t words[] = {8, 2};
    EXPECT_EQ(VYX_FdIsSet(3, words), 8) << "the bit, not 1";
    EXPECT_EQ(VYX_FdIsSet(33, words), 2);
    EXPECT_EQ(VYX_FdIsSet(-1, words), 0) << "and nothing is read far away";
}

TEST(Poll, DescriptorsAboveWhatSelectKnows) {
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit many = before;
    many.rlim_cur = 2100;
    if (before.rlim_max < 2100 || setrlimit(RLIMIT_NOFILE, &many) != 0)
        GTEST_SKIP() << "the system allows no descriptor above 2000";
    Pair pair;
    const Socket high(fcntl(pair.server, F_DUPFD, 2000));
    ASSERT_GE(static_cast<int>(high), 2000);
    ASSERT_EQ(VYX_Send(pair.client, "abc", 3), 3);
    char szBytes[3];
    EXPECT_EQ(VYX_Recvn(high, szBytes, 3, LongTime()), 3);
    EXPECT_EQ(VYX_Sendn(high, "d", 1, LongTime()), 1);
    setrlimit(RLIMIT_NOFILE, &before);
}

} // namespace
