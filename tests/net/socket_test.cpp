// The real platform: options, modes and addresses of sockets; connections, transfers and datagrams over loopback; names and
// adapters. The second time with Darwin's way to send.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <vyx/frame.h>

#include "net/adapter_text.h"
#include "net/net_support.h"
#include "support/calls.h"

using nettest::Bound;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
using nettest::Socket;

namespace {

// ---- Addresses

TEST(Addr, RecordsTakenApart) {
    VYX_ADDR_T addr;
    VYX_ADDR_EXP_T exp;
    uint8_t bytes[16] = {0xFE, 0x80, 3};
    uint32_t nAddr = 0;
    EXPECT_EQ(VYX_MakeAddr6ByInt(bytes, 9, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET6 && exp.nPort == 9 && memcmp(exp.byAddr, bytes, 16) == 0);
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_ERROR);
    memset(&exp, 0xEE, sizeof exp);
    EXPECT_EQ(VYX_MakeAddr4ByInt(htonl(0x01020304), 7, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET && exp.nPort == 7 && memcmp(exp.byAddr, "\1\2\3\4\xEE", 5) == 0);
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_OK);
    EXPECT_EQ(nAddr, htonl(0x01020304));
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes), VYX_ERROR);
    addr.sa.sa_family = AF_UNIX;
    memset(bytes, 0xEE, sizeof bytes);
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes), VYX_OK) << "every other family counts as IPv6";
    EXPECT_EQ(memcmp(bytes, &addr.in6.sin6_addr, 16), 0);
    EXPECT_EQ(VYX_GetAddrString(&addr), nullptr);
}

// A longer source must not write behind the record, nor a shorter one touch the rest.
TEST(Addr, RawAddressesStayInsideTheRecord) {
    const std::string source(128, '\x11');
    for (const int32_t iLength : {0, 1, 28, 29, 128, -1, INT32_MIN}) {
        VYX_ADDR_T records[2];
        memset(records, 0xEE, sizeof records);
        EXPECT_EQ(VYX_MakeAddr(source.data(), iLength, records), iLength > 0 ? VYX_OK : VYX_ERROR);
        const auto nCopied = static_cast<size_t>(std::clamp(iLength, 0, 28));
        const std::string expected =
            source.substr(0, nCopied) + std::string(sizeof records - nCopied, '\xEE');
        EXPECT_EQ(memcmp(records, expected.data(), sizeof records), 0) << iLength;
    }
}

TEST(ByteOrder, NetworkOrderIsBigEndian) {
    const uint16_t nShort = VYX_Htons(0x0102);
    const uint32_t nLong = VYX_Htonl(0x01020304);
    EXPECT_EQ(memcmp(&nShort, "\1\2", 2), 0);
    EXPECT_EQ(memcmp(&nLong, "\1\2\3\4", 4), 0);
    EXPECT_EQ(VYX_Ntohs(nShort), 0x0102);
    EXPECT_EQ(VYX_Ntohl(nLong), 0x01020304U);
}

// ---- Sockets

TEST(Socket, NonBlockingAndClosing) {
    Pair pair;
    char szByte[1];
    int32_t iPending = -1;
    EXPECT_EQ(VYX_SetNonBlock(pair.server, 2), 0);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(VYX_SetNonBlock(pair.server, 0), 0);
    EXPECT_EQ(fcntl(pair.server, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(VYX_Send(pair.client, "", 0), 0);
    EXPECT_EQ(VYX_Send(pair.client, "ab", 2), 2);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 1);
    EXPECT_EQ(VYX_Ioctl(pair.server, FIONREAD, &iPending), 0);
    EXPECT_EQ(iPending, 1);
    const auto refused = [](int32_t iResult) { return iResult == -1 && std::exchange(errno, 0) == EINVAL; };
    EXPECT_TRUE(refused(VYX_Send(pair.client, "a", -1)));
    EXPECT_TRUE(refused(VYX_SendTo(pair.client, "a", -1, nullptr)));
    EXPECT_TRUE(refused(VYX_Recv(pair.server, szByte, -1)));
    EXPECT_TRUE(refused(VYX_RecvFrom(pair.server, szByte, -1, nullptr)));
    const Socket kept(dup(pair.client)); // the connection stays open unless it is shut down
    EXPECT_TRUE(
        support::EndsThoughCancelled([&] { EXPECT_EQ(VYX_CloseSocket(pair.client.Release(), 1), 0); }));
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 1);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 0) << "the end, because it was shut down first";
}

