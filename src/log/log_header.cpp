// The text before every log line: local time, level, file, line.
//
// What changes once a second is printed once a second, by each thread for itself: no lock is shared by the callers of
// WriteLog but for that one moment.
#include "log/log_header.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/deadline.h"
#include "log/printer.h"
#include "time/calendar.h"

using vyx_inter::kMicrosPerSecond;

namespace {

const char *const LEVEL_TEXT[4] = {"DISABLE", "ERR", "DBG", "INF"};

// The part up to the milliseconds, and for which second and zone it holds.
struct Second {
    int64_t iSecond;
    uint32_t nZone; // its edition; 0 = none yet
    int iLength;
    char szText[64];

    bool Print(int64_t iNow, uint32_t nNowZone);
};

thread_local Second s_second;

bool Second::Print(int64_t iNow, uint32_t nNowZone) {
    struct tm time;
    nZone = 0;
    if (VYX_LocalTime_Inter(iNow, &time) == nullptr)
        return false;
    const auto part = [](int iValue) { return static_cast<unsigned>(iValue); };
    iLength = std::snprintf(szText, sizeof szText, "[%04u-%02u-%02u %02u:%02u:%02u.",
                            part(time.tm_year) + 1900U, part(time.tm_mon) + 1U, part(time.tm_mday),
                            part(time.tm_hour), part(time.tm_min), part(time.tm_sec));
    if (iLength < 0 || static_cast<size_t>(iLength) >= sizeof szText)
        return false;
    iSecond = iNow;
    nZone = nNowZone;
    return true;
}

const char *LevelName_Local(log_level eLevel) {
    const auto nLevel = static_cast<uint32_t>(eLevel);
    return nLevel < std::size(LEVEL_TEXT) ? LEVEL_TEXT[nLevel] : "?";
}

void PutMillis_Local(vyx_inter::Printer &printer, int64_t iMicros) {
    const auto nMillis = static_cast<unsigned>(iMicros / vyx_inter::kMicrosPerMilli);
    const auto digit = [](unsigned n) { return static_cast<char>('0' + n % 10); };
    const char digits[] = {digit(nMillis / 100), digit(nMillis / 10), digit(nMillis)};
    printer.Put(digits, sizeof digits);
}

} // namespace

int32_t VYX_LogHeader_Inter(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile,
                            int32_t iLine) {
    const int64_t iNow = vyx_inter::Now(vyx_inter::Clock::Wall);
    const int64_t iSeconds = iNow / kMicrosPerSecond;
    Second &second = s_second;
    const uint32_t nZone = VYX_ZoneEdition_Inter();
    if ((second.nZone != nZone || second.iSecond != iSeconds) && !second.Print(iSeconds, nZone))
        return -1;
    vyx_inter::Printer printer(szBuf, nSize);
    printer.Put(second.szText, static_cast<size_t>(second.iLength));
    PutMillis_Local(printer, iNow % kMicrosPerSecond);
    printer.Put("][", 2);
    printer.Put(LevelName_Local(eLevel));
    printer.Put("][FILE:", 7);
    printer.Put(FindLastSlash(szFile));
    printer.Put("][LINE:", 7);
    printer.PutNumber(iLine);
    printer.Put("] ", 2);
    return printer.Finish();
}

int32_t FormatTimeAndName(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile, int32_t iLine) {
    if (szFile == nullptr || (szBuf == nullptr && nSize > 0))
        return -1;
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
