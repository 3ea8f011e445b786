// Whole buffers within a time, between ourselves and with peers that use another library; datagrams and groups.
#include <algorithm>
#include <cerrno>
#include <vector>

#include <net/if.h>
#include <vyx/frame.h>

#include "net/net_support.h"

using nettest::Listener;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
using nettest::Python;
using nettest::SignalStorm;
using nettest::Socket;

namespace {

std::string Pattern(size_t nSize) {
    std::string text(nSize, '\0');
    for (size_t n = 0; n < nSize; ++n)
        text[n] = static_cast<char>(n * 31 + n / 251);
    return text;
}

TEST(Transfer, WholeBuffersThroughSmallWindowsAndSignals) {
    Pair pair;
    const std::string data = Pattern(30000000); // more than the socket buffers hold: both sides wait
    std::thread sender([&] {
        const SignalStorm storm;
        EXPECT_EQ(VYX_Sendn(pair.client, data.data(), static_cast<int32_t>(data.size()), LongTime()),
                  static_cast<int32_t>(data.size()));
    });
    std::string got(data.size(), '\0');
    {
        const SignalStorm storm;
        EXPECT_EQ(VYX_Recvn(pair.server, got.data(), static_cast<int32_t>(got.size()), LongTime()),
                  static_cast<int32_t>(got.size()));
    }
    sender.join();
    EXPECT_TRUE(got == data);
}

TEST(Transfer, TimeOutsTellWhatWasDone) {
    Pair pair;
    char szBytes[8];
    ASSERT_EQ(VYX_Send(pair.client, "half", 4), 4);
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 8, 50), 4); }), 48.0);
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 8, 0), 0);
    EXPECT_EQ(VYX_RecvWithTimeOut(pair.server, szBytes, 8, 20), -1);
    ASSERT_EQ(VYX_Send(pair.client, "abc", 3), 3);
    EXPECT_EQ(VYX_RecvWithTimeOut(pair.server, szBytes, 8, LongTime()), 3) << "as much as there is";
    const std::string data = Pattern(30000000);
    const int32_t iSent = VYX_Sendn(pair.client, data.data(), static_cast<int32_t>(data.size()), 50);
    EXPECT_GT(iSent, 0);
    EXPECT_LT(iSent, static_cast<int32_t>(data.size())) << "nobody reads";
    EXPECT_EQ(VYX_Sendn(pair.client, data.data(), -1, 10), 0);
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, -1, 10), -1);
}

// Something in the socket's error queue wakes every wait, also while there is no room to send.
TEST(Transfer, WakeUpsWithoutRoomDoNotEndASend) {
#ifndef SO_TIMESTAMPING
    GTEST_SKIP() << "this platform's sockets have no error queue";
#else
    Pair pair;
    constexpr int kTellWhenAcknowledged = 1 << 9 | 1 << 4 | 1 << 11; // nobody reads what is told
    const bool bTold =
        setsockopt(pair.client, SOL_SOCKET, SO_TIMESTAMPING, &kTellWhenAcknowledged, sizeof(int)) == 0;
    ASSERT_TRUE(bTold || support::kEmulated);
    const std::string data = Pattern(30000000);
    const auto nSize = static_cast<int32_t>(data.size());
    ASSERT_EQ(VYX_Sendn(pair.client, data.data(), 1, LongTime()), 1);
    pollfd fd = {pair.client, 0, 0};
    ASSERT_EQ(VYX_Poll(&fd, 1, bTold ? static_cast<int32_t>(LongTime()) : 0), bTold ? 1 : 0);
    ASSERT_EQ(fd.revents, bTold ? POLLERR : 0);
    int32_t iSent = 0;
    EXPECT_GE(support::MillisecondsOf([&] { iSent = VYX_Sendn(pair.client, data.data(), nSize, 50); }), 48.0)
        << "the time is used";
    ASSERT_LT(iSent, nSize);
    std::string got(data.size() + 1, '\0');
    std::thread reader(
        [&] { EXPECT_EQ(VYX_Recvn(pair.server, got.data(), nSize + 1, LongTime()), nSize + 1); });
    EXPECT_EQ(VYX_Sendn(pair.client, data.data() + iSent, nSize - iSent, VYX_INFINITE), nSize - iSent);
    reader.join();
    EXPECT_TRUE(got.compare(1, std::string::npos, data) == 0);
#endif
}

