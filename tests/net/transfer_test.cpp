// Whole buffers within a time; datagrams and groups.
#include <cerrno>
#include <string>

#include <vyx/frame.h>

#include "net/net_support.h"

using nettest::Listener;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
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
    EXPECT_EQ(VYX_Sendn(pair.client, data.data(), 1, 0), 0) << "one look";
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
    if (setsockopt(pair.client, SOL_SOCKET, SO_TIMESTAMPING, &kTellWhenAcknowledged, sizeof(int)) != 0)
        GTEST_SKIP() << "this kernel tells nothing of what was sent";
    const std::string data = Pattern(30000000);
    const auto nSize = static_cast<int32_t>(data.size());
    ASSERT_EQ(VYX_Sendn(pair.client, data.data(), 1, LongTime()), 1);
    pollfd fd = {pair.client, 0, 0};
    ASSERT_EQ(VYX_Poll(&fd, 1, static_cast<int32_t>(LongTime())), 1);
    ASSERT_EQ(fd.revents, POLLERR);
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

class Family : public testing::TestWithParam<int32_t> {
  protected:
    void SetUp() override {
        if (Listener(GetParam()) == VYX_INVALID_SOCKET)
            GTEST_SKIP() << "this family is missing here";
    }
    static bool IsIp() { return GetParam() == AF_INET; }
};

INSTANTIATE_TEST_SUITE_P(Families, Family, testing::Values(AF_INET, AF_INET6),
                         [](const auto &test) { return test.param == AF_INET ? "IPv4" : "IPv6"; });

TEST_P(Family, StreamsAndDatagrams) {
    Pair pair(GetParam());
    char szBytes[8] = "";
    EXPECT_EQ(VYX_Sendn(pair.client, "abc", 3, LongTime()), 3);
    EXPECT_EQ(VYX_Recvn(pair.server, szBytes, 3, LongTime()), 3);
    const Socket receiver(GetParam(), SOCK_DGRAM);
    const Socket sender(GetParam(), SOCK_DGRAM);
    const VYX_ADDR_T loopback = Loopback(GetParam());
    ASSERT_EQ(VYX_Bind(receiver, &loopback), 0);
    ASSERT_EQ(VYX_Bind(sender, &loopback), 0);
    const VYX_ADDR_T to = LocalOf(receiver);
    const VYX_ADDR_T own = LocalOf(sender);
    VYX_ADDR_T from = {};
    EXPECT_EQ(VYX_SendTo(sender, "abcdef", 6, &to), 6);
    EXPECT_EQ(VYX_SendTo(sender, "abcdef", -1, &to), -1);
    EXPECT_EQ(VYX_RecvFrom(receiver, szBytes, -1, &from), -1);
    EXPECT_EQ(VYX_RecvFrom(receiver, szBytes, sizeof szBytes, &from), 6);
    EXPECT_STREQ(szBytes, "abcdef");
    EXPECT_EQ(memcmp(&from, &own, IsIp() ? sizeof own.in4 : sizeof own.in6), 0);
}

// What one of the library and the platform has joined at loopback, the other can leave.
TEST_P(Family, JoinsAndLeavesGroups) {
    const Socket member(GetParam(), SOCK_DGRAM);
    const VYX_ADDR_T local = Loopback(GetParam());
    VYX_ADDR_T group = Loopback(GetParam());
    ASSERT_EQ(VYX_MakeAddrByString(GetParam(), IsIp() ? "239.255.77.7" : "ff15:0:0:0:0:0:77:7", 0, &group),
              VYX_OK);
    constexpr uint32_t kLoopbackIndex = 1;
    const ip_mreq request = {group.in4.sin_addr, local.in4.sin_addr};
    const ipv6_mreq request6 = {group.in6.sin6_addr, kLoopbackIndex};
    const auto platform = [&](int iOption, int iOption6) {
        return IsIp() ? setsockopt(member, IPPROTO_IP, iOption, &request, sizeof request)
                      : setsockopt(member, IPPROTO_IPV6, iOption6, &request6, sizeof request6);
    };
    if (!IsIp())
        group.in6.sin6_flowinfo = kLoopbackIndex;
    if (platform(IP_ADD_MEMBERSHIP, IPV6_JOIN_GROUP) != 0)
        GTEST_SKIP() << "loopback takes no groups here";
    EXPECT_EQ(VYX_LeaveMultiCastGroup(member, &local, &group), 0);
    EXPECT_EQ(VYX_LeaveMultiCastGroup(member, &local, &group), -1);
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, &local, &group), 0);
    EXPECT_EQ(platform(IP_DROP_MEMBERSHIP, IPV6_LEAVE_GROUP), 0);
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, nullptr, &group), -1);
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, &local, nullptr), -1);
    group.sa.sa_family = AF_UNIX;
    EXPECT_EQ(VYX_JoinMultiCastGroup(member, &local, &group), -1);
}

} // namespace
