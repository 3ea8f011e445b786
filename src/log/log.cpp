// The functions of vyx/log.h, and the one service of the process behind them.
#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <new>

#include "base/describe.h"
#include "base/errno_keeper.h"
#include "base/first_init.h"
#include "log/log_header.h"
#include "log/log_service.h"
#include "log/log_targets.h"
#include "log/log_text.h"

namespace {

constexpr uint32_t kTextLimit = 2047;          // header, text and a zero
constexpr uint32_t kLineSize = kTextLimit + 2; // with carriage return, line feed and zero

/* ---- The service */

alignas(LogService) unsigned char s_storage[sizeof(LogService)];

LogService &TheService_Local() {
    return *std::launder(reinterpret_cast<LogService *>(s_storage));
}

// Makes the service, and has it finish at the end of the process. Its memory is left as it is then: a thread or a
// static object that is still there may log, and is refused.
struct GlobalLog {
    GlobalLog() { new (s_storage) LogService; }
    ~GlobalLog() { TheService_Local().Finish(); }
    GlobalLog(const GlobalLog &) = delete;
    GlobalLog &operator=(const GlobalLog &) = delete;
};

// Makes the service before the application's own static objects are made, hence finishes it after they are gone:
// they may log in their destructors.
struct MadeFirst {
    MadeFirst() { (void)GetLogService(); }
};
VYX_FIRST_INIT const MadeFirst s_madeFirst;

/* ---- A line */

// Prints a line with its end and zero. Result: its bytes, the zero included; -7 if the C library cannot format it.
int32_t PrintLine_Local(char (&szLine)[kLineSize], log_level eLevel, const char *szFile, int32_t iLine,
                        const char *szFormat, va_list args) VYX_PRINTF(5, 0);

int32_t PrintLine_Local(char (&szLine)[kLineSize], log_level eLevel, const char *szFile, int32_t iLine,
                        const char *szFormat, va_list args) {
    constexpr uint32_t kMost = kTextLimit - 1; // bytes of header and text
    const vyx_inter::ErrnoKeeper keeper;
    const int32_t iHeader = VYX_LogHeader_Inter(szLine, kTextLimit, eLevel, szFile, iLine);
    if (iHeader < 0)
        return -7;
    const uint32_t nHeader = std::min(static_cast<uint32_t>(iHeader), kMost);
    keeper.Restore(); // the format may ask for it
    const int32_t iText = VYX_LogText_Inter(szLine + nHeader, kTextLimit - nHeader, szFormat, args);
    if (iText < 0)
        return -7;
    const uint32_t nEnd = nHeader + std::min(static_cast<uint32_t>(iText), kMost - nHeader);
    std::memcpy(szLine + nEnd, "\r\n", 3);
    return static_cast<int32_t>(nEnd + 3);
}

bool IsTarget_Local(log_services eTarget) {
    return static_cast<uint32_t>(eTarget) < g_nLogTargets;
}

} // namespace

LogService &GetLogService() {
    static GlobalLog globalLog;
    return TheService_Local();
}

int32_t StartLogService(void) {
    GetLogService().BlockStart(false);
    return 0;
}

int32_t StopLogService(bool bBlock) {
    GetLogService().BlockStart(bBlock);
    return GetLogService().ServiceStop(true);
}

int32_t EnableTarget(log_services eTarget, const void *pParam, uint32_t nSize, uint32_t nWrap) {
    if (!IsTarget_Local(eTarget))
        return -6;
    // Deliberate: a refused path is not told. Pinned by LogFile.DirectoryAsGivenOrRefused.
    (void)GetLogService().SwitchOn(static_cast<uint32_t>(eTarget), pParam, nSize, nWrap);
    return 0;
}

int32_t DisableTarget(log_services eTarget) {
    if (!IsTarget_Local(eTarget))
        return -6;
    GetLogService().SwitchOff(static_cast<uint32_t>(eTarget));
    return 0;
}

int32_t AdjustLogLevel(log_level eLevel) {
    GetLogService().SetLevel(eLevel);
    return 0;
}

int32_t WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...) {
    if (szFile == nullptr || szFormat == nullptr)
        return -6;
    const vyx_inter::ErrnoKeeper keeper;
    LogService &service = GetLogService();
    if (eLevel > service.Level())
        return -3;
    if (!service.AnyTarget())
        return -5;
    if (!service.IsStarted()) {
        const int iStart = service.ServiceStart();
        if (iStart != 0)
            return iStart;
    }
    char szLine[kLineSize];
    va_list args;
    va_start(args, szFormat);
    const int32_t iLength = PrintLine_Local(szLine, eLevel, szFile, iLine, szFormat, args);
    va_end(args);
    return iLength < 0 ? iLength : service.PushData(szLine, static_cast<uint32_t>(iLength));
}

/* ---- Description */

struct LogRows {
    static constexpr vyx_inter::DescriptionRow kRows[] = {
        {"log", 0, sizeof s_storage, 1, s_storage},
        VYX_FIELD("log.level", LogService, m_eLevel),
        VYX_FIELD("log.service_lock", LogService, m_serviceLock),
        VYX_FIELD_OF("log.ring_lock", LogService, m_ring, LogRing, m_lock),
        VYX_FIELD_OF("log.open", LogService, m_ring, LogRing, m_bOpen),
        VYX_FIELD_OF("log.targets", LogService, m_ring, LogRing, m_nTargets), // bit N: target N is on
        VYX_FIELD_OF("log.memory", LogService, m_ring, LogRing, m_pMemory),
        VYX_FIELD_OF("log.put", LogService, m_ring, LogRing,
                     m_nLines), // of those since the ring was last empty
        VYX_FIELD_OF("log.done", LogService, m_ring, LogRing, m_nDone), // likewise
        VYX_FIELD_OF("log.free", LogService, m_ring, LogRing, m_nFree), // bytes
        VYX_FIELD_OF("log.written", LogService, m_ring, LogRing, m_nWritten),
        VYX_FIELD_OF("log.refused", LogService, m_ring, LogRing, m_nRefused),
        VYX_FIELD_OF("log.files_lock", LogService, m_files, LogFiles, m_lock),
        VYX_FIELD_OF("log.file", LogService, m_files, LogFiles, m_hFile),
        VYX_FIELD_OF("log.file_index", LogService, m_files, LogFiles, m_iFileIndex),   // its number, less one
        VYX_FIELD_OF("log.file_limit", LogService, m_files, LogFiles, m_nMaxFileSize), // bytes
        VYX_FIELD_OF("log.file_folder", LogService, m_files, LogFiles, m_szDir),
        {"log_ring", 0, kRingSize, 0, nullptr},
    };
};

VYX_DESCRIBE(log, LogRows::kRows)
