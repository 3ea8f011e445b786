// The log service as callers see it: the text of a line, and the functions around the one service object.
#include "logmodule.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <pthread.h>
#include <sys/time.h>

const char *const LEVEL_TEXT[4] = {"DISABLE", "ERR", "DBG", "INF"};

namespace {

constexpr size_t kLineBytes = 2048;
constexpr size_t kTextLimit =
    kLineBytes - 1; // header and text, with a zero that the line end takes the place of
constexpr size_t kLineEndBytes = 3;

// The header up to the second, made once a second by each thread.
struct Stamp {
    time_t tSecond = -1;
    char szText[80] = "";
    size_t nLength = 0;
};

const Stamp &StampOf_Local(time_t tSecond) {
    static thread_local Stamp s_stamp;
    if (s_stamp.tSecond == tSecond && s_stamp.nLength != 0)
        return s_stamp;
    struct tm local = {};
    tzset(); // as localtime does, but localtime_r need not
    (void)localtime_r(&tSecond, &local);
    const int iLength =
        std::snprintf(s_stamp.szText, sizeof s_stamp.szText, "[%04u-%02u-%02u %02u:%02u:%02u.",
                      static_cast<unsigned>(local.tm_year + 1900), static_cast<unsigned>(local.tm_mon + 1),
                      static_cast<unsigned>(local.tm_mday), static_cast<unsigned>(local.tm_hour),
                      static_cast<unsigned>(local.tm_min), static_cast<unsigned>(local.tm_sec));
    s_stamp.nLength = static_cast<size_t>(iLength);
    s_stamp.tSecond = tSecond;
    return s_stamp;
}

const char *LevelText_Local(log_level eLevel) {
    const auto nLevel = static_cast<uint32_t>(eLevel);
    return nLevel < std::size(LEVEL_TEXT) ? LEVEL_TEXT[nLevel] : "?";
}

char *Put_Local(char *pTo, const char *szText, size_t nLength) {
    std::memcpy(pTo, szText, nLength);
    return pTo + nLength;
}

template <size_t N>
char *Put_Local(char *pTo, const char (&szText)[N]) {
    return Put_Local(pTo, szText, N - 1);
}

// Where the storage of the one service is. It is never destroyed: threads may still log while the process ends.
struct ServiceAtExit {
    ~ServiceAtExit() {
        LogService &service = GetLogService();
        service.BlockStart(true);
        (void)service.ServiceStop(true);
    }
};

LogService &MakeService_Local() {
    alignas(LogService) static unsigned char s_storage[sizeof(LogService)];
    LogService &service = *new (s_storage) LogService;
    (void)pthread_atfork([] { GetLogService().BeforeFork(); }, [] { GetLogService().AfterForkInParent(); },
                         [] { GetLogService().AfterForkInChild(); });
    return service;
}

} // namespace

LogService &GetLogService() {
    static LogService &globalLog = MakeService_Local();
    static const ServiceAtExit s_atExit;
    return globalLog;
}

int32_t StartLogService(void) {
    GetLogService().BlockStart(false);
    return 0;
}

int32_t StopLogService(bool bBlock) {
    LogService &service = GetLogService();
    service.BlockStart(bBlock);
    return service.ServiceStop(true);
}

int32_t EnableTarget(log_services eTarget, const void *pParam, uint32_t nSize, uint32_t nWrap) {
    LogService &service = GetLogService();
    switch (eTarget) {
    case VYX_LOG_TARGET_CONSOLE:
    case VYX_LOG_TARGET_DEBUG:
        service.SetTarget(eTarget, true);
        return 0;
    case VYX_LOG_TARGET_FILE:
        // Deliberate: a path that is refused is no failure of this call; the target stays as it was. Pinned by
        // Log.Targets.
        (void)service.SwitchFileWhenWritten(true, static_cast<const char *>(pParam), nSize, nWrap != 0);
        return 0;
    default:
        return -6;
    }
}

