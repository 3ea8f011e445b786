// Formatted time. Every buffer is as long as the function is told, with guard bytes behind it.
#include <climits>
#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>
#include <vyx/time.h>

namespace {

constexpr size_t kGuard = 32;
const std::string kGuardText(kGuard, '#');

// Thursday, 2026-11-05 09:04:03
constexpr VYX_TIME_EXP_T kFields = {123456, 3, 4, 9, 5, 10, 126, 4, 308, 0, 3600};

struct tm PlatformFields(const VYX_TIME_EXP_T &fields) {
    struct tm platform = {};
    platform.tm_sec = fields.tm_sec;
    platform.tm_min = fields.tm_min;
    platform.tm_hour = fields.tm_hour;
    platform.tm_mday = fields.tm_mday;
    platform.tm_mon = fields.tm_mon;
    platform.tm_year = fields.tm_year;
    platform.tm_wday = fields.tm_wday;
    platform.tm_yday = fields.tm_yday;
    platform.tm_isdst = fields.tm_isdst;
    return platform;
}

// The text, or "" where nothing fitted; checks the length, the zero and the guard.
std::string Format(const std::string &format, size_t nMax, const VYX_TIME_EXP_T &fields = kFields) {
    const struct tm platform = PlatformFields(fields);
    const size_t nWritable = nMax == 0 ? 1 : nMax; // the one zero
    std::string buffer = std::string(nWritable, '\x5A') + kGuardText;
    const size_t nWritten = win32_strftime_extra(&buffer[0], nMax, format.c_str(), &platform);
    EXPECT_LT(nWritten, nWritable);
    EXPECT_EQ(buffer[nWritten], '\0');
    EXPECT_EQ(buffer.substr(nWritable), kGuardText) << format << " in " << nMax;
    std::string again = std::string(nWritable, '\x5A') + kGuardText;
    uint32_t nLength = 99;
    EXPECT_EQ(VYX_StrFmtTime(&again[0], &nLength, static_cast<int32_t>(nMax), format.c_str(), &fields),
              VYX_OK);
    EXPECT_EQ(nLength, nWritten);
    EXPECT_EQ(again.substr(0, nWritten + 1), buffer.substr(0, nWritten + 1));
    EXPECT_EQ(again.substr(nWritable), kGuardText);
    return buffer.substr(0, nWritten);
}

TEST(FormatTime, DirectivesAndTheSmallestBufferThatHoldsThem) {
    constexpr VYX_TIME_EXP_T kFar = {0, 59, 59, 23, INT32_MIN, 11, INT32_MAX, 6, 365, 1, 0};
    const struct {
        const char *szFormat;
        const char *szExpected;
        size_t nSmallest;
        const VYX_TIME_EXP_T &fields = kFields;
    } kTable[] = {
        {"plain", "plain", 6},
        {"%R", "09:04", 6},
        {"%r", "09:04:03 AM", 12},
        {"%d%%%d", "05%05", 7}, // the format itself needs more room than its result
        {"%%D", "%D", 4},       // what follows a doubled sign is no directive
        {"a%", "a%", 4},        // a sign at the end counts as two
        {"%", "%", 3},
        {"[%D %T]%C", "[11/05/26 09:04:03]20", 22},
        {"%Oe%EC", " 520", 7}, // modified directives are the platform's
        {"%a %b %j %p", "Thu Nov 309 AM", 15},
        {"%C%R%e%T", "2147485623:59-214748364823:59:59", 33, kFar},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(row.szFormat);
        for (size_t nMax = 0; nMax < row.nSmallest; ++nMax)
            EXPECT_EQ(Format(row.szFormat, nMax, row.fields), "") << nMax;
        for (const size_t nMax : {row.nSmallest, row.nSmallest + 1, row.nSmallest + 100})
            EXPECT_EQ(Format(row.szFormat, nMax, row.fields), row.szExpected) << nMax;
    }
    EXPECT_EQ(Format("", 1), "");
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
        std::string buffer = std::string(20, '\x5A') + kGuardText;
        uint32_t nLength = 99;
        EXPECT_EQ(VYX_StrFmtTime(&buffer[0], &nLength, iMax, "[%D %T]", &kFields), VYX_OK);
        EXPECT_EQ(nLength, 19U);
        EXPECT_EQ(buffer, std::string("[11/05/26 09:04:03]") + '\0' + kGuardText) << iMax;
    }
}

TEST(FormatTime, LongFormat) {
    std::string format, expected;
    for (int i = 0; i < 5000; ++i) {
        format += "%r";
        expected += "09:04:03 AM";
    }
    EXPECT_EQ(Format(format, expected.size() + 1), expected);
    EXPECT_EQ(Format(format, expected.size()), "");
    EXPECT_EQ(Format(format, 100), "");
}

TEST(FormatTime, NullPointers) {
    char szOut[4] = "old";
    uint32_t nLength = 99;
    EXPECT_EQ(VYX_StrFmtTime(nullptr, &nLength, 4, "%e", &kFields), VYX_ERROR);
    EXPECT_EQ(VYX_StrFmtTime(szOut, nullptr, 4, "%e", &kFields), VYX_ERROR);
    EXPECT_EQ(VYX_StrFmtTime(szOut, &nLength, 4, nullptr, &kFields), VYX_ERROR);
    EXPECT_EQ(VYX_StrFmtTime(szOut, &nLength, 4, "%e", nullptr), VYX_ERROR);
    EXPECT_STREQ(szOut, "old");
    EXPECT_EQ(nLength, 99U);
}

} // namespace