// What the platform has for an option afterwards; -1 if it does not tell.
template <class Value = int>
Value OptionOf(VYX_SOCK_T hSocket, int iLevel, int iOption) {
    Value value = {};
    socklen_t nLength = sizeof value;
    EXPECT_EQ(getsockopt(hSocket, iLevel, iOption, &value, &nLength), 0);
    return value;
}

TEST(Socket, NumbersReachTheirOptions) {
    const Socket four(AF_INET, SOCK_STREAM);
    const Socket group(AF_INET, SOCK_DGRAM);
    const Socket six(AF_INET6, SOCK_DGRAM);
    const auto broadcast = [](VYX_SOCK_T hSocket, int32_t) { return VYX_BroadCast(hSocket); };
    const struct {
        VYX_SOCK_T hSocket;
        int32_t (*pfnSet)(VYX_SOCK_T hSocket, int32_t iValue);
        int iLevel, iOption, iValue;
        int32_t (*pfnGet)(VYX_SOCK_T hSocket, int32_t *pValue) = nullptr;
    } cases[] = {
        {four, VYX_SetTTL, IPPROTO_IP, IP_TTL, 77, VYX_GetTTL},
        {six, VYX_SetTTL_V6, IPPROTO_IPV6, IPV6_UNICAST_HOPS, 77, VYX_GetTTL_V6},
        {group, VYX_SetMultiCastTTL, IPPROTO_IP, IP_MULTICAST_TTL, 77},
        {six, VYX_SetMultiCastTTL_V6, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 77},
        {four, VYX_SetTOS, IPPROTO_IP, IP_TOS, 8, VYX_GetTOS},
        {four, VYX_SetReuseAddr, SOL_SOCKET, SO_REUSEADDR, 1},
        {four, VYX_SetNoDelay, IPPROTO_TCP, TCP_NODELAY, 1},
        {group, broadcast, SOL_SOCKET, SO_BROADCAST, 1},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        if (test.hSocket == VYX_INVALID_SOCKET) // without IPv6
            continue;
        int32_t iGot = test.iValue;
        EXPECT_EQ(test.pfnSet(test.hSocket, test.iValue), 0);
        EXPECT_EQ(OptionOf(test.hSocket, test.iLevel, test.iOption), test.iValue);
        EXPECT_TRUE(test.pfnGet == nullptr ||
                    (test.pfnGet(test.hSocket, &(iGot = 0)) == 0 && iGot == test.iValue));
    }
}

