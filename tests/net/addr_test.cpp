// Network addresses: records, the parser and the printer, where they are their own.
#include <array>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <vyx/net.h>

namespace {

using Bytes = std::array<uint8_t, 16>;

std::string Hex(const uint8_t *pBytes, size_t nCount) {
    std::string text;
    for (size_t i = 0; i < nCount; ++i) {
        text += "0123456789abcdef"[pBytes[i] >> 4];
        text += "0123456789abcdef"[pBytes[i] & 15];
    }
    return text;
}

// The bytes parsed, as hexadecimal digits; "refused", with a look that nothing was written.
std::string Parsed(const std::string &text) {
    Bytes bytes;
    bytes.fill(0xEE);
    if (VYX_InetPton(text.c_str(), bytes.data()) == VYX_OK)
        return Hex(bytes.data(), text.find(':') == std::string::npos ? 4 : 16);
    EXPECT_EQ(Hex(bytes.data(), 16), std::string(32, 'e')) << text;
    return "refused";
}

TEST(Addr, ParserWhereItIsItsOwn) {
    const struct {
        const char *szText;
        const char *szBytes;
    } cases[] = {
        {"0000255.0.0.1", "ff000001"},
        {"256.1.1.1", "refused"},
        {"1.2.3", "refused"},
        {"1.2.3.4.5", "refused"},
        {"1..2.3", "refused"},
        {"2001:DB8:0:0:8:800:200c:417A", "20010db80000000000080800200c417a"},
        {"fe80::1", "fe800000000000000000000000000001"},
        {"::1:2", "00010002000000000000000000000000"}, // the first group, where others have the last but one
        {"1:2g", "00010002000000000000000000000000"},  // a last character that does not belong there
        {"1:2:x", "00010002000000000000000000000000"},
        {"1:x:2", "refused"},
        {"00000001::", "00010000000000000000000000000000"},
        {"10000::", "refused"},
        {"1:2:3:4:5:6:1.2.3.4", "00010002000300040005000601020304"},
        {"1:2:3:4:5:6:7:1.2.3.4", "refused"},
        {"1:2:3:4:5:6:7:8:9", "refused"},
        {"::ffff:1.2.3.4", "ffff0102030400000000000000000000"},
        {"1::1.2.3.4", "refused"}, // no room is left behind the gap
        {"1:::2", "refused"},
        {":1", "refused"},
        {"a", "refused"},
    };
    for (const auto &test : cases)
        EXPECT_EQ(Parsed(test.szText), test.szBytes) << test.szText;
    EXPECT_EQ(VYX_InetPton(nullptr, nullptr), VYX_ERROR);
}

TEST(Addr, PrinterKeepsToTheSize) {
    const struct {
        const char *szBytes;
        int32_t iFamily;
        int32_t iSize;
        std::string text; // and the character at the size
    } cases[] = {
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_INET, 13, "192.168.1.10 #"},
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_INET, 12,
         std::string("192.168.1.10 ") + '\0'}, // behind it
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_INET, 11, "null #"},
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_INET6, 11, "c0a8:10a:: #"},
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_INET6, 10, "null #"}, // no room for the zero
        {"\xC0\xA8\1\12\0\0\0\0\0\0\0\0\0\0\0", AF_UNIX, 30, "null #"},
        {"\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", AF_INET6, 30, ":: #"},
        {"\0\1\0\2\0\3\0\0\0\5\0\6\0\7\0", AF_INET6, 30, "1:2:3:0:5:6:7:0 #"}, // a single zero is no run
        {"\0\1\0\0\0\0\0\1\0\0\0\0\0\1\0", AF_INET6, 30, "1::1:0:0:1:0 #"},    // the first of two equal runs
        {"\0\0\0\0\0\0\0\0\0\0\xFF\xFF\1\2\12\4", AF_INET6, 30, "::ffff:1.2.10.4 #"},
        {"\0\0\0\0\0\0\0\0\0\0\0\0\1\2\3\4", AF_INET6, 30, "::1.2.3.4 #"},
        {"\0\0\0\0\0\0\0\0\0\0\0\0\1\2\12\12", AF_INET6, 30, "null #"}, // room for eight characters of a quad
    };
    for (const auto &test : cases) {
        std::string out(32, '#');
        const char *szText = VYX_InetNtop(test.iFamily, test.szBytes, out.data(), test.iSize);
        EXPECT_EQ((szText == nullptr ? "null " : szText + std::string(" ")) +
                      out[static_cast<size_t>(test.iSize)],
                  test.text);
    }
    char szOut[8];
    EXPECT_EQ(VYX_InetNtop(AF_INET, nullptr, szOut, 8), nullptr);
    EXPECT_EQ(VYX_InetNtop(AF_INET, szOut, nullptr, 8), nullptr);
    EXPECT_EQ(VYX_InetNtop(AF_INET6, szOut, szOut, 0), nullptr);
}

