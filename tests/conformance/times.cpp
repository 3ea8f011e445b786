// The calendar, in zones that need no database.
#include <cstdlib>
#include <cstring>
#include <vyx/time.h>

#include "transcript.h"

namespace transcript {

namespace {

constexpr int64_t kSecond = 1000000;

// Within the years that every platform's calendar knows.
int64_t Instant() {
    int64_t nSeconds = Random();
    nSeconds -= Random(8) == 0 ? 300000000 : 0;
    return nSeconds * kSecond + Random(kSecond);
}

std::string Fields(const VYX_TIME_EXP_T &exp) {
    char szOut[128];
    (void)snprintf(szOut, sizeof szOut, "%d-%d-%d %d:%d:%d.%d wday %d yday %d dst %d off %d", exp.tm_year,
                   exp.tm_mon, exp.tm_mday, exp.tm_hour, exp.tm_min, exp.tm_sec, exp.tm_usec, exp.tm_wday,
                   exp.tm_yday, exp.tm_isdst, exp.tm_gmtoff);
    return szOut;
}

void OneInstant(int64_t t) {
    VYX_TIME_EXP_T exp;
    VYX_TIME_T back = -1;
    std::memset(&exp, 0, sizeof exp);
    const int32_t iMade = VYX_ExpTimeFromTimeLocal(t, &exp);
    const int32_t iBack = VYX_TimeFromExpTimeGMT(&exp, &back);
    Line("local %lld: %d %s; back: %d %lld", static_cast<long long>(t), iMade, Fields(exp).c_str(), iBack,
         static_cast<long long>(back));
    char szText[64] = "";
    (void)VYX_CTime(szText, t);
    uint32_t nLength = 0;
    char szFormatted[64] = "";
    const int32_t iFormatted =
        VYX_StrFmtTime(szFormatted, &nLength, sizeof szFormatted, "%Y-%m-%d %H:%M:%S %j %w %a %b", &exp);
    Line("text %s; %d %u %s", Quoted(szText).c_str(), iFormatted, nLength, Quoted(szFormatted).c_str());
}

void Zone(const char *szZone) {
    (void)setenv("TZ", szZone, 1);
    tzset();
    Section(std::string("zone ") + szZone);
    for (int i = 0; i < 12; ++i)
        OneInstant(Instant());
    for (const int64_t nSecond :
         {0, 1, -1, 951782400, 951868800, 1080435599, 1080435600, 1099184399, 1099184400})
        OneInstant(nSecond * kSecond);
}

} // namespace

void Times() {
    for (const char *szZone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "IST-5:30"})
        Zone(szZone);
    (void)setenv("TZ", "UTC0", 1);
    tzset();
    Section("fields");
    for (int i = 0; i < 50; ++i) {
        VYX_TIME_EXP_T exp{};
        exp.tm_usec = static_cast<int32_t>(Random(2000000)) - 500000;
        exp.tm_sec = static_cast<int32_t>(Random(100)) - 20;
        exp.tm_min = static_cast<int32_t>(Random(100)) - 20;
        exp.tm_hour = static_cast<int32_t>(Random(40)) - 8;
        exp.tm_mday = static_cast<int32_t>(Random(40)) - 4;
        exp.tm_mon = static_cast<int32_t>(Random(14)) - 1;
        exp.tm_year = static_cast<int32_t>(Random(60)) + 70;
        exp.tm_gmtoff = static_cast<int32_t>(Random(25)) * 3600 - 43200;
        VYX_TIME_T plain = -1;
        VYX_TIME_T shifted = -1;
        const int32_t iPlain = VYX_TimeFromExpTime(&exp, &plain);
        const int32_t iShifted = VYX_TimeFromExpTimeGMT(&exp, &shifted);
        Line("from %s: %d %lld; %d %lld", Fields(exp).c_str(), iPlain, static_cast<long long>(plain),
             iShifted, static_cast<long long>(shifted));
    }
    Section("units");
    for (int i = 0; i < 20; ++i) {
        int64_t n = Random64() % 100000000000;
        n *= Random(6) == 0 ? -1 : 1;
        struct timeval tv = {};
        Line("units %lld: %lld %lld %lld %lld", static_cast<long long>(n),
             static_cast<long long>(vyx::vyx_time_tick::us2ms(n)),
             static_cast<long long>(vyx::vyx_time_tick::us2s(n)),
             static_cast<long long>(vyx::vyx_time_tick::ms2s(n)),
             vyx::vyx_time_tick::us2timeval(n, &tv) == nullptr
                 ? -1LL
                 : static_cast<long long>(vyx::vyx_time_tick::timeval2ms(&tv)));
    }
}

} // namespace transcript