TEST(Socket, PairsReachTheirOptions) {
    const Socket socket(AF_INET, SOCK_STREAM);
    int32_t iSend = 0;
    int32_t iRecv = 0;
    EXPECT_EQ(VYX_SetBuffSize(socket, 20000, 40000) + VYX_SetBuffSize(socket, 30000, 0), 0);
    EXPECT_EQ(VYX_GetBuffSize(socket, &iSend, &iRecv) + VYX_GetBuffSize(socket, nullptr, nullptr), 0);
    EXPECT_EQ(iSend, OptionOf(socket, SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(iRecv, OptionOf(socket, SOL_SOCKET, SO_RCVBUF));
    EXPECT_TRUE(iSend >= 30000 && iRecv >= 40000 && iSend < iRecv) << iSend << " " << iRecv;
    EXPECT_EQ(VYX_LingerOn(socket, 0x1FFFF), 0);
    auto held = OptionOf<linger>(socket, SOL_SOCKET, SO_LINGER);
    EXPECT_TRUE(held.l_onoff != 0 && held.l_linger == 0xFFFF);
    EXPECT_EQ(VYX_LingerOff(socket), 0);
    EXPECT_EQ(OptionOf<linger>(socket, SOL_SOCKET, SO_LINGER).l_onoff, 0);
    EXPECT_EQ(VYX_SetTimeOut(socket, 5000, 2900) + VYX_SetTimeOut(socket, 3000, 0), 0);
    EXPECT_EQ(VYX_SetTimeOut(socket, 3000, -1) + VYX_SetTimeOut(socket, -1, 2900), -2);
    EXPECT_EQ(OptionOf<timeval>(socket, SOL_SOCKET, SO_SNDTIMEO).tv_sec, 3);
    const auto time = OptionOf<timeval>(socket, SOL_SOCKET, SO_RCVTIMEO);
    EXPECT_TRUE(time.tv_sec == 2 && time.tv_usec < 100000)
        << "the rest as microseconds, which the platform may round";
}

TEST(Socket, GroupsAreJoinedAndLeftOnOneInterface) {
    const Socket socket(AF_INET, SOCK_DGRAM);
    const Socket six(AF_INET6, SOCK_DGRAM);
    const VYX_ADDR_T local = Loopback(AF_INET);
    const ip_mreq member = {{htonl(0xE00000FB)}, {htonl(INADDR_LOOPBACK)}};
    const auto set = [](VYX_SOCK_T hSocket, int iLevel, int iOption, const auto &value) {
        return setsockopt(hSocket, iLevel, iOption, &value, sizeof value);
    };
    VYX_ADDR_T group = local;
    group.in4.sin_addr = member.imr_multiaddr;
    EXPECT_EQ(VYX_JoinMultiCastGroup(socket, &local, &group), 0);
    EXPECT_EQ(set(socket, IPPROTO_IP, IP_DROP_MEMBERSHIP, member), 0);
    EXPECT_EQ(set(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, member), 0);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(socket, &local, &group), 0);
    EXPECT_EQ(set(socket, IPPROTO_IP, IP_DROP_MEMBERSHIP, member), -1);
    EXPECT_EQ(VYX_JoinMultiCastGroup(socket, &local, nullptr) +
                  VYX_JoinMultiCastGroup(socket, nullptr, &group),
              -2);
    if (six == VYX_INVALID_SOCKET)
        return;
    ipv6_mreq member6 = {{}, if_nametoindex("lo")};
    ASSERT_EQ(inet_pton(AF_INET6, "ff02::fb", &member6.ipv6mr_multiaddr), 1);
    (void)VYX_MakeAddr6ByInt(member6.ipv6mr_multiaddr.s6_addr, 0, &group);
    group.in6.sin6_flowinfo = member6.ipv6mr_interface;
    EXPECT_EQ(VYX_JoinMultiCastGroup(six, &local, &group), 0);
    EXPECT_EQ(set(six, IPPROTO_IPV6, IPV6_LEAVE_GROUP, member6), 0);
    EXPECT_EQ(set(six, IPPROTO_IPV6, IPV6_JOIN_GROUP, member6), 0);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(six, &local, &group), 0);
    EXPECT_EQ(set(six, IPPROTO_IPV6, IPV6_LEAVE_GROUP, member6), -1);
}

constexpr int32_t kFamilies[] = {AF_INET, AF_INET6};

bool IsMissing(int32_t iFamily) {
    return Bound(iFamily) == VYX_INVALID_SOCKET;
}

TEST(Socket, AddressesOfBothEnds) {
    for (const int32_t iFamily : kFamilies) {
        if (IsMissing(iFamily))
            continue;
        Pair pair(iFamily);
        VYX_ADDR_T local = {};
        VYX_ADDR_T peer = {};
        VYX_ADDR_T other = {};
        const VYX_ADDR_T server = LocalOf(pair.server);
        EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, &local, &peer), VYX_OK);
        EXPECT_EQ(memcmp(&peer, &server, sizeof peer), 0);
        EXPECT_EQ(VYX_GetAddrBySockFd(pair.server, nullptr, &other), VYX_OK);
        EXPECT_EQ(memcmp(&local, &other, iFamily == AF_INET ? 16 : 28), 0);
        EXPECT_NE(VYX_GetAddrPort(&local), VYX_GetAddrPort(&peer));
    }
    const Socket alone(AF_INET, SOCK_STREAM);
    VYX_ADDR_T peer;
    EXPECT_EQ(VYX_GetAddrBySockFd(alone, nullptr, &peer), VYX_ERROR) << "it has no peer";
}

