// Network addresses: the parser, the printer, compared with the platform's, and records.
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <vyx/net.h>

namespace {

using Bytes = std::array<uint8_t, 16>;

std::string Hex(const Bytes &bytes, size_t nCount) {
    std::string text;
    for (size_t n = 0; n < nCount; ++n) {
        text += "0123456789abcdef"[bytes[n] >> 4];
        text += "0123456789abcdef"[bytes[n] & 15];
    }
    return text;
}

// The bytes parsed, as hexadecimal digits; "refused", with a look that nothing was written.
std::string Parsed(const std::string &text) {
    Bytes bytes;
    bytes.fill(0xEE);
    if (VYX_InetPton(text.c_str(), bytes.data()) == VYX_OK)
        return Hex(bytes, text.find(':') == std::string::npos ? 4 : 16);
    EXPECT_EQ(Hex(bytes, 16), std::string(32, 'e')) << text;
    return "refused";
}

TEST(Addr, ParserWhereItIsItsOwn) {
    const struct {
        const char *szText;
        const char *szBytes;
    } cases[] = {
        {"1.2.3.4", "01020304"},
        {"001.002.003.004", "01020304"},
        {"0000255.0.0.1", "ff000001"},
        {"fe80::1", "fe800000000000000000000000000001"},
        {"2001:DB8:0:0:8:a00:200c:417A", "20010db80000000000080a00200c417a"},
        {"1::", "00010000000000000000000000000000"},
        {"::1", "00010000000000000000000000000000"}, // the first group, where others have the last
        {"::1:2", "00010002000000000000000000000000"},
        {"1:2", "00010002000000000000000000000000"},
        {"1:2:", "00010002000000000000000000000000"},
        {"1:2g", "00010002000000000000000000000000"}, // a last character that does not belong there
        {"1:2:x", "00010002000000000000000000000000"},
        {"1:2:3:4:5:6:7:8::", "00010002000300040005000600070008"},
        {"1::2:3:4:5:6:7:8:9", "00020003000400050006000700080009"},
        {"00000001::", "00010000000000000000000000000000"},
        {"1:2:3:4:5:6:1.2.3.4", "00010002000300040005000601020304"},
        {"::ffff:1.2.3.4", "ffff0102030400000000000000000000"},
    };
    for (const auto &test : cases)
        EXPECT_EQ(Parsed(test.szText), test.szBytes) << test.szText;
    std::istringstream refused(
        "|1.2.3|1.2.3.4.5|1..2.3|.1.2.3|256.1.1.1|1.2.3.x|1.2.3.4 |1.2.3.:|a|1|:|:1|:1:2|1:::2|"
        "1::2::3|12345::|1:2:3:4:5:6:7:8:9|1::2:3:4:5:6:7:8:9:a|1:x:2|::g|1:2:3:4:5:6:7:1.2.3.4|"
        "1::1.2.3.4|1:256.1.1.1");
    for (std::string text; std::getline(refused, text, '|');)
        EXPECT_EQ(Parsed(text), "refused") << text;
}

TEST(Addr, PrinterAgainstThePlatform) {
    std::mt19937 random(8);
    int nNull = 0;
    for (int i = 0; i < 200000; ++i) {
        Bytes bytes{};
        for (uint8_t &by : bytes)
            by = static_cast<uint8_t>(random() % 3 == 0 ? random() : 0);
        if (i % 20 == 0)
            bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, static_cast<uint8_t>(random() % 120), 4};
        char szOwn[64] = "";
        char szPlatform[64] = "";
        const char *szText = VYX_InetNtop(AF_INET6, bytes.data(), szOwn, sizeof szOwn);
        const std::string platform = inet_ntop(AF_INET6, bytes.data(), szPlatform, sizeof szPlatform);
        // On purpose: a dotted quad at the end has room for eight characters.
        const size_t nQuad =
            platform.find('.') == std::string::npos ? 0 : platform.size() - platform.rfind(':') - 1;
        ASSERT_EQ(szText == nullptr, nQuad > 8) << platform;
        ASSERT_EQ(szText == nullptr ? platform : szText, platform);
        ASSERT_STREQ(VYX_InetNtop(AF_INET, bytes.data(), szOwn, 16),
                     inet_ntop(AF_INET, bytes.data(), szPlatform, sizeof szPlatform));
        nNull += szText == nullptr ? 1 : 0;
    }
    EXPECT_GT(nNull, 0);
}

