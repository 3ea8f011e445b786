// Numbers to text and back.
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <vyx/string.h>

namespace {

// A plain printer of values that are not negative.
std::string Digits(uint64_t nValue, uint32_t nRadix) {
    std::string text;
    do {
        text.insert(text.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[nValue % nRadix]);
    } while ((nValue /= nRadix) != 0);
    return text;
}

TEST(Numbers, EveryRadixPrintsWhatItShould) {
    std::mt19937_64 random(5);
    char szOut[70];
    for (uint32_t nRadix = 2; nRadix <= 36; ++nRadix) {
        for (int i = 0; i < 3000; ++i) {
            const auto iValue = static_cast<int64_t>(random() >> (1 + random() % 63));
            std::memset(szOut, '#', sizeof szOut);
            ASSERT_EQ(VYX_Ltoa(szOut, iValue, nRadix), szOut);
            ASSERT_EQ(szOut, Digits(static_cast<uint64_t>(iValue), nRadix));
            ASSERT_EQ(szOut[std::strlen(szOut) + 1], '#') << "nothing behind the terminator";
            const auto iSmall = static_cast<int32_t>(iValue & INT32_MAX);
            ASSERT_EQ(VYX_Itoa(szOut, iSmall, nRadix), Digits(static_cast<uint64_t>(iSmall), nRadix));
        }
        EXPECT_EQ(VYX_Ltoa(szOut, INT64_MAX, nRadix), Digits(INT64_MAX, nRadix));
        EXPECT_EQ(VYX_Itoa(szOut, INT32_MAX, nRadix), Digits(INT32_MAX, nRadix));
        EXPECT_STREQ(VYX_Itoa(szOut, 0, nRadix), "0");
    }
    for (int64_t iValue : {INT64_MIN + 1, int64_t{-42}, int64_t{-1}, int64_t{INT32_MIN}})
        EXPECT_EQ(VYX_Ltoa(szOut, iValue, 10), std::to_string(iValue));
    for (uint32_t nRadix : {0U, 1U, 37U, UINT32_MAX}) {
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
        {"  -0x1A", 0, -26, 7}, {"0x", 16, 0, 0},      {"0x", 0, 0, 0},
        {"0xh", 16, 0, 0},      {"0X7fz", 16, 127, 4}, {"0x10", 10, 0, 1},
        {"012", 0, 10, 3},      {"0", 0, 0, 1},        {"\t\n\v\f\r +9x", 0, 9, 8},
        {"-", 10, 0, 0},        {"--5", 10, 0, 0},     {"+-5", 10, 0, 0},
        {"", 10, 0, 0},         {"abc", 10, 10, 1},    {"12", 20, 0, 0},
        {"12", 1, 0, 0},        {"12", 17, 0, 0},      {"12", UINT32_MAX, 0, 0},
        {"ffG", 16, 4096, 3},   {"0xg", 16, 16, 3},    {"2", 2, 2, 1},
        {"3", 2, 0, 0},         {" 7 8", 10, 7, 2},
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

TEST(Numbers, OverflowStopsAtTheLimits) {
    errno = 7;
    EXPECT_EQ(VYX_Atoi32("2147483647"), INT32_MAX);
    EXPECT_EQ(VYX_Atoi32("2147483648"), INT32_MAX);
    EXPECT_EQ(VYX_Atoi32("-2147483648"), INT32_MIN);
    EXPECT_EQ(VYX_Atoi32("-2147483649"), INT32_MIN);
    EXPECT_EQ(VYX_Atoi64("9223372036854775808"), INT64_MAX);
    EXPECT_EQ(VYX_Atoi64("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(VYX_Atoi64("-9223372036854775809"), INT64_MIN);
    const char *szLong = "21474836480000x";
    char *pEnd = nullptr;
    EXPECT_EQ(VYX_StrToi32(szLong, &pEnd, 10), INT32_MAX);
    EXPECT_EQ(*pEnd, 'x') << "the digits behind the overflow belong to the number";
    EXPECT_EQ(errno, 7);
    EXPECT_EQ(VYX_StrToi32("133333333", nullptr, 16), 0x33333333)
        << "a wrap that moves the right way is not seen";
}

TEST(Numbers, WhatIsPrintedIsReadBack) {
    std::mt19937_64 random(9);
    char szOut[70];
    for (int i = 0; i < 200000; ++i) {
        const auto iValue = static_cast<int64_t>(random()) >> (random() % 63);
        const auto nBase = static_cast<uint32_t>(2 + random() % 15);
        if (iValue != INT64_MIN) {
            ASSERT_EQ(VYX_Atoi64(VYX_Ltoa(szOut, iValue, 10)), iValue);
        }
        const int64_t iPositive = iValue & INT64_MAX;
        char *pEnd = nullptr;
        ASSERT_EQ(VYX_StrToi64(VYX_Ltoa(szOut, iPositive, nBase), &pEnd, nBase), iPositive);
        ASSERT_EQ(*pEnd, '\0');
        ASSERT_EQ(VYX_StrToi64(szOut, nullptr, nBase), std::strtoll(szOut, nullptr, static_cast<int>(nBase)));
    }
}

// The rules for reading, written once more digit by digit; what wraps does so in Unsigned.
template <class Signed, class Unsigned>
Signed Expected(const char *szText, uint32_t nBase, const char **ppEnd) {
    const char *p = szText;
    *ppEnd = szText;
    p += std::strspn(p, " \t\n\v\f\r");
    const bool bNegative = *p == '-';
    p += *p == '-' || *p == '+' ? 1 : 0;
    if ((nBase == 16 || nBase == 0) && p[0] == '0' && (p[1] | 32) == 'x') {
        p += 2;
        nBase = 16;
    } else if (nBase == 0) {
        nBase = *p == '0' ? 8 : 10;
    }
    if (nBase < 2 || nBase > 16)
        return 0;
    const char *const szDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
    Signed iValue = 0;
    bool bOverflow = false;
    for (; *p != '\0'; *ppEnd = ++p) {
        const char *pDigit = std::strchr(szDigits, std::tolower(*p));
        const auto nDigit = static_cast<Unsigned>(pDigit == nullptr ? 99 : pDigit - szDigits);
        if (nDigit > nBase)
            break;
        const auto nProduct = static_cast<Unsigned>(static_cast<Unsigned>(iValue) * nBase);
        const auto iProduct = static_cast<Signed>(nProduct);
        const auto iNext = static_cast<Signed>(bNegative ? nProduct - nDigit : nProduct + nDigit);
        bOverflow = bOverflow ||
                    (bNegative ? iValue < iProduct || iValue < iNext : iValue > iProduct || iValue > iNext);
        if (!bOverflow)
            iValue = iNext;
    }
    if (!bOverflow)
        return iValue;
    return bNegative ? std::numeric_limits<Signed>::min() : std::numeric_limits<Signed>::max();
}

TEST(Numbers, AnyTextIsReadByTheRulesAndMostlyAsTheCLibraryDoes) {
    std::mt19937 random(13);
    int nAlike = 0;
    for (int i = 0; i < 400000; ++i) {
        std::string text(random() % 3, ' ');
        text += std::string("+-").substr(random() % 3, 1);
        text += random() % 4 == 0 ? "0x" : "";
        const char *const szFrom = random() % 2 == 0 ? "0123456789" : "0123456789abcdefghABCDEFGH-x z";
        const size_t nChoice = std::strlen(szFrom);
        for (size_t n = random() % 24; n > 0; --n)
            text += szFrom[random() % nChoice];
        const auto nBase = static_cast<uint32_t>(random() % 18);
        SCOPED_TRACE(text);
        const char *pExpected = nullptr;
        char *pEnd = nullptr;
        const auto iSmall = Expected<int32_t, uint32_t>(text.c_str(), nBase, &pExpected);
        ASSERT_EQ(VYX_StrToi32(text.c_str(), &pEnd, nBase), iSmall) << nBase;
        ASSERT_EQ(pEnd, pExpected);
        const auto iLarge = Expected<int64_t, uint64_t>(text.c_str(), nBase, &pExpected);
        ASSERT_EQ(VYX_StrToi64(text.c_str(), &pEnd, nBase), iLarge) << nBase;
        ASSERT_EQ(pEnd, pExpected);
        // Where they differ: a digit equal to the base, a prefix without digits behind it, base 17 and 1, overflow.
        errno = 0;
        char *pTheirs = nullptr;
        const int64_t iTheirs = std::strtoll(text.c_str(), &pTheirs, static_cast<int>(nBase));
        if (pTheirs == pEnd && errno == 0) {
            ASSERT_EQ(iTheirs, iLarge) << nBase;
            ++nAlike;
        }
    }
    EXPECT_GT(nAlike, 150000);
}

} // namespace
