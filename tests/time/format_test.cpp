// Formatted time. Every buffer is as long as the function is told, with guard bytes behind it.
#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

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
    const struct {
        const char *szFormat;
        const char *szExpected;
        size_t nSmallest;
    } kTable[] = {
        {"plain", "plain", 6},
        {"%C", "20", 3},
        {"%D", "11/05/26", 9},
        {"%R", "09:04", 6},
        {"%T", "09:04:03", 9},
        {"%e", " 5", 3},
        {"%r", "09:04:03 AM", 12},
        {"%Y", "2026", 5},
        {"%H%M%S", "090403", 7},
        {"%d%%%d", "05%05", 7}, // the format itself needs more room than its result
        {"%%%%", "%%", 5},
        {"%%D", "%D", 4}, // what follows a doubled sign is no directive
        {"a%", "a%", 4},  // a sign at the end counts as two
        {"%", "%", 3},
        {"[%D %T]", "[11/05/26 09:04:03]", 20},
        {"%Oe%EC", " 520", 7}, // modified directives are the platform's
        {"%a %b %j %p", "Thu Nov 309 AM", 15},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(row.szFormat);
        for (size_t nMax = 0; nMax < row.nSmallest; ++nMax)
            EXPECT_EQ(Format(row.szFormat, nMax), "") << nMax;
        for (const size_t nMax : {row.nSmallest, row.nSmallest + 1, row.nSmallest + 100})
            EXPECT_EQ(Format(row.szFormat, nMax), row.szExpected) << nMax;
    }
    EXPECT_EQ(Format("", 0), "");
    EXPECT_EQ(Format("", 1), "");
}

// The same rules written down plainly, with room to spare everywhere.
std::string Reference(const std::string &format, size_t nMax, const struct tm &fields) {
    std::string work;
    for (size_t i = 0; i < format.size() && work.size() < nMax;) {
        if (format[i] != '%') {
            work += format[i++];
            continue;
        }
        const char cDirective = format.c_str()[i + 1];
        i += 2;
        const size_t nLeft = nMax - work.size();
        char szNumber[40];
        if (cDirective == 'C' || cDirective == 'e') {
            const int64_t iValue =
                cDirective == 'e' ? int64_t{fields.tm_mday} : (int64_t{fields.tm_year} + 1970) / 100;
            (void)snprintf(szNumber, sizeof szNumber, "%2lld", static_cast<long long>(iValue));
            if (strlen(szNumber) >= nLeft)
                return "";
            work += szNumber;
        } else if (cDirective == 'D') {
            work += "%m/%d/%y";
        } else if (cDirective == 'R') {
            work += "%H:%M";
        } else if (cDirective == 'T') {
            work += "%H:%M:%S";
        } else if (cDirective == 'r') {
            work += "%I:%M:%S %p";
        } else {
            work += '%';
            work += cDirective;
        }
    }
    if (work.size() >= nMax)
        return "";
    std::string out(nMax + 1, '\0');
    out.resize(strftime(&out[0], nMax, work.c_str(), &fields));
    return out;
}

TEST(FormatTime, AgreesWithTheReferenceInEveryBuffer) {
    const char *const kPieces[] = {"",   "a",  "%C", "%D", "%R", "%T",  "%e",
                                   "%r", "%%", "%Y", "%B", "%n", "xyz", "%"};
    const VYX_TIME_EXP_T kOdd[] = {
        kFields,
        {0, 0, 0, 0, INT32_MIN, 0, INT32_MIN, 0, 0, 0, 0},
        {0, 59, 59, 23, 123456789, 11, INT32_MAX, 6, 365, 1, 0},
    };
    for (const VYX_TIME_EXP_T &fields : kOdd)
        for (const char *szFirst : kPieces)
            for (const char *szSecond : kPieces)
                for (const char *szThird : {"", "%e", "%T%"}) {
                    const std::string format = std::string(szFirst) + szSecond + szThird;
                    for (size_t nMax = 0; nMax < 50; ++nMax)
                        ASSERT_EQ(Format(format, nMax, fields),
                                  Reference(format, nMax, PlatformFields(fields)))
                            << "\"" << format << "\" in " << nMax;
                }
}

TEST(FormatTime, CenturyCountsFrom1970) {
    const std::pair<int32_t, const char *> kTable[] = {{1929, "19"}, {1930, "20"}, {2026, "20"}, {2029, "20"},
                                                       {2030, "21"}, {2129, "21"}, {2130, "22"}, {100, " 1"},
                                                       {-70, " 0"},  {-270, "-2"}};
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
