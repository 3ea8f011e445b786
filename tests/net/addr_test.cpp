// Network addresses: records, the parser and the printer, compared with the platform's.
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <vyx/net.h>

namespace {

using Bytes = std::array<uint8_t, 16>;

std::string Hex(const Bytes &bytes) {
    std::string text;
    for (const uint8_t by : bytes) {
        char szDigits[3];
        (void)snprintf(szDigits, sizeof szDigits, "%02x", by);
        text += szDigits;
    }
    return text;
}

// The bytes parsed, as hexadecimal digits; "refused", with a look that nothing was written.
std::string Parsed(const std::string &text) {
    Bytes bytes;
    bytes.fill(0xEE);
    if (VYX_InetPton(text.c_str(), bytes.data()) == VYX_OK)
        return Hex(bytes).substr(0, text.find(':') == std::string::npos ? 8 : 32);
    EXPECT_EQ(Hex(bytes), std::string(32, 'e')) << text;
    return "refused";
}

std::string PlatformParsed(const std::string &text) {
    Bytes bytes{};
    const bool bSix = text.find(':') != std::string::npos;
    return inet_pton(bSix ? AF_INET6 : AF_INET, text.c_str(), bytes.data()) == 1
               ? Hex(bytes).substr(0, bSix ? 32 : 8)
               : "refused";
}

TEST(Addr, ParserWhereItIsItsOwn) {
    const struct {
        const char *szText;
        const char *szBytes;
    } cases[] = {
        {"001.002.003.004", "01020304"},
        {"0000255.0.0.1", "ff000001"},
        {"::1", "00010000000000000000000000000000"}, // the first group, where others have the last
        {"::1:2", "00010002000000000000000000000000"},
        {"1:2", "00010002000000000000000000000000"},
        {"1:2:", "00010002000000000000000000000000"},
        {"1:2g", "00010002000000000000000000000000"}, // a last character that does not belong there
        {"1:2:x", "00010002000000000000000000000000"},
        {"00000001::", "00010000000000000000000000000000"},
        {"1:2:3:4:5:6:1.2.3.4", "00010002000300040005000601020304"},
        {"::ffff:1.2.3.4", "ffff0102030400000000000000000000"},
        {"1::1.2.3.4", "refused"}, // no room is left behind the gap
    };
    for (const auto &test : cases)
        EXPECT_EQ(Parsed(test.szText), test.szBytes) << test.szText;
}

TEST(Addr, ParserRefusesAndAccepts) {
    for (const char *szBad : {"",
                              "1.2.3",
                              "1.2.3.4.5",
                              "1..2.3",
                              ".1.2.3",
                              "256.1.1.1",
                              "1.2.3.x",
                              "1.2.3.4 ",
                              "a",
                              "1",
                              ":1",
                              "1:::2",
                              "1::2::3",
                              "12345::",
                              "1:2:3:4:5:6:7:8:9",
                              "1:x:2",
                              ":",
                              "1:2:3:4:5:6:7:1.2.3.4",
                              "1:256.1.1.1",
                              "::g"})
        EXPECT_EQ(Parsed(szBad), "refused") << szBad;
    EXPECT_EQ(Parsed("1.2.3.4"), "01020304");
    EXPECT_EQ(Parsed("fe80::1"), "fe800000000000000000000000000001");
    EXPECT_EQ(Parsed("2001:DB8:0:0:8:800:200c:417A"), "20010db80000000000080800200c417a");
    EXPECT_EQ(Parsed("1::"), "00010000000000000000000000000000");
    EXPECT_EQ(VYX_InetPton(nullptr, nullptr), VYX_ERROR);
}

// Where a generated text means something else to the platform, it is one of these, on purpose: leading zeros are
// taken, groups may be missing, a gap at the beginning is none, the last character may be anything.
bool MeantToDiffer(const std::string &text) {
    if (text.find(':') == std::string::npos)
        return text[0] == '0' || text.find(".0") != std::string::npos;
    return text.compare(0, 2, "::") == 0 || PlatformParsed(text) == "refused" ||
           text.find('.') != std::string::npos || text.find("::") + 2 == text.size();
}

TEST(Addr, ParserAgainstThePlatform) {
    std::mt19937 random(7);
    const auto pick = [&random](const char *szFrom) { return szFrom[random() % strlen(szFrom)]; };
    int nSame = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string text;
        const bool bDots = random() % 2 == 0;
        for (auto nGroups = bDots ? 4 : 1 + random() % 8; nGroups > 0; --nGroups) {
            for (auto n = 1 + random() % (bDots ? 3 : 4); n > 0; --n)
                text += pick(bDots ? "012" : "0123456789abcdefABCDEF");
            if (nGroups > 1)
                text += bDots ? "." : random() % 6 == 0 ? "::" : ":";
        }
        if (random() % 10 == 0)
            text[random() % text.size()] = pick(".:xg0");
        if (Parsed(text) == PlatformParsed(text))
            ++nSame;
        else
            ASSERT_TRUE(MeantToDiffer(text)) << text << ": " << Parsed(text) << ", " << PlatformParsed(text);
    }
    EXPECT_GT(nSame, 60000);
}

