// The real platform: options, modes and addresses of sockets; connections, transfers and datagrams over loopback;
// groups; adapters.
#include <cerrno>
#include <fcntl.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <unistd.h>

#include <vyx/frame.h>

#include "net/adapter_text.h"
#include "net/net_support.h"
#include "support/calls.h"
#include "support/temp_dir.h"

using adapter_text::Adapters;
using nettest::Bound;
using nettest::LocalOf;
using nettest::LongTime;
using nettest::Loopback;
using nettest::Pair;
using nettest::Socket;

namespace {

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
    EXPECT_EQ(VYX_CloseSocket(pair.client.Release(), 1), 0);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 1);
    EXPECT_EQ(VYX_Recv(pair.server, szByte, 1), 0) << "the end, because it was shut down first";
}

TEST(Socket, AddressesOfBothEnds) {
    Pair pair;
    VYX_ADDR_T local = {};
    VYX_ADDR_T peer = {};
    VYX_ADDR_T other = {};
    const VYX_ADDR_T server = LocalOf(pair.server);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.client, &local, &peer), VYX_OK);
    EXPECT_EQ(memcmp(&peer, &server, sizeof peer), 0);
    EXPECT_EQ(VYX_GetAddrBySockFd(pair.server, nullptr, &other), VYX_OK);
    EXPECT_EQ(memcmp(&local, &other, sizeof local), 0);
    EXPECT_NE(VYX_GetAddrPort(&local), VYX_GetAddrPort(&peer));
    const Socket alone(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_GetAddrBySockFd(alone, &local, &peer), VYX_ERROR) << "it has no peer";
}

