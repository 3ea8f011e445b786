// Sockets, their options, connecting and accepting, and waiting for descriptors.
#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <vector>

#include "net/net_support.h"

using nettest::DescriptorLimit;
using nettest::Listener;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
using nettest::SignalStorm;
using nettest::Socket;

namespace {

template <class Value = int>
Value Option(VYX_SOCK_T hSocket, int iLevel, int iOption) {
    Value value = {};
    socklen_t nLength = sizeof value;
    EXPECT_EQ(getsockopt(hSocket, iLevel, iOption, &value, &nLength), 0);
    return value;
}

TEST(SocketOptions, ReachTheirLevelAndOption) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    const Socket udp(AF_INET, SOCK_DGRAM);
    const Socket six(AF_INET6, SOCK_DGRAM);
    EXPECT_EQ(VYX_SetReuseAddr(tcp, 1), 0);
    EXPECT_NE(Option(tcp, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(VYX_SetNoDelay(tcp, 1), 0);
    EXPECT_NE(Option(tcp, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(VYX_SetNoDelay(tcp, 0), 0);
    EXPECT_EQ(Option(tcp, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_EQ(VYX_BroadCast(udp), 0);
    EXPECT_NE(Option(udp, SOL_SOCKET, SO_BROADCAST), 0);
    const struct {
        const Socket &socket;
        int32_t (*pSet)(VYX_SOCK_T, int32_t);
        int32_t (*pGet)(VYX_SOCK_T, int32_t *); // or null
        int iLevel;
        int iOption;
        int32_t iValue;
    } cases[] = {
        {tcp, VYX_SetTTL, VYX_GetTTL, IPPROTO_IP, IP_TTL, 77},
        {tcp, VYX_SetTOS, VYX_GetTOS, IPPROTO_IP, IP_TOS, 0x10},
        {udp, VYX_SetMultiCastTTL, nullptr, IPPROTO_IP, IP_MULTICAST_TTL, 9},
        {six, VYX_SetTTL_V6, VYX_GetTTL_V6, IPPROTO_IPV6, IPV6_UNICAST_HOPS, 33},
        {six, VYX_SetMultiCastTTL_V6, nullptr, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 5},
    };
    for (const auto &option : cases) {
        if (option.socket == VYX_INVALID_SOCKET)
            GTEST_SKIP() << "no IPv6 here";
        int32_t iValue = option.pGet == nullptr ? option.iValue : 0;
        EXPECT_EQ(option.pSet(option.socket, option.iValue), 0);
        EXPECT_EQ(Option(option.socket, option.iLevel, option.iOption), option.iValue);
        EXPECT_EQ(option.pGet == nullptr ? 0 : option.pGet(option.socket, &iValue), 0);
        EXPECT_EQ(iValue, option.iValue);
        EXPECT_EQ(option.pSet(-1, 1), -1);
    }
}

TEST(SocketOptions, TimeOutsAreNotScaled) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    const auto time = [&tcp](int iOption) { return Option<timeval>(tcp, SOL_SOCKET, iOption); };
    EXPECT_EQ(VYX_SetTimeOut(tcp, 0, 2500), 0);
    // The kernel keeps its own ticks: 500 microseconds may come back as anything below a tick, never as half a second.
    EXPECT_EQ(time(SO_RCVTIMEO).tv_sec, 2);
    EXPECT_LT(time(SO_RCVTIMEO).tv_usec, 100000);
    EXPECT_EQ(time(SO_SNDTIMEO).tv_sec, 0);
    EXPECT_EQ(VYX_SetTimeOut(tcp, 7000, 0), 0);
    EXPECT_EQ(time(SO_SNDTIMEO).tv_sec, 7);
    EXPECT_EQ(time(SO_RCVTIMEO).tv_sec, 2) << "0 leaves it alone";
    EXPECT_EQ(VYX_SetTimeOut(-1, 1, 1), -1);
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
    EXPECT_EQ(VYX_LingerOn(tcp, 0x10007), 0);
    const auto value = Option<linger>(tcp, SOL_SOCKET, SO_LINGER);
    EXPECT_TRUE(value.l_onoff != 0 && value.l_linger == 7) << "the low 16 bits count";
    EXPECT_EQ(VYX_LingerOff(tcp), 0);
    EXPECT_EQ(Option<linger>(tcp, SOL_SOCKET, SO_LINGER).l_onoff, 0);
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
    VYX_ADDR_T local = {};
    VYX_ADDR_T peer = {};
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, &local, &peer), VYX_OK);
    const VYX_ADDR_T server = LocalOf(pair.server);
    EXPECT_EQ(memcmp(&peer, &server, sizeof peer.in4), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.server, nullptr, &peer), VYX_OK);
    EXPECT_EQ(memcmp(&local, &peer, sizeof peer.in4), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, nullptr, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_GetAddrBySockFd(-1, &local, nullptr), VYX_ERROR);
}

// Tries in vain; the socket blocks afterwards, whatever it did before. What is said of it, without the common start.
std::string FailedConnect(const VYX_ADDR_T &addr, rlim_t nDescriptors) {
    const Socket client(AF_INET, SOCK_STREAM);
    int iResult = 0;
    (void)VYX_SetNonBlock(client, 1);
    testing::internal::CaptureStderr();
    {
        const DescriptorLimit limit(nDescriptors);
        iResult = VYX_ConnectWithTimeOut(client, &addr, LongTime());
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(iResult, -1);
    EXPECT_EQ(fcntl(client, F_GETFL) & O_NONBLOCK, 0);
    return said.substr(0, 34) == "quelby !!! VYX_ConnectWithTimeOut " ? said.substr(34) : said;
}

TEST(Connect, FailuresAreTold) {
    Socket listener = Listener(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    // A wait for one descriptor fails where none is allowed.
    EXPECT_EQ(FailedConnect(addr, 0), "select/poll return error, " + std::to_string(EINVAL) + ", Error\n\n");
    listener.Close();
    EXPECT_EQ(FailedConnect(addr, 100),
              "getsockopt !iError return error, " + std::to_string(EINPROGRESS) + ", Error\n\n")
        << "errno, not the socket's error";
    EXPECT_EQ(VYX_ConnectWithTimeOut(listener, nullptr, 10), -1);
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
    ASSERT_EQ(VYX_ConnectWithTimeOut(client, &addr, VYX_INFINITE), 0);
    {
        const DescriptorLimit few(3);
        EXPECT_EQ(VYX_Accept(listener, nullptr, 100), -1);
        EXPECT_EQ(VYX_CreateSocket(AF_INET, SOCK_STREAM, 0), -1);
        EXPECT_EQ(errno, EMFILE);
    }
    VYX_ADDR_T peer = {};
    const Socket server(VYX_Accept(listener, &peer, VYX_INFINITE));
    const VYX_ADDR_T own = LocalOf(client);
    EXPECT_EQ(VYX_GetAddrPort(&peer), VYX_GetAddrPort(&own));
    EXPECT_EQ(VYX_Accept(-1, nullptr, 10), -1);
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
        int32_t iResult = 1;
        const double fMs = support::MillisecondsOf([&] { iResult = VYX_PollEx(&fd, 1, &nTimeOut); });
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
}

TEST(Poll, DescriptorsAboveWhatSelectKnows) {
    const DescriptorLimit many(2100);
    if (!many.IsSet())
        GTEST_SKIP() << "the system allows no descriptor above 2000";
    Pair pair;
    const Socket high(fcntl(pair.server, F_DUPFD, 2000));
    ASSERT_GE(static_cast<int>(high), 2000);
    ASSERT_EQ(VYX_Send(pair.client, "abc", 3), 3);
    char szBytes[3];
    EXPECT_EQ(VYX_Recvn(high, szBytes, 3, LongTime()), 3);
    EXPECT_EQ(VYX_Sendn(high, "d", 1, LongTime()), 1);
}

} // namespace
