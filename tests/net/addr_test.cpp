// Address records taken apart and put together; what texts become, and how they are printed, is the fuzz target's.
#include <algorithm>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <vyx/net.h>

namespace {

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
        const size_t nCopied = static_cast<size_t>(std::clamp(iLength, 0, 28));
        const std::string expected =
            source.substr(0, nCopied) + std::string(sizeof records - nCopied, '\xEE');
        EXPECT_EQ(memcmp(records, expected.data(), sizeof records), 0) << iLength;
    }
}

} // namespace