// A name of the local domain is longer than a record, and cut at its end.
TEST(Socket, AddressesOfBothEndsStayInsideTheRecords) {
    sockaddr_un names[2] = {};
    const Socket ends[] = {Socket(AF_UNIX, SOCK_STREAM), Socket(AF_UNIX, SOCK_STREAM)};
    for (int i = 0; i < 2; ++i) {
        names[i].sun_family = AF_UNIX;
        const std::string name = std::to_string(getpid()) + " " + std::to_string(i) + std::string(80, '-');
        name.copy(names[i].sun_path + 1, 100);
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

TEST(Connect, RefusedThenConnected) {
    const Socket client(AF_INET, SOCK_STREAM);
    const VYX_ADDR_T nobody = LocalOf(Bound(AF_INET)); // which is closed again
    EXPECT_NE(support::ErrorsOf([&] { EXPECT_EQ(VYX_ConnectWithTimeOut(client, &nobody, LongTime()), -1); }),
              "");
    const Socket listener = Bound(AF_INET);
    const VYX_ADDR_T addr = LocalOf(listener);
    VYX_ADDR_T peer = {};
    const Socket endless(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_ConnectWithTimeOut(endless, &addr, VYX_INFINITE), 0);
    const Socket server(VYX_Accept(listener, &peer, VYX_INFINITE));
    const VYX_ADDR_T own = LocalOf(endless);
    EXPECT_EQ(memcmp(&peer, &own, sizeof peer), 0);
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
    EXPECT_EQ(VYX_FdIsSet(pair.server, &set), static_cast<int32_t>(1U << (pair.server % 32)));
    EXPECT_EQ(VYX_FdIsSet(pair.client, &set), 0);
    const uint32_t words[] = {8, 3};
    EXPECT_EQ(VYX_FdIsSet(3, words), 8) << "the bit, not 1";
    EXPECT_EQ(VYX_FdIsSet(33, words), 2);
    EXPECT_EQ(VYX_FdIsSet(32, words), 1);
    EXPECT_EQ(VYX_FdIsSet(-1, words), 0) << "and nothing is read far away";
}

// ---- Data

constexpr int32_t kFamilies[] = {AF_INET, AF_INET6};

bool IsMissing(int32_t iFamily) {
    return Bound(iFamily) == VYX_INVALID_SOCKET;
}

std::string Pattern(size_t nSize) {
    std::string text(nSize, '\0');
    for (size_t n = 0; n < nSize; ++n)
        text[n] = static_cast<char>(n * 31 + n / 251);
    return text;
}

TEST(Transfer, WholeBuffersThroughSmallerOnes) {
    const std::string data = Pattern(20000000); // more than the socket buffers hold: both sides wait
    const auto iSize = static_cast<int32_t>(data.size());
    for (const int32_t iFamily : kFamilies) {
        if (IsMissing(iFamily))
            continue;
        Pair pair(iFamily);
        const uint32_t nTimeOut = iFamily == AF_INET ? LongTime() : VYX_INFINITE;
        std::string got(data.size(), '\0');
        std::thread sender([&] { EXPECT_EQ(VYX_Sendn(pair.client, data.data(), iSize, nTimeOut), iSize); });
        EXPECT_EQ(VYX_Recvn(pair.server, got.data(), iSize, nTimeOut), iSize);
        sender.join();
        EXPECT_TRUE(got == data);
    }
}

TEST(Transfer, Datagrams) {
    const std::string data = Pattern(20000);
    const auto iSize = static_cast<int32_t>(data.size());
    for (const int32_t iFamily : kFamilies) {
        if (IsMissing(iFamily))
            continue;
        const Socket server = Bound(iFamily, SOCK_DGRAM);
        const Socket client = Bound(iFamily, SOCK_DGRAM);
        const VYX_ADDR_T addr = LocalOf(server);
        const VYX_ADDR_T own = LocalOf(client);
        std::string got(data.size() + 1, '#');
        VYX_ADDR_T from = {};
        pollfd fd = {server, POLLIN, 0};
        ASSERT_EQ(VYX_SendTo(client, data.data(), iSize, &addr), iSize);
        ASSERT_EQ(VYX_Poll(&fd, 1, static_cast<int32_t>(LongTime())), 1);
        ASSERT_EQ(VYX_RecvFrom(server, got.data(), iSize + 1, &from), iSize);
        EXPECT_TRUE(got == data + "#");
        EXPECT_EQ(memcmp(&from, &own, sizeof from), 0);
        ASSERT_EQ(VYX_SendTo(client, "ab", 2, &addr), 2);
        EXPECT_EQ(VYX_RecvFrom(server, got.data(), 1, nullptr), 1);
    }
}

TEST(Transfer, EndsOfAllKinds) {
    ASSERT_EQ(VYX_Init(), VYX_OK); // from then on a send to nobody is no signal
    Pair pair;
    char szBytes[8];
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
    const std::string data = Pattern(1000000);
    EXPECT_GT(VYX_Sendn(full, data.data(), 1000000, 0), 0);
    EXPECT_EQ(VYX_ShutDown(deaf, SHUT_RDWR), 0); // of which poll tells as an end, not as room
    EXPECT_EQ(VYX_Sendn(full, "x", 1, VYX_INFINITE), 0);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

// ---- Adapters and names

TEST(Adapters, AreThoseOfThisSystem) {
    const std::string expected = Adapters();
    EXPECT_NE(expected.find("lo type " + std::to_string(ARPHRD_LOOPBACK) +
                            " mac 00:00:00:00:00:00 127.0.0.1/255.0.0.0"),
              std::string::npos)
        << expected;
    const int iEqual = nettest::CountInThreads([&expected] { return Adapters() == expected; });
    EXPECT_TRUE(iEqual == 200 || Adapters() != expected) << iEqual;
}

TEST(Resolve, NamesFromManyThreads) {
    EXPECT_EQ(nettest::CountInThreads([] {
                  VYX_ADDRESS_INFO_T *pList = nullptr;
                  const bool bKnown = VYX_GetAddressInfo("localhost", "80", nullptr, &pList) == 0 &&
                                      VYX_GetAddrPort(&pList->struAddr) == 80;
                  return VYX_FreeAddressInfo(pList) == 0 && bKnown;
              }),
              200);
}

void *CancelledInTheCall(void * /*pParam*/) {
    VYX_ADAPTER_INFO *pList = nullptr;
    (void)pthread_cancel(pthread_self());
    (void)VYX_GetAdapterInfo(&pList);
    (void)VYX_FreeAdapterInfo(pList); // where nothing in the call ends a cancelled thread
    pthread_testcancel();
    return nullptr;
}

TEST(Adapters, ACancelledThreadEndsAndLeavesNoDescriptor) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer takes the frames that a cancellation leaves for live ones";
#endif
    const long iBefore = support::OpenDescriptors();
    pthread_t hThread;
    void *pResult = nullptr;
    ASSERT_EQ(pthread_create(&hThread, nullptr, CancelledInTheCall, nullptr), 0);
    ASSERT_EQ(pthread_join(hThread, &pResult), 0);
    EXPECT_EQ(pResult, PTHREAD_CANCELED);
    EXPECT_EQ(support::OpenDescriptors(), iBefore);
}

} // namespace
