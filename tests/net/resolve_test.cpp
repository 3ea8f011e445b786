// Host names and name resolution. Numbers and localhost only: nothing here asks a name server.
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/net.h>

#include "net/failing_memory.h"

namespace {

struct Free {
    void operator()(VYX_ADDRESS_INFO_T *pList) const { EXPECT_EQ(VYX_FreeAddressInfo(pList), 0); }
};
using List = std::unique_ptr<VYX_ADDRESS_INFO_T, Free>;

VYX_ADDRESS_INFO_T *const kUntouched = reinterpret_cast<VYX_ADDRESS_INFO_T *>(8);

VYX_ADDRESS_INFO_T Hints(int32_t iFlags, int32_t iFamily = AF_UNSPEC, int32_t iSockType = 0) {
    VYX_ADDRESS_INFO_T hints = {};
    hints.iFlags = iFlags;
    hints.iFamily = iFamily;
    hints.iSockType = iSockType;
    return hints;
}

// "family type protocol port bytes [canonical name]", and the rest behind commas; "error" if there is none.
std::string Describe(const VYX_ADDRESS_INFO_T *pNode) {
    std::string text;
    for (; pNode != nullptr; pNode = pNode->pNext) {
        char szAddr[64] = "?";
        EXPECT_EQ(VYX_GetAddrType(&pNode->struAddr), pNode->iFamily);
        const auto &addr = pNode->struAddr;
        const void *pBytes = &addr.in4.sin_addr;
        if (pNode->iFamily == AF_INET6)
            pBytes = &addr.in6.sin6_addr;
        (void)inet_ntop(pNode->iFamily, pBytes, szAddr, sizeof szAddr);
        text += (text.empty() ? "" : ", ") + std::string(szAddr) + " " +
                std::to_string(VYX_GetAddrPort(&addr)) + (pNode->iSockType == SOCK_STREAM ? " stream" : "") +
                (pNode->iSockType == SOCK_DGRAM ? " dgram" : "") + " " + std::to_string(pNode->iProtocol);
        if (pNode->pCanonName != nullptr)
            text += std::string(" ") + pNode->pCanonName;
    }
    return text;
}

std::string Resolve(const char *szNode, const char *szService, const VYX_ADDRESS_INFO_T *pHints) {
    VYX_ADDRESS_INFO_T *pList = kUntouched;
    if (VYX_GetAddressInfo(szNode, szService, pHints, &pList) != VYX_OK) {
        EXPECT_EQ(pList, kUntouched);
        return "error";
    }
    const List list(pList);
    return Describe(pList);
}

TEST(Resolve, PassesTheHintsOnAndCopiesEveryResult) {
    const auto numeric = Hints(AI_NUMERICHOST, AF_UNSPEC, SOCK_STREAM);
    const auto passive = Hints(AI_PASSIVE, AF_INET6, SOCK_STREAM);
    const auto datagram = Hints(AI_NUMERICHOST, AF_INET, SOCK_DGRAM);
    const auto name = Hints(AI_NUMERICHOST | AI_CANONNAME, AF_UNSPEC, SOCK_STREAM);
    auto protocol = Hints(AI_NUMERICHOST);
    protocol.iProtocol = IPPROTO_UDP;
    const auto any = Hints(AI_NUMERICHOST, AF_INET);
    const auto wrongFamily = Hints(AI_NUMERICHOST, AF_INET6);
    const struct {
        const char *szNode;
        const char *szService;
        const VYX_ADDRESS_INFO_T *pHints;
        const char *szExpected;
    } cases[] = {
        {"127.0.0.1", "8080", &numeric, "127.0.0.1 8080 stream 6"},
        {"127.0.0.1", nullptr, &numeric, "127.0.0.1 0 stream 6"},
        {"2001:db8::7", "65535", &numeric, "2001:db8::7 65535 stream 6"},
        {nullptr, "25", &passive, ":: 25 stream 6"},
        {"127.0.0.1", "53", &datagram, "127.0.0.1 53 dgram 17"},
        {"127.0.0.1", "53", &protocol, "127.0.0.1 53 dgram 17"},
        {"127.0.0.1", "80", &name, "127.0.0.1 80 stream 6 127.0.0.1"},
        {"127.0.0.1", nullptr, &any, "127.0.0.1 0 stream 6, 127.0.0.1 0 dgram 17, 127.0.0.1 0 0"},
        {"127.0.0.1", nullptr, &wrongFamily, "error"},
        {"no number", nullptr, &numeric, "error"},
        {nullptr, nullptr, nullptr, "error"},
    };
    for (const auto &lookUp : cases)
        EXPECT_EQ(Resolve(lookUp.szNode, lookUp.szService, lookUp.pHints), lookUp.szExpected)
            << (lookUp.szNode == nullptr ? "null" : lookUp.szNode);
    EXPECT_EQ(VYX_GetAddressInfo("127.0.0.1", nullptr, &numeric, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_FreeAddressInfo(nullptr), 0);
}

TEST(Resolve, FindsTheLocalHostWithoutHints) {
    VYX_ADDRESS_INFO_T *pList = nullptr;
    ASSERT_EQ(VYX_GetAddressInfo("localhost", nullptr, nullptr, &pList), VYX_OK);
    const List list(pList);
    ASSERT_NE(pList, nullptr);
    const int32_t iFamily = VYX_GetAddrType(&pList->struAddr);
    EXPECT_TRUE(iFamily == AF_INET || iFamily == AF_INET6) << iFamily;
    EXPECT_EQ(VYX_GetAddrPort(&pList->struAddr), 0);
    EXPECT_EQ(pList->pCanonName, nullptr);
}

TEST(Resolve, ShortOfMemoryOrDescriptors) {
    const auto hints = Hints(AI_NUMERICHOST | AI_CANONNAME); // three nodes, one name
    const long iBefore = failing_memory::Alive();
    for (int iLeft = 0; iLeft <= 4; ++iLeft) {
        VYX_ADDRESS_INFO_T *pList = kUntouched;
        int32_t iResult = 0;
        {
            const failing_memory::Limit limit(iLeft);
            iResult = VYX_GetAddressInfo("127.0.0.1", nullptr, &hints, &pList);
        }
        EXPECT_EQ(iResult, iLeft == 4 ? VYX_OK : VYX_ERROR) << iLeft;
        EXPECT_EQ(pList == kUntouched, iLeft != 4) << iLeft;
        if (iResult == VYX_OK)
            (void)VYX_FreeAddressInfo(pList);
        EXPECT_EQ(failing_memory::Alive(), iBefore) << iLeft;
    }
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    VYX_ADDRESS_INFO_T *pList = kUntouched;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int32_t iResult = VYX_GetAddressInfo("localhost", nullptr, nullptr, &pList);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(iResult, VYX_ERROR);
    EXPECT_EQ(pList, kUntouched);
    EXPECT_NE(Resolve("localhost", nullptr, nullptr), "error") << "it recovers";
}

TEST(Resolve, FromManyThreadsAtOnce) {
    const auto hints = Hints(AI_CANONNAME, AF_UNSPEC, SOCK_STREAM);
    const std::string expected = Resolve("localhost", "80", &hints);
    EXPECT_NE(expected, "error");
    std::atomic<int> iEqual{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 50; ++j)
                iEqual += Resolve("localhost", "80", &hints) == expected ? 1 : 0;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(iEqual, 200);
}

TEST(HostName, IsThePlatformsAndNeverOverruns) {
    char szExpected[256] = {};
    ASSERT_EQ(gethostname(szExpected, sizeof szExpected), 0);
    char szName[256];
    std::memset(szName, 'x', sizeof szName);
    ASSERT_EQ(VYX_GetHostName(szName, sizeof szName), 0);
    EXPECT_STREQ(szName, szExpected);
    EXPECT_EQ(VYX_GetHostName(nullptr, 10), VYX_ERROR);
    EXPECT_EQ(VYX_GetHostName(szName, -1), VYX_ERROR);
    std::memset(szName, 'x', sizeof szName);
    (void)VYX_GetHostName(szName, 1);
    EXPECT_EQ(szName[1], 'x');
}

TEST(HostName, LooksUpIntoThePlatformsRecord) {
    const hostent *const pHost = VYX_GetAddressByName("127.0.0.1");
    ASSERT_NE(pHost, nullptr);
    EXPECT_EQ(pHost->h_addrtype, AF_INET);
    EXPECT_EQ(std::string(pHost->h_addr_list[0], 4), std::string("\x7f\0\0\x01", 4));
    EXPECT_EQ(VYX_GetAddressByName(nullptr), nullptr);
}

TEST(ByteOrder, NetworkOrderIsBigEndian) {
    const uint8_t shortBytes[] = {1, 2};
    const uint8_t longBytes[] = {1, 2, 3, 4};
    uint16_t nShort = VYX_Htons(0x0102);
    uint32_t nLong = VYX_Htonl(0x01020304);
    EXPECT_EQ(std::memcmp(&nShort, shortBytes, 2), 0);
    EXPECT_EQ(std::memcmp(&nLong, longBytes, 4), 0);
    EXPECT_EQ(VYX_Ntohs(nShort), 0x0102);
    EXPECT_EQ(VYX_Ntohl(nLong), 0x01020304U);
}

} // namespace