// A name of the local domain is longer than a record, and cut at its end. This socket is connected to itself.
TEST(Socket, AddressesOfBothEndsStayInsideTheRecords) {
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    (std::to_string(getpid()) + std::string(90, '-')).copy(name.sun_path + 1, 100);
    const Socket socket(AF_UNIX, SOCK_DGRAM);
    ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    ASSERT_EQ(connect(socket, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    VYX_ADDR_T records[8];
    memset(records, 0xC3, sizeof records);
    std::string expected(reinterpret_cast<const char *>(&name), sizeof records[0]);
    expected += std::string(3 * sizeof records[0], '\xC3');
    EXPECT_EQ(VYX_GetAddrBySockFd(socket, &records[0], &records[4]), VYX_OK);
    EXPECT_EQ(memcmp(records, (expected + expected).data(), sizeof records), 0);

    // A peer without a name is shorter, and the own address is cut to its length.
    name.sun_path[1] = '-';
    const Socket listener(AF_UNIX, SOCK_STREAM);
    const Socket client(AF_UNIX, SOCK_STREAM);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    ASSERT_EQ(VYX_Listen(listener, 1), 0);
    ASSERT_EQ(connect(client, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
    const Socket server(accept(listener, nullptr, nullptr));
    expected.replace(sizeof name.sun_family, sizeof records[0], sizeof records[0], '\xC3');
    memset(records, 0xC3, sizeof records);
    EXPECT_EQ(VYX_GetAddrBySockFd(server, &records[0], &records[4]), VYX_OK);
    EXPECT_EQ(memcmp(records, (expected + expected).data(), sizeof records), 0);
}

TEST(Connect, RefusedThenConnected) {
    const VYX_ADDR_T nobody = LocalOf(Bound(AF_INET)); // which is closed again
    const Socket clients[] = {Socket(AF_INET, SOCK_STREAM), Socket(AF_INET, SOCK_STREAM)};
    const auto refuse = [&nobody](VYX_SOCK_T hSocket) {
        return [=] { EXPECT_EQ(VYX_ConnectWithTimeOut(hSocket, &nobody, LongTime()), -1); };
    };
    EXPECT_EQ(support::ErrorsOf(refuse(clients[0])),
              "quelby !!! VYX_ConnectWithTimeOut getsockopt !iError return error, " +
                  std::to_string(EINPROGRESS) + ", Error\n\n");
    EXPECT_EQ(support::ErrnoOf(refuse(clients[1])), EINPROGRESS) << "not that of the line nobody takes";
    EXPECT_EQ(fcntl(clients[0], F_GETFL) & O_NONBLOCK, 0);
    const Socket longer(AF_INET6, SOCK_STREAM);
    const VYX_ADDR_T loopback = Loopback(AF_INET6, 9);
    EXPECT_EQ(VYX_ConnectWithTimeOut(longer, &loopback, VYX_INFINITE), -1);
    EXPECT_TRUE(errno == EINVAL || IsMissing(AF_INET6))
        << "the address is cut to the length of the other family's";
    const Socket listener = Bound(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    VYX_ADDR_T peer = {};
    const Socket endless(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_ConnectWithTimeOut(endless, &addr, VYX_INFINITE), 0);
    const Socket server(VYX_Accept(listener, &peer, VYX_INFINITE));
    const VYX_ADDR_T own = LocalOf(endless);
    EXPECT_EQ(memcmp(&peer, &own, sizeof peer), 0);
    EXPECT_EQ(VYX_Accept(listener, &peer, 20), VYX_INVALID_SOCKET);
}

TEST(Connect, GivesUpWhereNobodyAnswers) {
    const Socket listener = Bound(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    ASSERT_EQ(VYX_Listen(listener, 0), 0); // what does not fit into the queue is left without an answer
    std::vector<Socket> clients;
    int32_t iResult = 0;
    while (iResult == 0 && clients.size() < 10) {
        clients.emplace_back(AF_INET, SOCK_STREAM);
        const auto connect = [&] { iResult = VYX_ConnectWithTimeOut(clients.back(), &addr, 200); };
        EXPECT_EQ(support::ErrorsOf(connect), "");
    }
    EXPECT_EQ(iResult, -1);

    const Socket last(AF_INET, SOCK_STREAM);
    EXPECT_FALSE(
        support::EndsThoughCancelled([&] { (void)VYX_ConnectWithTimeOut(last, &addr, LongTime()); }));
    EXPECT_EQ(fcntl(last, F_GETFL) & O_NONBLOCK, 0);
}

TEST(Connect, RefusedAtOnceLooksConnected) {
    const Socket client(AF_INET, SOCK_STREAM);
    const VYX_ADDR_T otherFamily = Loopback(AF_INET6, 9);
    VYX_ADDR_T peer;
    EXPECT_EQ(VYX_ConnectWithTimeOut(client, &otherFamily, LongTime()), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(client, nullptr, &peer), VYX_ERROR) << "which tells";
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
    EXPECT_EQ(VYX_SelectEx(pair.server + 1, only(), nullptr, nullptr, &time), 0);
    EXPECT_EQ(time.tv_usec, 0) << "this platform tells what is left";
    ASSERT_EQ(VYX_Send(pair.client, "a", 1), 1);
    EXPECT_EQ(VYX_Select(pair.server + 1, only(), nullptr, nullptr, nullptr), 1);
    const uint32_t words[] = {0x80000008, 3};
    EXPECT_EQ(VYX_FdIsSet(3, words), 8) << "the bit, not 1";
    EXPECT_EQ(VYX_FdIsSet(33, words), 2);
    EXPECT_EQ(VYX_FdIsSet(31, words), INT32_MIN);
    EXPECT_EQ(VYX_FdIsSet(-1, words), 0) << "and nothing is read far away";
}

// ---- Data

TEST(Transfer, Datagrams) {
    for (const int32_t iFamily : kFamilies) {
        if (IsMissing(iFamily))
            continue;
        const Socket server = Bound(iFamily, SOCK_DGRAM);
        const Socket client = Bound(iFamily, SOCK_DGRAM);
        const VYX_ADDR_T addr = LocalOf(server);
        const VYX_ADDR_T own = LocalOf(client);
        char szGot[8] = "#######";
        VYX_ADDR_T from = {};
        pollfd fd = {server, POLLIN, 0};
        ASSERT_EQ(VYX_SendTo(client, "abcd", 4, &addr), 4);
        ASSERT_EQ(VYX_Poll(&fd, 1, static_cast<int32_t>(LongTime())), 1);
        ASSERT_EQ(VYX_RecvFrom(server, szGot, 5, &from), 4);
        EXPECT_STREQ(szGot, "abcd###");
        EXPECT_EQ(memcmp(&from, &own, sizeof from), 0);
        ASSERT_EQ(VYX_SendTo(client, "ab", 2, &addr), 2);
        EXPECT_EQ(VYX_RecvFrom(server, szGot, 1, nullptr), 1);
    }
}

TEST(Transfer, EndsOfAllKinds) {
    ASSERT_EQ(VYX_Init(), VYX_OK); // from then on a send to nobody is no signal
    Pair pair;
    char szBytes[8];
    EXPECT_EQ(VYX_Recvn(pair.client, szBytes, 0, 0), 0);
    EXPECT_EQ(VYX_ShutDown(pair.client, SHUT_WR), 0);
    EXPECT_EQ(VYX_Sendn(pair.server, "still", 5, LongTime()), 5) << "the other direction is open";
    EXPECT_EQ(VYX_Recvn(pair.client, szBytes, 5, LongTime()), 5);
    EXPECT_EQ(VYX_LingerOn(pair.client, 0), 0);
    pair.client.Close(); // a reset
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 1, LongTime()), -1);
    EXPECT_EQ(VYX_Sendn(pair.server, "nobody", 6, VYX_INFINITE), 0) << "neither a signal nor a wait";
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    const Socket full(fds[0]);
    const Socket deaf(fds[1]);
    const std::string data(1000000, 'x');
    EXPECT_GT(VYX_Sendn(full, data.data(), 1000000, 0), 0);
    EXPECT_EQ(fcntl(full, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(VYX_ShutDown(deaf, SHUT_RDWR), 0); // of which poll tells as an end, not as room
    EXPECT_EQ(VYX_Sendn(full, "x", 1, VYX_INFINITE), 0);
    EXPECT_EQ(VYX_Sendn(full, "x", -1, 0), 0);
    EXPECT_EQ(VYX_Recvn(deaf, szBytes, -1, 0) + VYX_RecvWithTimeOut(deaf, szBytes, -1, 0), -2);
    EXPECT_EQ(VYX_Recvn(VYX_INVALID_SOCKET, szBytes, 1, 20), 0) << "the time is waited for";
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

// ---- Adapters and names

TEST(Adapters, AreThoseOfThisSystem) {
    const std::string list = adapter_text::Adapters();
    EXPECT_NE(list.find("lo type " + std::to_string(ARPHRD_LOOPBACK) +
                        " mac 00:00:00:00:00:00 127.0.0.1/255.0.0.0"),
              std::string::npos)
        << list;
}

TEST(Resolve, AnswersWhatThePlatformDoes) {
    const struct {
        const char *szNode;
        addrinfo hints;
    } cases[] = {
        {"127.0.0.1", {AI_NUMERICHOST | AI_CANONNAME, 0, 0, IPPROTO_TCP, 0, nullptr, nullptr, nullptr}},
        {nullptr, {AI_PASSIVE, AF_INET6, SOCK_DGRAM, 0, 0, nullptr, nullptr, nullptr}},
        {"fe80::7", {AI_NUMERICHOST, 0, 0, 0, 0, nullptr, nullptr, nullptr}},
        {"no number", {AI_NUMERICHOST, 0, 0, 0, 0, nullptr, nullptr, nullptr}},
    };
    for (const auto &test : cases) {
        VYX_ADDRESS_INFO_T hints = {};
        hints.iFlags = test.hints.ai_flags;
        hints.iFamily = test.hints.ai_family;
        hints.iSockType = test.hints.ai_socktype;
        hints.iProtocol = test.hints.ai_protocol;
        addrinfo *pTheirs = nullptr;
        VYX_ADDRESS_INFO_T *pOurs = nullptr;
        EXPECT_EQ(VYX_GetAddressInfo(test.szNode, "80", &hints, &pOurs),
                  getaddrinfo(test.szNode, "80", &test.hints, &pTheirs) == 0 ? VYX_OK : VYX_ERROR);
        const addrinfo *q = pTheirs;
        for (const VYX_ADDRESS_INFO_T *p = pOurs; p != nullptr; p = p->pNext, q = q->ai_next) {
            ASSERT_NE(q, nullptr);
            EXPECT_TRUE(p->iFlags == q->ai_flags && p->iFamily == q->ai_family &&
                        p->iSockType == q->ai_socktype && p->iProtocol == q->ai_protocol);
            EXPECT_EQ(memcmp(&p->struAddr, q->ai_addr, q->ai_addrlen), 0);
            EXPECT_STREQ(p->pCanonName, q->ai_canonname);
        }
        EXPECT_EQ(q, nullptr);
        EXPECT_EQ(VYX_FreeAddressInfo(pOurs), 0);
        if (pTheirs != nullptr)
            freeaddrinfo(pTheirs);
    }
}

TEST(HostName, IsThePlatforms) {
    char szExpected[256] = "";
    char szName[256] = "";
    ASSERT_EQ(gethostname(szExpected, sizeof szExpected), 0);
    ASSERT_EQ(VYX_GetHostName(szName, sizeof szName), 0);
    EXPECT_STREQ(szName, szExpected);
    EXPECT_EQ(VYX_GetHostName(szName, 0), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    const hostent *const pHost = VYX_GetAddressByName("127.0.0.1");
    ASSERT_NE(pHost, nullptr);
    EXPECT_EQ(memcmp(pHost->h_addr_list[0], "\x7f\0\0\x01", 4), 0);
}

} // namespace
