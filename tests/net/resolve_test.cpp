// Host names and name resolution. What the platform's resolver is told and what it answers is decided here, by calls put
// in at link time.
#include <arpa/inet.h>
#include <cstring>
#include <string>
#include <unistd.h>

#include "net/net_support.h"
#include "support/failing_memory.h"

namespace {

// The platform's side of the lookups.
struct Resolver {
    std::string asked; // node and service
    addrinfo hints;
    int iError;
    int iLists; // given and not taken back
    addrinfo results[3];
};
Resolver s_resolver;

} // namespace

extern "C" {
int __wrap_getaddrinfo(const char *szNode, const char *szService, const addrinfo *pHints, addrinfo **ppList) {
    s_resolver.asked = std::string(szNode) + " " + szService;
    s_resolver.hints = *pHints;
    *ppList = s_resolver.results;
    s_resolver.iLists += s_resolver.iError == 0 ? 1 : 0;
    return s_resolver.iError;
}
void __wrap_freeaddrinfo(addrinfo *pList) {
    s_resolver.iLists -= pList == s_resolver.results ? 1 : 100;
}
}

namespace {

VYX_ADDRESS_INFO_T *const kUntouched = reinterpret_cast<VYX_ADDRESS_INFO_T *>(8);

class Resolve : public testing::Test {
  protected:
    Resolve() {
        addrinfo *const p = s_resolver.results;
        s_resolver.iError = s_resolver.iLists = 0;
        p[0] = {AI_PASSIVE, AF_INET, SOCK_STREAM, 6, sizeof addr4.in4, &addr4.sa, szName, p + 1};
        p[1] = {AI_V4MAPPED, AF_INET6, SOCK_DGRAM, 17, sizeof addr6.in6, &addr6.sa, nullptr, p + 2};
        p[2] = {0, AF_UNIX, 3, 0, sizeof addr4.in4, &addr4.sa, nullptr, nullptr};
    }
    ~Resolve() override { EXPECT_EQ(s_resolver.iLists, 0); }

    // Of each result its numbers, address, port and name.
    static std::string Ask(const VYX_ADDRESS_INFO_T *pHints) {
        VYX_ADDRESS_INFO_T *pList = kUntouched;
        if (VYX_GetAddressInfo("node", "service", pHints, &pList) != VYX_OK)
            return pList == kUntouched ? "error" : "an error that leaves something";
        std::string text;
        for (const VYX_ADDRESS_INFO_T *p = pList; p != nullptr; p = p->pNext) {
            const char *szAddr = VYX_GetAddrString(&p->struAddr);
            for (const int32_t i : {p->iFlags, p->iFamily, p->iSockType, p->iProtocol})
                text += std::to_string(i) + " ";
            text += std::string(szAddr == nullptr ? "none" : szAddr) + " " +
                    std::to_string(VYX_GetAddrPort(&p->struAddr)) + " " +
                    (p->pCanonName == nullptr ? "-" : p->pCanonName) + "\n";
        }
        EXPECT_EQ(VYX_FreeAddressInfo(pList), 0);
        return text;
    }

    VYX_ADDR_T addr4 = nettest::Loopback(AF_INET, 80);
    VYX_ADDR_T addr6 = nettest::Loopback(AF_INET6, 81);
    char szName[8] = "name";
};

TEST_F(Resolve, PassesTheHintsOn) {
    VYX_ADDRESS_INFO_T hints = {1, 2, 3, 4, addr6, szName, nullptr};
    for (const int32_t iFamily : {AF_INET, AF_INET6, AF_UNIX}) {
        hints.struAddr.sa.sa_family = static_cast<sa_family_t>(iFamily);
        (void)Ask(&hints);
        const addrinfo &got = s_resolver.hints;
        EXPECT_EQ(s_resolver.asked, "node service");
        EXPECT_TRUE(got.ai_flags == 1 && got.ai_family == 2 && got.ai_socktype == 3 && got.ai_protocol == 4);
        EXPECT_EQ(got.ai_addrlen, iFamily == AF_INET ? 16U : iFamily == AF_INET6 ? 28U : 0U);
        EXPECT_EQ(got.ai_addr, iFamily == AF_UNIX ? nullptr : &hints.struAddr.sa);
        EXPECT_EQ(got.ai_canonname, szName);
    }
    (void)Ask(nullptr);
    const addrinfo &none = s_resolver.hints;
    EXPECT_TRUE(none.ai_flags == 0 && none.ai_family == 0 && none.ai_socktype == 0 && none.ai_protocol == 0);
    EXPECT_TRUE(none.ai_addrlen == 0 && none.ai_addr == nullptr && none.ai_canonname == nullptr);
}

TEST_F(Resolve, CopiesEveryResult) {
    const auto numbers = [](int iFlags, int iFamily) {
        return std::to_string(iFlags) + " " + std::to_string(iFamily);
    };
    EXPECT_EQ(Ask(nullptr), numbers(AI_PASSIVE, AF_INET) + " 1 6 127.0.0.1 80 name\n" +
                                numbers(AI_V4MAPPED, AF_INET6) + " 2 17 ::1 81 -\n" + numbers(0, AF_UNIX) +
                                " 3 0 none 0 -\n");
    s_resolver.results[1].ai_addr = nullptr;
    EXPECT_NE(Ask(nullptr).find(" 2 17 none 0 -\n"), std::string::npos);
    s_resolver.iError = EAI_NONAME;
    EXPECT_EQ(Ask(nullptr), "error");
}

TEST_F(Resolve, ShortOfMemory) {
    const long iBefore = failing_memory::Alive();
    for (int iLeft = 0; iLeft <= 4; ++iLeft) { // three nodes, one name
        VYX_ADDRESS_INFO_T *pList = kUntouched;
        int32_t iResult = 0;
        {
            const failing_memory::Limit limit(iLeft);
            iResult = VYX_GetAddressInfo("", "", nullptr, &pList);
        }
        EXPECT_EQ(iResult, iLeft == 4 ? VYX_OK : VYX_ERROR) << iLeft;
        EXPECT_EQ(pList == kUntouched, iLeft != 4) << iLeft;
        if (iResult == VYX_OK)
            (void)VYX_FreeAddressInfo(pList);
        EXPECT_EQ(failing_memory::Alive(), iBefore) << iLeft;
    }
}

TEST(HostName, IsThePlatforms) {
    char szExpected[256] = "";
    char szName[256] = "";
    ASSERT_EQ(gethostname(szExpected, sizeof szExpected), 0);
    ASSERT_EQ(VYX_GetHostName(szName, sizeof szName), 0);
    EXPECT_STREQ(szName, szExpected);
    const hostent *const pHost = VYX_GetAddressByName("127.0.0.1");
    ASSERT_NE(pHost, nullptr);
    EXPECT_EQ(memcmp(pHost->h_addr_list[0], "\x7f\0\0\x01", 4), 0);
}

TEST(ByteOrder, NetworkOrderIsBigEndian) {
    const uint16_t nShort = VYX_Htons(0x0102);
    const uint32_t nLong = VYX_Htonl(0x01020304);
    EXPECT_EQ(memcmp(&nShort, "\1\2", 2), 0);
    EXPECT_EQ(memcmp(&nLong, "\1\2\3\4", 4), 0);
    EXPECT_EQ(VYX_Ntohs(nShort), 0x0102);
    EXPECT_EQ(VYX_Ntohl(nLong), 0x01020304U);
}

} // namespace
