// Time values, fields and formatted time: all of int64, many zones, and the ways back.
#include <cstring>
#include <memory>
#include <vyx/time.h>

#include "input.h"
#include "time/format_model.h"

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
    REQUIRE(fields.tm_year < -1900 || std::atoi(szText + 20) == (fields.tm_year + 1900) % 10000);
}

// Fields that hold anything: days and hours carry over.
void FromFields(fuzz::Input *pInput) {
    VYX_TIME_EXP_T fields = {};
    fields.tm_usec = pInput->Number<int32_t>();
    fields.tm_sec = pInput->Number<int32_t>();
    fields.tm_min = pInput->Number<int16_t>();
    fields.tm_hour = pInput->Number<int32_t>();
    fields.tm_mday = pInput->Number<int16_t>();
    fields.tm_mon = static_cast<int>(pInput->Pick(14)) - 1;
    fields.tm_year = pInput->Number<uint16_t>();
    const bool bMonth = fields.tm_mon >= 0 && fields.tm_mon < 12;
    const int64_t iDays =
        bMonth ? DaysTo(int64_t{fields.tm_year} + 1900, fields.tm_mon, 1) + fields.tm_mday - 1 : -1;
    const int64_t iSeconds = ((iDays * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
    VYX_TIME_T t = 4711;
    REQUIRE(VYX_TimeFromExpTime(&fields, &t) == (bMonth && iSeconds >= 0 ? VYX_OK : VYX_ERROR));
    const uint64_t nExpected =
        static_cast<uint64_t>(iSeconds) * kSecond + static_cast<uint64_t>(int64_t{fields.tm_usec});
    REQUIRE(t == (bMonth && iSeconds >= 0 ? static_cast<VYX_TIME_T>(nExpected) : 4711)); // it wraps
}

void Format(const std::string &sFormat, size_t nMax, const VYX_TIME_EXP_T &fields) {
    const std::unique_ptr<char[]> pOut(new char[nMax]);
    uint32_t nLength = 99;
    REQUIRE(VYX_StrFmtTime(pOut.get(), &nLength, static_cast<int32_t>(nMax), sFormat.c_str(), &fields) ==
            VYX_OK);
    REQUIRE(nLength < nMax && pOut[nLength] == '\0');
    REQUIRE(std::string(pOut.get(), nLength) == support::FormattedTime(sFormat.c_str(), nMax, fields));
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
    FromFields(&input);
    const size_t nMax = 1 + input.Byte();
    Format(input.Rest(), nMax, fields);
    return 0;
}