TEST(Transfer, ClosedDescriptorsAreNotWaitedFor) {
    Socket socket(AF_INET, SOCK_STREAM);
    const VYX_SOCK_T hClosed = socket;
    char cByte = 0;
    socket.Close();
    EXPECT_EQ(VYX_Sendn(hClosed, "a", 1, VYX_INFINITE), 0);
    EXPECT_EQ(VYX_Recvn(hClosed, &cByte, 1, VYX_INFINITE), -1);
    EXPECT_EQ(VYX_RecvWithTimeOut(hClosed, &cByte, 1, VYX_INFINITE), -1);
}

TEST(Transfer, ReceiveAllFailsWhenThePeerEnds) {
    Pair pair;
    char szBytes[8];
    ASSERT_EQ(VYX_Send(pair.client, "half", 4), 4);
    pair.client.Close();
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 8, LongTime()), -1) << "and the half is gone with it";
    EXPECT_EQ(VYX_RecvWithTimeOut(pair.server, szBytes, 8, LongTime()), -1);
}

TEST(Transfer, HalfClosedAndReset) {
    ASSERT_EQ(VYX_Init(), VYX_OK); // from then on a send to nobody is no signal
    Pair pair;
    char szBytes[8];
    EXPECT_EQ(VYX_ShutDown(pair.client, SHUT_WR), 0);
    EXPECT_EQ(VYX_Sendn(pair.server, "still", 5, LongTime()), 5) << "the other direction is open";
    EXPECT_EQ(VYX_Recvn(pair.client, szBytes, 5, LongTime()), 5);
    EXPECT_EQ(VYX_LingerOn(pair.client, 0), 0);
    pair.client.Close(); // a reset
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 1, LongTime()), -1);
    const std::string data = Pattern(100000);
    EXPECT_EQ(VYX_Sendn(pair.server, data.data(), 100000, 200), 0)
        << "neither a signal nor a wait without end";
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

// ---- with a peer of another library

class Peer : public testing::TestWithParam<int32_t> {
  protected:
    void SetUp() override {
        if (!Python::Available())
            GTEST_SKIP() << "no python3 here";
        if (Listener(GetParam()) == VYX_INVALID_SOCKET)
            GTEST_SKIP() << "this family is missing here";
    }
    static std::string Prelude() {
        return std::string("import socket,sys,time\nF=socket.") +
               (GetParam() == AF_INET ? "AF_INET" : "AF_INET6") + "\nH=\"" +
               (GetParam() == AF_INET ? "127.0.0.1" : "::1") + "\"\n";
    }
};

TEST_P(Peer, SlowReaderGetsEverything) {
    Python server(Prelude() +
                  "s=socket.socket(F); s.bind((H,0)); s.listen(); print(s.getsockname()[1],flush=True)\n"
                  "c,a=s.accept(); n=0; x=0\n"
                  "while True:\n"
                  "  b=c.recv(50000)\n"
                  "  if not b: break\n"
                  "  n+=len(b); x=(x*31+sum(b))%1000003; time.sleep(0.001)\n"
                  "c.sendall(b\"%d\"%n); c.close()\n");
    const VYX_ADDR_T addr = Loopback(GetParam(), static_cast<uint16_t>(std::stoi(server.Line())));
    Socket client(GetParam(), SOCK_STREAM);
    ASSERT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), 0);
    const std::string data = Pattern(4000000);
    EXPECT_EQ(VYX_Sendn(client, data.data(), 4000000, LongTime()), 4000000);
    EXPECT_EQ(VYX_ShutDown(client, SHUT_WR), 0);
    char szCount[8] = "";
    EXPECT_EQ(VYX_Recvn(client, szCount, 7, LongTime()), 7);
    EXPECT_STREQ(szCount, "4000000");
    EXPECT_EQ(server.Wait(), 0);
}

