// Time values, fields and formatted time: all of int64, many zones, and the ways back.
#include <cstring>
#include <ctime>
#include <memory>
#include <tuple>
#include <vyx/time.h>

#include "input.h"

namespace {

constexpr int64_t kSecond = 1000000;

// Zones and their seconds east of UTC, without daylight saving. POSIX strings, so that no zone files are needed.
const struct {
    const char *szZone;
    int32_t iOffset;
} kZones[] = {{"UTC0", 0},
              {"CET-1CEST,M3.5.0,M10.5.0/3", 3600},
              {"EST5EDT,M3.2.0,M11.1.0", -18000},
              {"IST-5:30", 19800},
              {"NST3:30NDT,M3.2.0,M11.1.0", -12600},
              {"<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45", 45900},
              {"<-12>12", -43200},
              {"<+14>-14", 50400}};

// The days from 1970-01-01 to a date, for any year.
int64_t DaysTo(int64_t iYear, int iMonth, int iDay) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int64_t iCycles = (iYear >= 0 ? iYear : iYear - 399) / 400;
    const int64_t iRest = iYear - iCycles * 400;
    const bool bLeap = iRest % 4 == 0 && (iRest % 100 != 0 || iRest == 0);
    const int64_t iLeapDays = (iRest + 3) / 4 - (iRest + 99) / 100 + (iRest > 0 ? 1 : 0);
    return iCycles * 146097 + iRest * 365 + iLeapDays + kBefore[iMonth] + (bLeap && iMonth > 1 ? 1 : 0) +
           iDay - 1 - 719528;
}

void Require(const VYX_TIME_EXP_T &fields, int64_t iSeconds, int32_t iMicros, int32_t iOffset) {
    const int64_t iDays = DaysTo(int64_t{fields.tm_year} + 1900, fields.tm_mon, fields.tm_mday);
    REQUIRE(fields.tm_hour >= 0 && fields.tm_hour < 24 && fields.tm_min >= 0 && fields.tm_min < 60);
    REQUIRE(fields.tm_sec >= 0 && fields.tm_sec < 60 && fields.tm_mday >= 1 && fields.tm_mday <= 31);
    REQUIRE(iDays * 86400 + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec == iSeconds);
    REQUIRE(fields.tm_wday == ((iDays + 4) % 7 + 7) % 7);
    REQUIRE(fields.tm_yday == iDays - DaysTo(int64_t{fields.tm_year} + 1900, 0, 1));
    REQUIRE(fields.tm_usec == iMicros && fields.tm_gmtoff == iOffset);
}

void Local(VYX_TIME_T t) {
    const auto &zone = kZones[static_cast<uint64_t>(t) % std::size(kZones)];
    setenv("TZ", zone.szZone, 1);
    VYX_TIME_EXP_T fields = {};
    struct tm theirs = {};
    const auto tSeconds = static_cast<time_t>(t / kSecond);
    if (tSeconds != t / kSecond) // a time_t of 32 bits
        return;
    REQUIRE(VYX_ExpTimeFromTimeLocal(t, &fields) == VYX_OK); // before the platform is told of the zone
    tzset();
    REQUIRE(localtime_r(&tSeconds, &theirs) != nullptr);
    Require(fields, t / kSecond + theirs.tm_gmtoff, static_cast<int32_t>(t % kSecond), zone.iOffset);
    REQUIRE(fields.tm_isdst == theirs.tm_isdst);
    VYX_TIME_T back = t;
    REQUIRE(VYX_TimeFromExpTimeGMT(&fields, &back) == VYX_OK);
    const int64_t iLate = (theirs.tm_gmtoff - zone.iOffset) * kSecond; // the daylight saving
    REQUIRE(t < 86400 * kSecond ||
            static_cast<uint64_t>(back) == static_cast<uint64_t>(t) + static_cast<uint64_t>(iLate));
    char szText[25] = "";
    char szExpected[64] = "";
    REQUIRE(strftime(szExpected, sizeof szExpected, "%a %b %d %H:%M:%S ", &theirs) == 20);
    REQUIRE(VYX_CTime(szText, t) == VYX_OK && std::strlen(szText) == 24);
    REQUIRE(std::string(szText, 20) == szExpected);
    REQUIRE(std::atoi(szText + 20) == std::abs(fields.tm_year + 1900) % 10000);
}

