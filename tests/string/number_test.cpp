// Numbers to text and back.
#include <cerrno>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>
#include <vyx/string.h>

namespace {

TEST(Numbers, NothingIsWrittenOutsideTheText) {
    char szOut[70];
    for (const auto &[iValue, nRadix] :
         {std::pair<int64_t, uint32_t>{INT64_MAX, 2}, {INT32_MIN, 10}, {0, 36}}) {
        std::memset(szOut, '#', sizeof szOut);
        EXPECT_EQ(VYX_Ltoa(szOut, iValue, nRadix), szOut);
        EXPECT_EQ(szOut[std::strlen(szOut) + 1], '#') << iValue;
    }
    for (const uint32_t nRadix : {0U, 1U, 37U, UINT32_MAX}) {
        std::strcpy(szOut, "kept");
        EXPECT_EQ(VYX_Itoa(szOut, 5, nRadix), nullptr);
        EXPECT_EQ(VYX_Ltoa(szOut, 5, nRadix), nullptr);
        EXPECT_STREQ(szOut, "kept");
    }
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
        int64_t iValue;
        int iEnd; // offset
    } cases[] = {
        {"0Xh", 16, 0, 0}, {"7F", 16, 127, 2}, {"\t\n\v\f\r +9x", 0, 9, 8},
        {"--5", 10, 0, 0}, {"12", 17, 0, 0},   {"3", 2, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.szText);
        char *pEnd = nullptr;
        EXPECT_EQ(VYX_StrToi32(c.szText, &pEnd, c.nBase), c.iValue);
        EXPECT_EQ(pEnd, c.szText + c.iEnd);
        EXPECT_EQ(VYX_StrToi64(c.szText, &pEnd, c.nBase), c.iValue);
        EXPECT_EQ(pEnd, c.szText + c.iEnd);
        EXPECT_EQ(VYX_StrToi32(c.szText, nullptr, c.nBase), c.iValue);
    }
}

TEST(Numbers, ADigitMayEqualTheBase) {
    char *pEnd = nullptr;
    const char *szText = "018";
    EXPECT_EQ(VYX_StrToi32(szText, &pEnd, 0), 16);
    EXPECT_EQ(pEnd, szText + 3);
    EXPECT_EQ(VYX_Atoi32("1a"), 20);
    EXPECT_EQ(VYX_Atoi64("1b"), 1);
}

TEST(Numbers, OverflowLeavesErrnoAndTakesItsDigits) {
    errno = 7;
    EXPECT_EQ(VYX_Atoi64("-9223372036854775809"), INT64_MIN);
    const char *szLong = "21474836480000x";
    char *pEnd = nullptr;
    EXPECT_EQ(VYX_StrToi32(szLong, &pEnd, 10), INT32_MAX);
    EXPECT_EQ(*pEnd, 'x') << "the digits behind the overflow belong to the number";
    EXPECT_EQ(errno, 7);
    EXPECT_EQ(VYX_StrToi32("133333333", nullptr, 16), 0x33333333)
        << "a wrap that moves the right way is not seen";
}

} // namespace