TEST_P(Peer, DripsAreCollected) {
    const Socket listener = Listener(GetParam());
    const VYX_ADDR_T addr = LocalOf(listener);
    Python client(Prelude() + "c=socket.create_connection((H," + std::to_string(VYX_GetAddrPort(&addr)) +
                  "))\n"
                  "for i in range(100):\n"
                  "  c.sendall(bytes([i])); time.sleep(0.001)\n"
                  "sys.exit(0 if c.recv(3)==b\"all\" else 1)\n");
    const Socket server(VYX_Accept(listener, nullptr, LongTime()));
    ASSERT_NE(server, VYX_INVALID_SOCKET);
    char szBytes[100] = "";
    ASSERT_EQ(VYX_Recvn(server, szBytes, 100, LongTime()), 100);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(szBytes[i], i);
    EXPECT_EQ(VYX_Sendn(server, "all", 3, LongTime()), 3);
    EXPECT_EQ(client.Wait(), 0);
}

TEST_P(Peer, Datagrams) {
    Python server(
        Prelude() +
        "s=socket.socket(F,socket.SOCK_DGRAM); s.bind((H,0)); print(s.getsockname()[1],flush=True)\n"
        "for i in range(20):\n"
        "  d,a=s.recvfrom(70000); s.sendto(d[::-1],a)\n");
    const VYX_ADDR_T addr = Loopback(GetParam(), static_cast<uint16_t>(std::stoi(server.Line())));
    const Socket socket(GetParam(), SOCK_DGRAM);
    for (int32_t i = 0; i < 20; ++i) {
        const std::string data = Pattern(static_cast<size_t>(i) * 500 + 1);
        std::string back(data.size() + 1, '#');
        VYX_ADDR_T from;
        memset(&from, 0, sizeof from);
        ASSERT_EQ(VYX_SendTo(socket, data.data(), static_cast<int32_t>(data.size()), &addr),
                  static_cast<int32_t>(data.size()));
        pollfd fd = {socket, POLLIN, 0};
        ASSERT_EQ(VYX_Poll(&fd, 1, static_cast<int32_t>(LongTime())), 1);
        ASSERT_EQ(VYX_RecvFrom(socket, back.data(), static_cast<int32_t>(back.size()), &from),
                  static_cast<int32_t>(data.size()));
        EXPECT_TRUE(std::string(data.rbegin(), data.rend()) + "#" == back);
        EXPECT_EQ(VYX_GetAddrPort(&from), VYX_GetAddrPort(&addr));
    }
    EXPECT_EQ(server.Wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Families, Peer, testing::Values(AF_INET, AF_INET6),
                         [](const auto &test) { return test.param == AF_INET ? "IPv4" : "IPv6"; });

TEST(Peers, AThousandConnectionsAtOnce) {
    if (!Python::Available())
        GTEST_SKIP() << "no python3 here";
    constexpr int kConnections = 1000;
    const Socket listener = Listener(AF_INET, 1024);
    const VYX_ADDR_T addr = LocalOf(listener);
    Python client(
        "import socket,resource\n"
        "resource.setrlimit(resource.RLIMIT_NOFILE,(1100,resource.getrlimit(resource.RLIMIT_NOFILE)[1]))\n"
        "l=[socket.create_connection((\"127.0.0.1\"," +
        std::to_string(VYX_GetAddrPort(&addr)) +
        ")) for i in range(1000)]\n"
        "for i,c in enumerate(l): c.sendall(b\"%04d\"%i)\n"
        "exit(sum(c.recv(4)!=b\"%04d\"%i for i,c in enumerate(l))!=0)\n");
    std::vector<Socket> sockets;
    std::vector<bool> seen(kConnections);
    for (int i = 0; i < kConnections; ++i) {
        sockets.emplace_back(VYX_Accept(listener, nullptr, LongTime()));
        if (sockets.back() == VYX_INVALID_SOCKET && errno == EMFILE)
            GTEST_SKIP() << "the system allows too few descriptors";
        ASSERT_NE(sockets.back(), VYX_INVALID_SOCKET) << i;
    }
    for (const Socket &socket : sockets) {
        char szNumber[5] = "";
        ASSERT_EQ(VYX_Recvn(socket, szNumber, 4, LongTime()), 4);
        seen[static_cast<size_t>(std::stoi(szNumber))] = true;
        ASSERT_EQ(VYX_Sendn(socket, szNumber, 4, LongTime()), 4);
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), kConnections);
    EXPECT_EQ(client.Wait(), 0);
}