// Fields that hold anything: days and hours carry over.
VYX_TIME_EXP_T FromFields(fuzz::Input *pInput) {
    VYX_TIME_EXP_T fields = {};
    for (int32_t *pField : {&fields.tm_usec, &fields.tm_sec, &fields.tm_min, &fields.tm_hour, &fields.tm_mday,
                            &fields.tm_year, &fields.tm_gmtoff})
        *pField = pInput->Number<int32_t>();
    fields.tm_year &= INT32_MAX;
    fields.tm_mon = static_cast<int>(pInput->Pick(14)) - 1;
    fields.tm_wday = static_cast<int>(pInput->Pick(9)) - 1;
    fields.tm_yday = pInput->Number<int16_t>();
    const bool bMonth = fields.tm_mon >= 0 && fields.tm_mon < 12;
    const int64_t iDays =
        bMonth ? DaysTo(int64_t{fields.tm_year} + 1900, fields.tm_mon, 1) + fields.tm_mday - 1 : -1;
    const int64_t iSeconds = ((iDays * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
    const bool bTaken = bMonth && iSeconds >= 0;
    VYX_TIME_T t = 4711;
    REQUIRE(VYX_TimeFromExpTime(&fields, &t) == (bTaken ? VYX_OK : VYX_ERROR));
    const uint64_t nExpected =
        static_cast<uint64_t>(iSeconds) * kSecond + static_cast<uint64_t>(int64_t{fields.tm_usec});
    REQUIRE(t == (bTaken ? static_cast<VYX_TIME_T>(nExpected) : 4711)); // it wraps
    REQUIRE(VYX_TimeFromExpTimeGMT(&fields, &(t = 4711)) == VYX_OK);    // a failure shows in the time only
    const uint64_t nShifted = nExpected - static_cast<uint64_t>(fields.tm_gmtoff * kSecond);
    REQUIRE(t == (bTaken ? static_cast<VYX_TIME_T>(nShifted) : 4711));
    return fields;
}

struct tm PlatformFields(const VYX_TIME_EXP_T &f) {
    struct tm platform = {};
    std::tie(platform.tm_sec, platform.tm_min, platform.tm_hour, platform.tm_mday) =
        std::tie(f.tm_sec, f.tm_min, f.tm_hour, f.tm_mday);
    std::tie(platform.tm_mon, platform.tm_year, platform.tm_wday, platform.tm_yday, platform.tm_isdst) =
        std::tie(f.tm_mon, f.tm_year, f.tm_wday, f.tm_yday, f.tm_isdst);
    return platform;
}

// As the platform makes it, once the directives that are the library's own are replaced; "" where it does not fit.
std::string FormattedTime(const std::string &format, size_t nMax, const VYX_TIME_EXP_T &fields) {
    std::string replaced;
    for (size_t i = 0; i < format.size(); ++i) {
        const char cDirective = format[i] == '%' && i + 1 < format.size() ? format[++i] : '\0';
        char szNumber[24] = {'%', cDirective, '\0'};
        if (cDirective == 'C')
            (void)snprintf(szNumber, sizeof szNumber, "%2lld", (fields.tm_year + 1970LL) / 100);
        if (cDirective == 'e')
            (void)snprintf(szNumber, sizeof szNumber, "%2d", fields.tm_mday);
        replaced += cDirective == '\0'  ? std::string(1, format[i])
                    : cDirective == 'D' ? "%m/%d/%y"
                    : cDirective == 'R' ? "%H:%M"
                    : cDirective == 'T' ? "%H:%M:%S"
                    : cDirective == 'r' ? "%I:%M:%S %p"
                                        : szNumber;
    }
    const size_t nSignAtTheEnd =
        !format.empty() && (format.size() - format.find_last_not_of('%')) % 2 == 0 ? 1 : 0;
    if (replaced.size() + nSignAtTheEnd >= nMax)
        return "";
    std::string text(nMax, '\0');
    const struct tm platform = PlatformFields(fields);
    text.resize(strftime(&text[0], nMax, replaced.c_str(), &platform));
    return text;
}

// The input's text, in which the bytes that are no ASCII stand for directives.
std::string FormatOf(const std::string &sInput) {
    static const std::string s_directives = "aAbBcCdDeFgGhHIjmMnprRStTuUVwWxXyYz%-?OE";
    std::string sFormat;
    for (const char c : std::string(sInput.c_str()))
        if (c > 0 && c < 127)
            sFormat += c;
        else
            sFormat += {'%', s_directives[static_cast<unsigned char>(c) % s_directives.size()]};
    return sFormat;
}

// A negative limit is as good as none.
void Format(const std::string &sFormat, int32_t iLimit, const VYX_TIME_EXP_T &fields) {
    const size_t nMax = iLimit < 0 ? 8192 : static_cast<size_t>(iLimit);
    const std::string sExpected = FormattedTime(sFormat, nMax, fields);
    if (iLimit < 0 && sExpected.empty())
        return; // a directive may have any width
    const std::unique_ptr<char[]> pOut(new char[nMax]);
    uint32_t nLength = 99;
    REQUIRE(VYX_StrFmtTime(pOut.get(), &nLength, iLimit, sFormat.c_str(), &fields) == VYX_OK);
    REQUIRE(nLength < nMax && pOut[nLength] == '\0');
    REQUIRE(std::string(pOut.get(), nLength) == sExpected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const auto t = input.Number<VYX_TIME_T>();
    const auto iOffset = input.Number<int32_t>();
    VYX_TIME_EXP_T fields = {};
    if (sizeof(time_t) > 4 || t / kSecond / 2 == static_cast<int32_t>(t / kSecond / 2)) {
        if (VYX_ExpTimeFromTime(t, iOffset, &fields) == VYX_OK)
            Require(fields, t / kSecond + iOffset, static_cast<int32_t>(t % kSecond), iOffset);
        else
            REQUIRE(sizeof(time_t) == 4);
    }
    Local(t);
    const VYX_TIME_EXP_T odd = FromFields(&input);
    const unsigned nByte = input.Byte();
    const int32_t iLimit = nByte < 2 ? -1 - 11 * static_cast<int32_t>(nByte) : static_cast<int32_t>(nByte);
    const std::string sFormat = FormatOf(input.Rest());
    Format(sFormat, iLimit, fields);
    Format(sFormat, iLimit, odd);
    return 0;
}
