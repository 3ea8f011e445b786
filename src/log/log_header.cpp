// The text before every log line: local time, level, file, line.
//
// What changes once a second is printed once a second, by each thread for itself: no lock is shared by the callers of
// WriteLog but for that one moment.
#include "log/log_header.h"

#include <cstdio>
#include <cstring>
#include <sys/time.h>
#include <time.h>

#include "base/lock.h"
#include "log/printer.h"
#include "logmodule.h"

const char *const LEVEL_TEXT[4] = {"DISABLE", "ERR", "DBG", "INF"};

namespace {

// Held for the calendar's own work. The C library has a lock there that a forked child inherits as it is: no
// thread of ours may be in there during a fork.
vyx_inter::Lock s_hCalendarLock{vyx_inter::Rank::Calendar};

// The part up to the milliseconds, and for which second and zone it holds.
struct Second {
    time_t iSecond;
    const char *pNames[2];
    long iWest;
    int iDaylight;
    int iLength; // 0 = none yet
    char szText[64];

    bool Holds(time_t iNow) const {
        return iLength > 0 && iSecond == iNow && pNames[0] == tzname[0] && pNames[1] == tzname[1] &&
               iWest == timezone && iDaylight == daylight;
    }
    bool Print(time_t iNow);
};

thread_local Second s_second;

bool LocalTime_Local(time_t iNow, struct tm *pTime) {
    const vyx_inter::LockGuard guard(s_hCalendarLock);
    tzset(); // a change of the zone since then counts, as with localtime
    return localtime_r(&iNow, pTime) != nullptr;
}

bool Second::Print(time_t iNow) {
    struct tm time;
    iLength = 0;
    if (!LocalTime_Local(iNow, &time))
        return false;
    const auto part = [](int iValue) { return static_cast<unsigned>(iValue); };
    const int iPrinted = std::snprintf(szText, sizeof szText, "[%04u-%02u-%02u %02u:%02u:%02u.",
                                       part(time.tm_year) + 1900U, part(time.tm_mon) + 1U, part(time.tm_mday),
                                       part(time.tm_hour), part(time.tm_min), part(time.tm_sec));
    if (iPrinted < 0 || static_cast<size_t>(iPrinted) >= sizeof szText)
        return false;
    iSecond = iNow;
    pNames[0] = tzname[0];
    pNames[1] = tzname[1];
    iWest = timezone;
    iDaylight = daylight;
    iLength = iPrinted;
    return true;
}

const char *LevelName_Local(log_level eLevel) {
    const auto nLevel = static_cast<uint32_t>(eLevel);
    return nLevel < std::size(LEVEL_TEXT) ? LEVEL_TEXT[nLevel] : "?";
}

void PutMillis_Local(vyx_inter::Printer &printer, long iMicros) {
    const auto nMillis = static_cast<unsigned>(iMicros / 1000);
    const auto digit = [](unsigned n) { return static_cast<char>('0' + n % 10); };
    const char digits[] = {digit(nMillis / 100), digit(nMillis / 10), digit(nMillis)};
    printer.Put(digits, sizeof digits);
}

} // namespace

int32_t VYX_LogHeader_Inter(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile,
                            int32_t iLine) {
    timeval now;
    (void)gettimeofday(&now, nullptr);
    Second &second = s_second;
    if (!second.Holds(now.tv_sec) && !second.Print(now.tv_sec))
        return -1;
    vyx_inter::Printer printer(szBuf, nSize);
    printer.Put(second.szText, static_cast<size_t>(second.iLength));
    PutMillis_Local(printer, now.tv_usec);
    printer.Put("][", 2);
    printer.Put(LevelName_Local(eLevel));
    printer.Put("][FILE:", 7);
    printer.Put(FindLastSlash(szFile));
    printer.Put("][LINE:", 7);
    printer.PutNumber(iLine);
    printer.Put("] ", 2);
    return printer.Finish();
}

void VYX_LogHeaderLock_Inter(void) {
    s_hCalendarLock.AcquireForFork();
}

void VYX_LogHeaderUnlock_Inter(void) {
    s_hCalendarLock.ReleaseAfterFork();
}

int32_t FormatTimeAndName(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile, int32_t iLine) {
    if (szFile == nullptr || (szBuf == nullptr && nSize > 0))
        return -1;
    s_second.iLength = 0; // the zone is looked up anew
    return VYX_LogHeader_Inter(szBuf, nSize, eLevel, szFile, iLine);
}

const char *FindLastSlash(const char *szPath) {
    if (szPath == nullptr)
        return nullptr;
    const char *pSlash = std::strrchr(szPath, '/');
    const char *szName = pSlash == nullptr ? szPath : pSlash + 1;
    const char *pBackslash = std::strrchr(szName, '\\');
    return pBackslash == nullptr ? szName : pBackslash + 1;
}