// ---- groups

// A datagram to the group, over loopback, is heard while the socket is a member.
void ExpectHeard(const Socket &member, const Socket &sender, const VYX_ADDR_T &group, bool bHeard) {
    char cByte = 0;
    ASSERT_EQ(VYX_SendTo(sender, "g", 1, &group), 1) << strerror(errno);
    pollfd fd = {member, POLLIN, 0};
    EXPECT_EQ(VYX_Poll(&fd, 1, bHeard ? static_cast<int32_t>(LongTime()) : 100), bHeard ? 1 : 0);
    if (bHeard) {
        EXPECT_EQ(VYX_Recv(member, &cByte, 1), 1);
    }
}

TEST(MultiCast, GroupOfIPv4) {
    const Socket member(AF_INET, SOCK_DGRAM);
    const Socket sender(AF_INET, SOCK_DGRAM);
    const VYX_ADDR_T loopback = Loopback(AF_INET);
    VYX_ADDR_T group;
    memset(&group, 0, sizeof group);
    ASSERT_EQ(VYX_MakeAddrByString(AF_INET, "239.255.77.7", 0, &group), VYX_OK);
    ASSERT_EQ(VYX_Bind(member, &group), 0);
    group = LocalOf(member);
    ASSERT_EQ(VYX_Bind(sender, &loopback), 0); // what it sends to groups goes out there
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, nullptr, &group), -1);
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, &loopback, nullptr), -1);
    ASSERT_EQ(VYX_JoinMultiCastGroup(member, &loopback, &group), 0);
    ExpectHeard(member, sender, group, true);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(member, &loopback, &group), 0);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(member, &loopback, &group), -1);
    group.sa.sa_family = AF_UNIX;
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, &loopback, &group), -1);
}

// An interface over which datagrams to the group, which never leave the machine, find their way; 0: none.
uint32_t InterfaceWithGroups(const Socket &sender, VYX_ADDR_T group) {
    struct if_nameindex *pNames = if_nameindex();
    uint32_t nIndex = 0;
    for (auto *p = pNames; p != nullptr && p->if_index != 0 && nIndex == 0; ++p) {
        group.in6.sin6_scope_id = p->if_index;
        if (VYX_SendTo(sender, "s", 1, &group) == 1)
            nIndex = p->if_index;
    }
    if_freenameindex(pNames);
    return nIndex;
}

TEST(MultiCast, GroupOfIPv6) {
    const Socket member(AF_INET6, SOCK_DGRAM);
    const Socket sender(AF_INET6, SOCK_DGRAM);
    VYX_ADDR_T any;
    VYX_ADDR_T group;
    memset(&any, 0, sizeof any);
    memset(&group, 0, sizeof group);
    ASSERT_EQ(VYX_MakeAddrByString(AF_INET6, nullptr, 0, &any), VYX_OK);
    if (member == VYX_INVALID_SOCKET || VYX_Bind(member, &any) != 0)
        GTEST_SKIP() << "no IPv6 here";
    ASSERT_EQ(VYX_MakeAddrByString(AF_INET6, "ff01:0:0:0:0:0:77:7", 0, &group), VYX_OK);
    const VYX_ADDR_T bound = LocalOf(member);
    VYX_SetAddrPort(&group, VYX_GetAddrPort(&bound));
    const uint32_t nIndex = InterfaceWithGroups(sender, group);
    if (nIndex == 0)
        GTEST_SKIP() << "no route to groups of IPv6 here";
    VYX_ADDR_T membership = group;
    membership.in6.sin6_flowinfo = nIndex;
    group.in6.sin6_scope_id = nIndex;
    ASSERT_EQ(VYX_JoinMultiCastGroup(member, &any, &membership), 0);
    ExpectHeard(member, sender, group, true);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(member, &any, &membership), 0);
    ExpectHeard(member, sender, group, false);
}

} // namespace