TEST(Addr, Records) {
    VYX_ADDR_T addr;
    memset(&addr, 0xEE, sizeof addr);
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "", 80, &addr), VYX_OK);
    EXPECT_TRUE(addr.in4.sin_family == AF_INET && addr.in4.sin_port == htons(80) &&
                addr.in4.sin_addr.s_addr == 0);
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0x1234, &addr), VYX_OK);
    EXPECT_EQ(addr.in4.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_STREQ(VYX_GetAddrString(&addr), "127.0.0.1");
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "255.255.255.255", 1, &addr), VYX_ERROR)
        << "looks like no address";
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET6, "", 443, &addr), VYX_OK);
    EXPECT_STREQ(VYX_GetAddrString(&addr), "::");
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET6, "fe80::7", 443, &addr), VYX_OK);
    EXPECT_TRUE(addr.in6.sin6_family == AF_INET6 && addr.in6.sin6_port == htons(443) &&
                addr.in6.sin6_addr.s6_addr[15] == 7);
    EXPECT_STREQ(VYX_GetAddrString(&addr), "fe80::7");
    EXPECT_EQ(VYX_MakeAddrByString(5, "1.2.3.4", 1, &addr), VYX_ERROR);
    EXPECT_EQ(VYX_MakeAddrByString(5, nullptr, 1, &addr), VYX_ERROR);
    VYX_ADDR_EXP_T exp;
    memset(&exp, 0xEE, sizeof exp);
    EXPECT_EQ(VYX_MakeAddr4ByInt(htonl(0x01020304), 9, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET && exp.nPort == 9);
    EXPECT_EQ(Hex(exp.byAddr, 5), "01020304ee");
    Bytes bytes{};
    uint32_t nAddr = 0;
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes.data()), VYX_ERROR);
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_OK);
    EXPECT_EQ(nAddr, htonl(0x01020304));
    addr.sa.sa_family = AF_UNIX;
    EXPECT_EQ(VYX_GetAddr4Int(&addr, &nAddr), VYX_ERROR);
    EXPECT_EQ(VYX_GetAddr6Int(&addr, bytes.data()), VYX_OK) << "every other family counts as IPv6";
    EXPECT_EQ(VYX_GetAddrString(&addr), nullptr);
}

// A longer source must not write behind the record, nor a shorter one touch the rest.
TEST(Addr, RawAddressesStayInsideTheRecord) {
    const std::string source(128, '\x11');
    for (const int32_t iLength : {16, 28, 29, 128, -1, 0, INT32_MIN, INT32_MAX}) {
        VYX_ADDR_T place[3]; // the record, and what is behind it
        memset(place, 0xEE, sizeof place);
        EXPECT_EQ(VYX_MakeAddr(source.data(), iLength, place), iLength > 0 ? VYX_OK : VYX_ERROR);
        const size_t nTaken = iLength > 28 ? 28 : iLength > 0 ? static_cast<size_t>(iLength) : 0;
        const std::string expected = std::string(nTaken, '\x11') + std::string(sizeof place - nTaken, '\xEE');
        EXPECT_EQ(memcmp(place, expected.data(), sizeof place), 0) << iLength;
    }
    VYX_ADDR_T addr;
    EXPECT_EQ(VYX_MakeAddr(nullptr, 16, &addr), VYX_ERROR);
}

} // namespace