TEST(Addr, PrinterAgainstThePlatform) {
    std::mt19937 random(8);
    int nNull = 0;
    for (int i = 0; i < 200000; ++i) {
        Bytes bytes{};
        for (size_t n = 0; n < bytes.size(); n += 2)
            if (random() % 2 == 0) {
                bytes[n] = static_cast<uint8_t>(random() % 3 == 0 ? 0 : random());
                bytes[n + 1] = static_cast<uint8_t>(random());
            }
        if (i % 20 == 0)
            bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, static_cast<uint8_t>(random() % 12), 4};
        char szOwn[64] = "";
        char szPlatform[64] = "";
        const char *szText = VYX_InetNtop(AF_INET6, bytes.data(), szOwn, sizeof szOwn);
        const std::string platform = inet_ntop(AF_INET6, bytes.data(), szPlatform, sizeof szPlatform);
        const size_t nDot = platform.find('.');
        if (szText != nullptr) {
            ASSERT_EQ(szText, platform);
            ASSERT_STREQ(VYX_InetNtop(AF_INET, bytes.data(), szOwn, 16),
                         inet_ntop(AF_INET, bytes.data(), szPlatform, sizeof szPlatform));
            continue;
        }
        ++nNull; // on purpose: a dotted quad at the end has room for eight characters
        ASSERT_NE(nDot, std::string::npos) << platform;
        ASSERT_GT(platform.size() - platform.rfind(':') - 1, 8U) << platform;
    }
    EXPECT_GT(nNull, 0);
}

TEST(Addr, PrinterKeepsToTheSize) {
    const Bytes bytes = {192, 168, 1, 10};
    const auto print = [&bytes](int32_t iFamily, int32_t iSize) {
        std::string out(32, '#');
        const char *szText = VYX_InetNtop(iFamily, bytes.data(), out.data(), iSize);
        return std::string(szText == nullptr ? "null" : szText) + " " +
               std::string(1, out[static_cast<size_t>(iSize)]);
    };
    EXPECT_EQ(print(AF_INET, 13), "192.168.1.10 #");
    EXPECT_EQ(print(AF_INET, 12), std::string("192.168.1.10 ") + '\0') << "the zero lands behind the size";
    EXPECT_EQ(print(AF_INET, 11), "null #");
    EXPECT_EQ(print(AF_INET6, 15), "c0a8:10a:: #" + std::string()) << "its text";
    EXPECT_EQ(print(AF_INET6, 10), "null #") << "no room for the zero";
    EXPECT_EQ(print(AF_INET6, 11), "c0a8:10a:: #");
    EXPECT_EQ(print(AF_UNIX, 30), "null #");
    char szOut[8];
    EXPECT_EQ(VYX_InetNtop(AF_INET, nullptr, szOut, 8), nullptr);
    EXPECT_EQ(VYX_InetNtop(AF_INET, bytes.data(), nullptr, 8), nullptr);
    EXPECT_EQ(VYX_InetNtop(AF_INET, bytes.data(), szOut, 0), nullptr);
}

TEST(Addr, Records) {
    VYX_ADDR_T addr;
    memset(&addr, 0xEE, sizeof addr);
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "", 80, &addr), VYX_OK);
    EXPECT_TRUE(addr.in4.sin_family == AF_INET && addr.in4.sin_port == htons(80) &&
                addr.in4.sin_addr.s_addr == 0);
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0x1234, &addr), VYX_OK);
    EXPECT_EQ(addr.in4.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(VYX_GetAddrPort(&addr), 0x1234);
    EXPECT_STREQ(VYX_GetAddrString(&addr), "127.0.0.1");
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET, "255.255.255.255", 1, &addr), VYX_ERROR)
        << "looks like no address";
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET6, "fe80::7", 443, &addr), VYX_OK);
    EXPECT_TRUE(addr.in6.sin6_family == AF_INET6 && addr.in6.sin6_port == htons(443) &&
                addr.in6.sin6_addr.s6_addr[15] == 7);
    EXPECT_STREQ(VYX_GetAddrString(&addr), "fe80::7");
    EXPECT_EQ(VYX_MakeAddrByString(AF_INET6, "1:x", 1, &addr), VYX_OK) << "a last character may be anything";
    EXPECT_EQ(VYX_MakeAddrByString(5, "1.2.3.4", 1, &addr), VYX_ERROR);
    EXPECT_EQ(VYX_MakeAddrByString(5, nullptr, 1, &addr), VYX_ERROR);
    VYX_ADDR_EXP_T exp;
    memset(&exp, 0xEE, sizeof exp);
    EXPECT_EQ(VYX_MakeAddr4ByInt(htonl(0x01020304), 9, &addr), VYX_OK);
    EXPECT_EQ(VYX_GetAddrInfo(&addr, &exp), VYX_OK);
    EXPECT_TRUE(exp.nFamily == AF_INET && exp.nPort == 9 && exp.byAddr[0] == 1 && exp.byAddr[3] == 4 &&
                exp.byAddr[4] == 0xEE);
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
    struct {
        VYX_ADDR_T addr;
        uint8_t byGuard[64];
    } place;
    uint8_t bySource[128];
    memset(bySource, 0x11, sizeof bySource);
    memset(&place, 0xEE, sizeof place);
    EXPECT_EQ(VYX_MakeAddr(bySource, 16, &place.addr), VYX_OK);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&place.addr)[15], 0x11);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(&place.addr)[16], 0xEE);
    for (const int32_t iLength : {28, 29, 128, -1, INT32_MIN, INT32_MAX}) {
        (void)VYX_MakeAddr(bySource, iLength, &place.addr);
        for (const uint8_t by : place.byGuard)
            ASSERT_EQ(by, 0xEE) << iLength;
    }
    EXPECT_EQ(VYX_MakeAddr(bySource, 0, &place.addr), VYX_ERROR);
    EXPECT_EQ(VYX_MakeAddr(nullptr, 16, &place.addr), VYX_ERROR);
}

} // namespace
