// Formatted time. Every buffer is as long as the function is told, with guard bytes behind it.
#include <climits>
#include <ctime>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <vyx/time.h>

#include "time/format_model.h"

namespace {

using support::FormattedTime;

constexpr size_t kGuard = 32;
const std::string kGuardText(kGuard, '#');

// Thursday, 2026-11-05 09:04:03
constexpr VYX_TIME_EXP_T kFields = {123456, 3, 4, 9, 5, 10, 126, 4, 308, 0, 3600};

// The text, or "" where nothing fitted; checks the length, the zero and the guard.
std::string Format(const std::string &format, size_t nMax, const VYX_TIME_EXP_T &fields = kFields) {
    const size_t nWritable = nMax == 0 ? 1 : nMax; // the one zero
    std::string buffer = std::string(nWritable, '\x5A') + kGuardText;
    uint32_t nLength = 99;
    EXPECT_EQ(VYX_StrFmtTime(&buffer[0], &nLength, static_cast<int32_t>(nMax), format.c_str(), &fields),
              VYX_OK);
    EXPECT_LT(nLength, nWritable);
    EXPECT_EQ(buffer[nLength], '\0');
    EXPECT_EQ(buffer.substr(nWritable), kGuardText) << format << " in " << nMax;
    return buffer.substr(0, nLength);
}

TEST(FormatTime, IsThePlatformsButForOurDirectives) {
    const char *const kPieces[] = {"%a", "%A", "%b", "%B", "%c",        "%C",  "%d",  "%D",  "%e", "%F", "%g",
                                   "%G", "%h", "%H", "%I", "%j",        "%m",  "%M",  "%n",  "%p", "%r", "%R",
                                   "%S", "%t", "%T", "%u", "%U",        "%V",  "%w",  "%W",  "%x", "%X", "%y",
                                   "%Y", "%z", "%%", "-",  "long text", "%Oe", "%EC", "%-d", "%?", "%"};
    std::mt19937 random(20261105);
    const auto pick = [&random](int32_t iLow, uint32_t nValues) {
        constexpr int32_t kOdd[] = {INT32_MIN, -1, 99, 100, INT32_MAX};
        return random() % 32 == 0 ? kOdd[random() % std::size(kOdd)]
                                  : iLow + static_cast<int32_t>(random() % nValues);
    };
    for (int i = 0; i < 50000; ++i) {
        const VYX_TIME_EXP_T fields = {0,
                                       pick(0, 61),
                                       pick(0, 60),
                                       pick(0, 25),
                                       pick(0, 32),
                                       pick(0, 12),
                                       pick(-950, 9100),
                                       pick(0, 7),
                                       pick(0, 366),
                                       0,
                                       0};
        std::string format;
        for (size_t nPieces = random() % 12; nPieces > 0; --nPieces)
            format += kPieces[random() % std::size(kPieces)];
        const size_t nLength = FormattedTime(format, 1000, fields).size();
        for (const size_t nMax : {nLength, nLength + 1, nLength + random() % 30, size_t{1000}})
            ASSERT_EQ(Format(format, nMax, fields), FormattedTime(format, nMax, fields))
                << format << " in " << nMax;
    }
}

TEST(FormatTime, CenturyCountsFrom1970) {
    const std::pair<int32_t, const char *> kTable[] = {{1929, "19"}, {1930, "20"}, {2029, "20"},
                                                       {2030, "21"}, {100, " 1"},  {-270, "-2"}};
    for (const auto &[iYear, szExpected] : kTable) {
        VYX_TIME_EXP_T fields = kFields;
        fields.tm_year = iYear - 1900;
        EXPECT_EQ(Format("%C", 10, fields), szExpected) << iYear;
    }
}

TEST(FormatTime, NegativeLimitIsAsGoodAsNone) {
    for (const int32_t iMax : {-1, -11, -12, INT32_MIN, INT32_MAX}) {
        for (const char *szFormat : {"[%D %T]", "[%0e/%-d %T]"}) { // the second one is for the platform
            std::string buffer = std::string(20, '\x5A') + kGuardText;
            uint32_t nLength = 99;
            EXPECT_EQ(VYX_StrFmtTime(&buffer[0], &nLength, iMax, szFormat, &kFields), VYX_OK);
            EXPECT_EQ(buffer.substr(0, nLength), FormattedTime(szFormat, 100, kFields)) << iMax;
            EXPECT_EQ(buffer[nLength], '\0');
            EXPECT_EQ(buffer.substr(20), kGuardText) << iMax;
        }
    }
}

TEST(FormatTime, LongFormatInItsOwnPlace) {
    std::string format, expected;
    for (int i = 0; i < 5000; ++i) {
        format += "%r";
        expected += "09:04:03 AM";
    }
    EXPECT_EQ(Format(format, expected.size() + 1), expected);
    EXPECT_EQ(Format(format, expected.size()), "");
    EXPECT_EQ(Format(format, 100), "");
    char szPlace[32] = "%F";
    uint32_t nLength = 0;
    EXPECT_EQ(VYX_StrFmtTime(szPlace, &nLength, sizeof szPlace, szPlace, &kFields), VYX_OK);
    EXPECT_STREQ(szPlace, "2026-11-05");
}

TEST(FormatTime, NullPointers) {
    char szOut[4] = "old";
    uint32_t nLength = 99;
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(VYX_StrFmtTime(i == 0 ? nullptr : szOut, i == 1 ? nullptr : &nLength, 4,
                                 i == 2 ? nullptr : "%e", i == 3 ? nullptr : &kFields),
                  VYX_ERROR);
    EXPECT_STREQ(szOut, "old");
    EXPECT_EQ(nLength, 99U);
}

} // namespace