int32_t DisableTarget(log_services eTarget) {
    LogService &service = GetLogService();
    switch (eTarget) {
    case VYX_LOG_TARGET_CONSOLE:
    case VYX_LOG_TARGET_DEBUG:
        service.SetTarget(eTarget, false);
        break;
    case VYX_LOG_TARGET_FILE:
        (void)service.SwitchFileWhenWritten(false, nullptr, 0, false);
        break;
    default:
        return -6;
    }
    if (!service.AnyTarget())
        (void)service.ServiceStop(true);
    return 0;
}

int32_t AdjustLogLevel(log_level eLevel) {
    GetLogService().m_eLevel = eLevel;
    return 0;
}

int32_t WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...) {
    if (szFile == nullptr || szFormat == nullptr)
        return -6;
    LogService &service = GetLogService();
    if (static_cast<int32_t>(eLevel) > static_cast<int32_t>(service.m_eLevel.load()))
        return -3;
    if (!service.AnyTarget())
        return -5;
    if (!service.m_bStarted) {
        const int iStarted = service.ServiceStart();
        if (iStarted != 0)
            return iStarted;
    }
    char szBuffer[kLineBytes + kLineEndBytes];
    const int32_t iHeader = FormatTimeAndName(szBuffer, kTextLimit, eLevel, szFile, iLine);
    if (iHeader == -1)
        return -7;
    const size_t nHeader = std::min(static_cast<size_t>(iHeader), kTextLimit - 1);
    const size_t nRoom = kTextLimit - nHeader;
    va_list args;
    va_start(args, szFormat);
    const int iText = std::vsnprintf(szBuffer + nHeader, nRoom, szFormat, args);
    va_end(args);
    if (iText < 0)
        return -7;
    char *pEnd = szBuffer + nHeader + std::min(static_cast<size_t>(iText), nRoom - 1);
    std::memcpy(pEnd, "\r\n", kLineEndBytes);
    return service.PushData(
        szBuffer, static_cast<unsigned int>(pEnd - szBuffer + static_cast<ptrdiff_t>(kLineEndBytes)));
}

int32_t FormatTimeAndName(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile, int32_t iLine) {
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr);
    const Stamp &stamp = StampOf_Local(now.tv_sec);
    const auto nMs = static_cast<unsigned>(now.tv_usec / 1000);
    const char *szLevel = LevelText_Local(eLevel);
    const char *szName = FindLastSlash(szFile != nullptr ? szFile : "");
    char szLine[16];
    const size_t nLine =
        static_cast<size_t>(std::to_chars(szLine, szLine + sizeof szLine, iLine).ptr - szLine);
    const size_t nLevel = std::strlen(szLevel);
    const size_t nName = std::strlen(szName);
    const size_t nTotal = stamp.nLength + 3 + 2 + nLevel + 7 + nName + 7 + nLine + 2;
    if (nTotal >= nSize || szBuf == nullptr)
        return std::snprintf(szBuf, nSize, "%s%03u][%s][FILE:%s][LINE:%d] ", stamp.szText, nMs, szLevel,
                             szName, iLine);
    const char szMs[] = {static_cast<char>('0' + nMs / 100), static_cast<char>('0' + nMs / 10 % 10),
                         static_cast<char>('0' + nMs % 10)};
    char *p = Put_Local(szBuf, stamp.szText, stamp.nLength);
    p = Put_Local(p, szMs, sizeof szMs);
    p = Put_Local(p, "][");
    p = Put_Local(p, szLevel, nLevel);
    p = Put_Local(p, "][FILE:");
    p = Put_Local(p, szName, nName);
    p = Put_Local(p, "][LINE:");
    p = Put_Local(p, szLine, nLine);
    p = Put_Local(p, "] ");
    *p = '\0';
    return static_cast<int32_t>(p - szBuf);
}

const char *FindLastSlash(const char *szPath) {
    const char *szName = szPath;
    for (const char *p = szPath; *p != '\0'; ++p)
        if (*p == '/' || *p == '\\')
            szName = p + 1;
    return szName;
}
