// Host names and name resolution. Numbers and localhost only: nothing here asks a name server.
#include <arpa/inet.h>
#include <cstring>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/net.h>

#include "net/failing_memory.h"
#include "net/net_support.h"

namespace {

VYX_ADDRESS_INFO_T *const kUntouched = reinterpret_cast<VYX_ADDRESS_INFO_T *>(8);

VYX_ADDRESS_INFO_T Hints(int32_t iFlags, int32_t iFamily, int32_t iSockType, int32_t iProtocol = 0) {
    VYX_ADDRESS_INFO_T hints = {};
    hints.iFlags = iFlags;
    hints.iFamily = iFamily;
    hints.iSockType = iSockType;
    hints.iProtocol = iProtocol;
    return hints;
}

// "127.0.0.1 80 stream 6 canonical name", address, port, type, protocol; and the rest behind commas.
std::string Describe(const VYX_ADDRESS_INFO_T *pNode) {
    std::string text;
    for (; pNode != nullptr; pNode = pNode->pNext) {
        const VYX_ADDR_T &addr = pNode->struAddr;
        char szAddr[64] = "?";
        EXPECT_EQ(VYX_GetAddrType(&addr), pNode->iFamily);
        if (pNode->iFamily == AF_INET)
            (void)inet_ntop(AF_INET, &addr.in4.sin_addr, szAddr, sizeof szAddr);
        else
            (void)inet_ntop(AF_INET6, &addr.in6.sin6_addr, szAddr, sizeof szAddr);
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
    const std::string text = Describe(pList);
    EXPECT_EQ(VYX_FreeAddressInfo(pList), 0);
    return text;
}

TEST(Resolve, PassesTheHintsOnAndCopiesEveryResult) {
    constexpr int32_t kNumber = AI_NUMERICHOST;
    const VYX_ADDRESS_INFO_T stream = Hints(kNumber, AF_UNSPEC, SOCK_STREAM);
    const struct {
        const char *szNode;
        const char *szService;
        VYX_ADDRESS_INFO_T hints;
        const char *szExpected;
    } cases[] = {
        {"127.0.0.1", "8080", stream, "127.0.0.1 8080 stream 6"},
        {"2001:db8::7", "65535", stream, "2001:db8::7 65535 stream 6"},
        {nullptr, "25", Hints(AI_PASSIVE, AF_INET6, SOCK_STREAM), ":: 25 stream 6"},
        {"127.0.0.1", "53", Hints(kNumber, AF_INET, SOCK_DGRAM), "127.0.0.1 53 dgram 17"},
        {"127.0.0.1", "53", Hints(kNumber, AF_UNSPEC, 0, IPPROTO_UDP), "127.0.0.1 53 dgram 17"},
        {"127.0.0.1", nullptr, Hints(kNumber | AI_CANONNAME, AF_INET, 0),
         "127.0.0.1 0 stream 6 127.0.0.1, 127.0.0.1 0 dgram 17, 127.0.0.1 0 0"},
        {"127.0.0.1", nullptr, Hints(kNumber, AF_INET6, 0), "error"},
        {"no number", nullptr, stream, "error"},
    };
    for (const auto &lookUp : cases)
        EXPECT_EQ(Resolve(lookUp.szNode, lookUp.szService, &lookUp.hints), lookUp.szExpected);
    EXPECT_EQ(VYX_GetAddressInfo("127.0.0.1", nullptr, &stream, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_FreeAddressInfo(nullptr), 0);
}

TEST(Resolve, ShortOfMemoryOrDescriptors) {
    const auto hints = Hints(AI_NUMERICHOST | AI_CANONNAME, AF_UNSPEC, 0); // three nodes, one name
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
    {
        const nettest::DescriptorLimit none(0);
        EXPECT_EQ(Resolve("localhost", nullptr, nullptr), "error");
    }
    EXPECT_NE(Resolve("localhost", nullptr, nullptr), "error") << "it recovers";
}

TEST(Resolve, FromManyThreadsAtOnce) {
    const auto hints = Hints(AI_CANONNAME, AF_UNSPEC, SOCK_STREAM);
    const std::string expected = Resolve("localhost", "80", &hints);
    EXPECT_NE(expected, "error");
    EXPECT_EQ(nettest::CountInThreads([&] { return Resolve("localhost", "80", &hints) == expected; }), 200);
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
    const uint16_t nShort = VYX_Htons(0x0102);
    const uint32_t nLong = VYX_Htonl(0x01020304);
    EXPECT_EQ(std::memcmp(&nShort, "\1\2", 2), 0);
    EXPECT_EQ(std::memcmp(&nLong, "\1\2\3\4", 4), 0);
    EXPECT_EQ(VYX_Ntohs(nShort), 0x0102);
    EXPECT_EQ(VYX_Ntohl(nLong), 0x01020304U);
}

} // namespace
