// Numbers to text and back: any number in every radix, and a table of what is odd.
#include <cerrno>
#include <charconv>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <vyx/string.h>

namespace {

TEST(Numbers, EveryRadixThereAndBack) {
    std::mt19937_64 random(5);
    char szOut[70];
    for (int i = 0; i < 100000; ++i) {
        const int iRadix = 2 + i % 35;
        const auto nRadix = static_cast<uint32_t>(iRadix);
        const auto iLarge = static_cast<int64_t>(i < 70 ? INT64_MAX : random() >> (1 + random() % 63));
        const auto iSmall = static_cast<int32_t>(iLarge & INT32_MAX);
        char szExpected[70] = {};
        std::to_chars(szExpected, szExpected + sizeof szExpected, iSmall, iRadix);
        ASSERT_STREQ(VYX_Itoa(szOut, iSmall, nRadix), szExpected);
        ASSERT_EQ(VYX_StrToi32(szExpected, nullptr, nRadix), nRadix <= 16 ? iSmall : 0);
        std::to_chars(szExpected, szExpected + sizeof szExpected, iLarge, iRadix);
        std::memset(szOut, '#', sizeof szOut);
        ASSERT_EQ(VYX_Ltoa(szOut, iLarge, nRadix), szOut);
        ASSERT_STREQ(szOut, szExpected);
        ASSERT_EQ(szOut[std::strlen(szOut) + 1], '#') << "nothing behind the terminator";
        ASSERT_EQ(VYX_StrToi64(szExpected, nullptr, nRadix), nRadix <= 16 ? iLarge : 0);
        ASSERT_EQ(VYX_Ltoa(szOut, -iLarge, 10), std::to_string(-iLarge));
        ASSERT_EQ(VYX_Itoa(szOut, -iSmall, 10), std::to_string(-iSmall));
    }
    for (const uint32_t nRadix : {0U, 1U, 37U, UINT32_MAX})
        EXPECT_EQ(VYX_Itoa(szOut, 5, nRadix), nullptr);
    EXPECT_EQ(VYX_Itoa(nullptr, 5, 10), nullptr);
}

TEST(Numbers, NegativeValuesHaveNoDigitsOutsideRadixTen) {
    char szOut[70];
    EXPECT_STREQ(VYX_Itoa(szOut, -1, 16), "/");
    EXPECT_STREQ(VYX_Itoa(szOut, -35, 36), "\r");
    EXPECT_STREQ(VYX_Itoa(szOut, INT32_MIN, 10), "-(");
    EXPECT_STREQ(VYX_Ltoa(szOut, INT64_MIN, 10), "-(");
    EXPECT_STREQ(VYX_Ltoa(szOut, INT64_MIN, 2), "0");
}

TEST(Numbers, TextsAreReadToTheirEnd) {
    const struct {
        const char *szText;
        uint32_t nBase;
        int iEnd; // offset
        int32_t iSmall;
        int64_t iLarge;
    } cases[] = {
        {"  -0x1A", 0, 7, -26, -26},
        {"0x", 16, 0, 0, 0},
        {"0X7fz", 16, 4, 127, 127},
        {"0x10", 10, 1, 0, 0},
        {"012", 0, 3, 10, 10},
        {"\t\n\v\f\r +9x", 0, 8, 9, 9},
        {"+-5", 10, 0, 0, 0},
        {"", 10, 0, 0, 0},
        {"12", 1, 0, 0, 0},
        {"12", 17, 0, 0, 0},
        {"12", UINT32_MAX, 0, 0, 0},
        // A digit may equal the base.
        {"018", 0, 3, 16, 16},
        {"1a", 10, 2, 20, 20},
        {"1b", 10, 1, 1, 1},
        // Overflow stops at the limits, and the digits behind it belong to the number.
        {"2147483647", 10, 10, INT32_MAX, INT32_MAX},
        {"-2147483648", 10, 11, INT32_MIN, INT32_MIN},
        {"21474836480000x", 10, 14, INT32_MAX, 21474836480000},
        {"-9223372036854775808", 10, 20, INT32_MIN, INT64_MIN},
        {"-9223372036854775809", 10, 20, INT32_MIN, INT64_MIN},
        {"9223372036854775808", 10, 19, INT32_MAX, INT64_MAX},
        // A wrap that moves the right way is not seen.
        {"133333333", 16, 9, 0x33333333, 0x133333333},
    };
    errno = 7;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.szText);
        char *pEnd = nullptr;
        EXPECT_EQ(VYX_StrToi32(c.szText, &pEnd, c.nBase), c.iSmall);
        EXPECT_EQ(pEnd - c.szText, c.iEnd);
        EXPECT_EQ(VYX_StrToi64(c.szText, &pEnd, c.nBase), c.iLarge);
        EXPECT_EQ(pEnd - c.szText, c.iEnd);
        if (c.nBase == 10) {
            EXPECT_EQ(VYX_Atoi32(c.szText), c.iSmall);
            EXPECT_EQ(VYX_Atoi64(c.szText), c.iLarge);
        }
    }
    EXPECT_EQ(errno, 7);
}

} // namespace