TEST(Addr, PrinterKeepsToTheSize) {
    const Bytes bytes = {192, 168, 1, 10};
    const auto print = [&bytes](int32_t iFamily, int32_t iSize) {
        std::string out(32, '#');
        const char *szText = VYX_InetNtop(iFamily, bytes.data(), out.data(), iSize);
        return std::string(szText == nullptr ? "null" : szText) + " " + out[static_cast<size_t>(iSize)];
    };
    EXPECT_EQ(print(AF_INET, 13), "192.168.1.10 #");
    EXPECT_EQ(print(AF_INET, 12), std::string("192.168.1.10 ") + '\0') << "the zero lands behind the size";
    EXPECT_EQ(print(AF_INET, 11), "null #");
    EXPECT_EQ(print(AF_INET6, 11), "c0a8:10a:: #");
    EXPECT_EQ(print(AF_INET6, 10), "null #") << "no room for the zero";
    EXPECT_EQ(print(AF_UNIX, 30), "null #");
}

TEST(Addr, Records) {
    const struct {
        int32_t iFamily;
        const char *szText;
        const char *szMade; // null: refused
    } cases[] = {
        {AF_INET, "", "0.0.0.0"},
        {AF_INET, nullptr, "0.0.0.0"},
        {AF_INET, "127.0.0.1", "127.0.0.1"},
        {AF_INET, "255.255.255.255", nullptr}, // looks like no address
        {AF_INET6, nullptr, "::"},
        {AF_INET6, "fe80::7", "fe80::7"},
        {AF_INET6, "1:x", "1::"}, // a last character may be anything
        {AF_INET6, "x:1", nullptr},
        {AF_INET6, "12345::", nullptr},
        {AF_INET6, ":1:2", nullptr},
        {5, "1.2.3.4", nullptr},
        {5, "", nullptr},
    };
    VYX_ADDR_T addr;
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szText);
        memset(&addr, 0xEE, sizeof addr);
        ASSERT_EQ(VYX_MakeAddrByString(test.iFamily, test.szText, 0x1234, &addr),
                  test.szMade == nullptr ? VYX_ERROR : VYX_OK);
        if (test.szMade == nullptr)
            continue;
        EXPECT_EQ(VYX_GetAddrType(&addr), test.iFamily);
        EXPECT_EQ(addr.in4.sin_port, htons(0x1234));
        EXPECT_EQ(VYX_GetAddrPort(&addr), 0x1234);
        EXPECT_STREQ(VYX_GetAddrString(&addr), test.szMade);
    }
}

TEST(Addr, RecordsTakenApart) {
    VYX_ADDR_T addr;
    VYX_ADDR_EXP_T exp;
    Bytes bytes = {0xFE, 0x80, 3};
    uint32_t nAddr = 0;
    EXPECT_EQ(VYX_MakeAddr6ByInt(bytes.data(), 9, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET6 && exp.nPort == 9 && memcmp(exp.byAddr, bytes.data(), 16) == 0);
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_ERROR);
    memset(&exp, 0xEE, sizeof exp);
    EXPECT_EQ(VYX_MakeAddr4ByInt(htonl(0x01020304), 7, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET && exp.nPort == 7 && memcmp(exp.byAddr, "\1\2\3\4\xEE", 5) == 0);
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_OK);
    EXPECT_EQ(nAddr, htonl(0x01020304));
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes.data()), VYX_ERROR);
    addr.sa.sa_family = AF_UNIX;
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_ERROR);
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes.data()), VYX_OK) << "every other family counts as IPv6";
    EXPECT_EQ(memcmp(bytes.data(), &addr.in6.sin6_addr, 16), 0);
    EXPECT_EQ(VYX_GetAddrString(&addr), nullptr);
}

// A longer source must not write behind the record, nor a shorter one touch the rest.
TEST(Addr, RawAddressesStayInsideTheRecord) {
    uint8_t source[128];
    memset(source, 0x11, sizeof source);
    for (const int32_t iLength : {0, 1, 16, 28, 29, 128, -1, INT32_MIN, INT32_MAX}) {
        struct {
            VYX_ADDR_T addr;
            uint8_t byGuard[64];
        } place;
        uint8_t expected[sizeof place];
        memset(&place, 0xEE, sizeof place);
        memset(expected, 0xEE, sizeof expected);
        memset(expected, 0x11, static_cast<size_t>(iLength < 0 ? 0 : iLength > 28 ? 28 : iLength));
        EXPECT_EQ(VYX_MakeAddr(source, iLength, &place.addr), iLength > 0 ? VYX_OK : VYX_ERROR);
        EXPECT_EQ(memcmp(&place, expected, sizeof place), 0) << iLength;
    }
}

} // namespace
