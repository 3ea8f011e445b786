// The log service: a ring of memory, a queue of the lines in it, and one thread that writes them.
//
// WriteLog formats on the caller's stack, and under m_hQueueLock copies the line into the ring and queues where it
// lies. The writer takes some lines off the queue, writes them from the ring, and only then gives their
// room back, together with what was skipped at the ring's end. A line therefore stays as it is until it is written.
//
// Which targets a line goes to is settled when it is queued and stands in its entry. So a target can be switched
// off for the lines to come, then wait until what is queued has been written, and only then close its file.
//
// While lines come in, the writer looks for them every few milliseconds, so that callers need not wake it: they do
// only when the ring is half full, or when nothing came for a second and it sleeps for good.
//
// Locks, outermost first: m_switchLock, m_serviceLock, then m_hQueueLock or m_fileLock, never both. The writer
// takes only the last two, callers of WriteLog m_serviceLock and m_hQueueLock, one after the other. No lock is held
// while a failure is reported, since that is a line itself.
//
// A forked child has none of the writer's work: it starts with an empty queue and the file target off. The one
// service of the process is never destroyed, so that it may be used at any time; at the end of the process it
// writes what is queued and takes no more.
#include "logmodule.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>
#include <vyx/sys.h>

#include "base/errno_keeper.h"
#include "base/first_init.h"
#include "base/uncancelled.h"
#include "log/log_header.h"
#include "log/log_text.h"
#include "thread/service_thread.h"
#include "time/calendar.h"

using vyx_inter::ErrnoKeeper;
using vyx_inter::LockGuard;
using vyx_inter::Uncancelled;

namespace {

constexpr uint32_t kRingSize = 2097152;   // bytes
constexpr uint32_t kTextSize = 65536;     // bytes of a batch's text for the files
constexpr uint32_t kWriterStack = 131072; // bytes
constexpr auto kDoze = std::chrono::milliseconds(5);
constexpr uint32_t kDozes = 200; // in a row, before the writer sleeps for good

constexpr uint32_t kTextLimit = 2047;          // header, text and a zero
constexpr uint32_t kLineSize = kTextLimit + 2; // with carriage return, line feed and zero
constexpr int32_t kReportLine = 421;           // where the report of an allocation failure says it comes from
constexpr const char *kReportFile = "logmodule.cpp";

constexpr uint32_t Bit_Local(log_services eTarget) {
    return 1U << static_cast<uint32_t>(eTarget);
}

// Queueing the report may fail as well; that is not reported.
void ReportLostMemory_Local() {
    static thread_local bool s_bReporting = false;
    if (s_bReporting)
        return;
    s_bReporting = true;
    (void)WriteLog(VYX_LOG_LEVEL_ERR, kReportFile, kReportLine, "push_back allo exception");
    s_bReporting = false;
}

} // namespace

LogService::LogService() : m_iOwner(getpid()) {}

LogService::~LogService() {
    Finish();
    FreeRing(); // that of a start that failed
}

/* ---- Start and stop */

bool LogService::PrepareRing() {
    const LockGuard guard(m_hQueueLock);
    if (m_pRing == nullptr)
        m_pRing = new (std::nothrow) char[kRingSize + kTextSize];
    if (m_pRing == nullptr)
        return false;
    m_pText = m_pRing + kRingSize;
    m_pWrite = m_pRing;
    m_pRead = m_pRing;
    m_nFree = kRingSize;
    m_queue.clear();
    m_nSpare = 0;
    m_nWritten = m_nQueued;
    return true;
}

void LogService::FreeRing() {
    char *pRing = nullptr;
    {
        const LockGuard guard(m_hQueueLock);
        std::swap(pRing, m_pRing);
        m_pWrite = nullptr;
        m_queue.clear();
    }
    delete[] pRing;
}

int LogService::ServiceStart() {
    ForgetIfForked();
    const LockGuard guard(m_serviceLock);
    if (m_bStarted)
        return 0;
    if (m_bStartBlocked || m_bFinished)
        return -2;
    if (!PrepareRing())
        return -1;
    m_bQuit = 0;
    m_hThread = VYX_StartServiceThread_Inter(WriteLogProc, this, kWriterStack);
    if (m_hThread == VYX_INVALID_THREAD)
        return -1;
    const LockGuard queueGuard(m_hQueueLock);
    m_bStarted = true;
    return 0;
}

int LogService::ServiceStop(bool /*wait*/) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_switchLock);
    Stop();
    return 0;
}

void LogService::Stop() {
    const LockGuard guard(m_serviceLock);
    if (!m_bStarted)
        return;
    {
        const LockGuard queueGuard(m_hQueueLock);
        m_bStarted = false; // no line is queued from here on
        m_bQuit = 1;
    }
    m_bell.Ring();
    (void)VYX_Thread_Wait(m_hThread);
    m_hThread = VYX_INVALID_THREAD;
    CloseFileTarget();
    FreeRing();
}

void LogService::Finish() {
    m_bFinished = true;
    (void)ServiceStop(true);
}

/* ---- Targets */

uint32_t LogService::TargetsOn() const {
    return (m_bConsole ? Bit_Local(VYX_LOG_TARGET_CONSOLE) : 0U) |
           (m_bDebug ? Bit_Local(VYX_LOG_TARGET_DEBUG) : 0U) |
           (m_bFile && !m_bFileClosing ? Bit_Local(VYX_LOG_TARGET_FILE) : 0U);
}

void LogService::SwitchOutputOn(log_services eTarget) {
    (eTarget == VYX_LOG_TARGET_CONSOLE ? m_bConsole : m_bDebug) = true;
}

void LogService::SwitchOff(log_services eTarget) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_switchLock);
    if (eTarget == VYX_LOG_TARGET_FILE) {
        SwitchFileOff();
    } else {
        {
            const LockGuard queueGuard(m_hQueueLock); // a line is queued either before or without it
            (eTarget == VYX_LOG_TARGET_CONSOLE ? m_bConsole : m_bDebug) = false;
        }
        AwaitWritten();
    }
    if (!AnyTarget())
        Stop();
}

int LogService::SwitchFileService(bool on, const char *path, unsigned int size, bool wrap) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_switchLock);
    if (!on) {
        SwitchFileOff();
        return 0;
    }
    const LockGuard fileGuard(m_fileLock);
    const int iResult = StartWriteFile(path, size);
    m_bWrap = wrap ? 1 : 0;
    return iResult;
}

void LogService::SwitchFileOff() {
    {
        const LockGuard guard(m_hQueueLock);
        m_bFileClosing = true;
    }
    AwaitWritten();
    CloseFileTarget();
    m_bFileClosing = false;
}

void LogService::CloseFileTarget() {
    const LockGuard guard(m_fileLock);
    (void)StopWriteFile(); // always 0
    m_bWrap = 1;
}

// Returns when the lines queued so far are written. Whoever may stop the writer waits for m_switchLock meanwhile,
// and the writer of another process is not waited for: see ForgetIfForked.
void LogService::AwaitWritten() {
    m_bell.Ring();
    const LockGuard guard(m_hQueueLock);
    const uint64_t nDue = m_nQueued;
    ++m_nAwaiting;
    while (m_nWritten < nDue)
        m_written.Wait(m_hQueueLock);
    --m_nAwaiting;
}

/* ---- The queue */

bool LogService::Enqueue(const _LOG &line, bool *pReport) {
    if (m_nSpare == 0) {
        try {
            m_queue.push_back(line);
            return true;
        } catch (...) { // no memory: the line is kept elsewhere
            *pReport = true;
        }
    }
    if (m_nSpare == kSpareLines)
        return false;
    m_spare[(m_iSpare + m_nSpare) % kSpareLines] = line;
    ++m_nSpare;
    return true;
}

int LogService::Append(const char *pData, uint32_t nLen, bool *pReport) {
    if (!m_bStarted)
        return -2;
    const uint32_t nTargets = TargetsOn();
    if (nTargets == 0) // the last one went off since the caller looked
        return -5;
    if (m_nFree == kRingSize) { // nothing is in the ring or being written from it: no need to go round
        m_pWrite = m_pRing;
        m_pRead = m_pRing;
    }
    const auto nTail = static_cast<uint32_t>(m_pRing + kRingSize - m_pWrite);
    const uint32_t nSkipped = nLen > nTail ? nTail : 0;
    if (m_nFree < nSkipped || m_nFree - nSkipped < nLen)
        return -4;
    char *pLine = nLen > nTail ? m_pRing : m_pWrite; // nothing may be left of the tail
    if (!Enqueue({pLine, nLen, nTargets}, pReport))
        return -4;
    std::memcpy(pLine, pData, nLen);
    m_pWrite = pLine + nLen;
    m_nFree -= nSkipped + nLen;
    ++m_nQueued;
    return 0;
}

// Result: true if the caller is to ring the bell.
bool LogService::WakesWriter() {
    const bool bWakes =
        m_eWriter == Writer::Parked || (m_eWriter == Writer::Dozing && m_nFree < kRingSize / 2);
    if (bWakes)
        m_eWriter = Writer::Awake;
    return bWakes;
}

int LogService::PushData(const char *data, unsigned int len) {
    bool bReport = false;
    bool bWakes = false;
    int iResult = 0;
    {
        const LockGuard guard(m_hQueueLock);
        iResult = Append(data, len, &bReport);
        bWakes = WakesWriter();
    }
    if (bWakes)
        m_bell.Ring();
    if (bReport)
        ReportLostMemory_Local(); // with no lock held: it queues a line itself
    return iResult;
}

const _LOG *LogService::Front() const {
    if (!m_queue.empty())
        return &m_queue.front();
    return m_nSpare > 0 ? &m_spare[m_iSpare] : nullptr;
}

void LogService::PopFront() {
    if (!m_queue.empty()) {
        m_queue.pop_front();
        return;
    }
    m_iSpare = (m_iSpare + 1) % kSpareLines;
    --m_nSpare;
}

// Takes as many lines as the batch has room for. A single line may be longer than its text.
void LogService::Take(Batch &batch) {
    uint32_t nText = 0;
    for (const _LOG *pLine = Front(); pLine != nullptr; pLine = Front()) {
        nText += pLine->nLen;
        if (batch.nLines == batch.lines.size() || (batch.nLines > 0 && nText > kTextSize))
            return;
        if (pLine->pData != m_pRead)
            batch.nHeld += static_cast<uint32_t>(m_pRing + kRingSize - m_pRead); // skipped at the ring's end
        m_pRead = pLine->pData + pLine->nLen;
        batch.nHeld += pLine->nLen;
        batch.lines[batch.nLines++] = *pLine;
        PopFront();
    }
}

void LogService::GiveBack(Batch &batch) {
    m_nFree += batch.nHeld;
    m_nWritten += batch.nLines;
    batch.nHeld = 0;
    batch.nLines = 0;
    if (m_nAwaiting > 0)
        m_written.Broadcast();
}

/* ---- The writer */

// Result: false if the writer is to end: it was asked to, and every line is written.
bool LogService::AwaitBatch(Batch &batch) {
    for (uint32_t nIdle = 0;; ++nIdle) {
        {
            const LockGuard guard(m_hQueueLock);
            GiveBack(batch);
            Take(batch);
            m_eWriter = Writer::Awake;
            if (batch.nLines > 0)
                return true;
            if (m_bQuit != 0)
                return false;
            m_eWriter = nIdle < kDozes ? Writer::Dozing : Writer::Parked;
        }
        if (nIdle < kDozes)
            m_bell.Await(kDoze);
        else
            m_bell.Await();
    }
}

void LogService::WriteBatchToFile(Batch &batch) {
    uint32_t nLines = 0;
    uint32_t nText = 0;
    const char *pText = m_pText;
    for (uint32_t n = 0; n < batch.nLines; ++n) {
        const _LOG &line = batch.lines[n];
        if ((line.nTargets & Bit_Local(VYX_LOG_TARGET_FILE)) == 0)
            continue;
        if (batch.nLines == 1)
            pText = line.pData; // needs no copy, and may be longer than the room for one
        else
            std::memcpy(m_pText + nText, line.pData, line.nLen - 1);
        nText += line.nLen - 1;
        batch.ends[nLines++] = nText;
    }
    if (nLines > 0)
        (void)InputLinesToFile({pText, batch.ends.data(), nLines}); // it has said what it could not open
}

void LogService::WriteBatch(Batch &batch) {
    for (uint32_t n = 0; n < batch.nLines; ++n) {
        const _LOG &line = batch.lines[n];
        if ((line.nTargets & Bit_Local(VYX_LOG_TARGET_CONSOLE)) != 0)
            (void)std::fputs(line.pData, stdout); // nobody is there to be told
        if ((line.nTargets & Bit_Local(VYX_LOG_TARGET_DEBUG)) != 0)
            VYX_OutputDebugString(line.pData);
    }
    WriteBatchToFile(batch);
}

void *LogService::WriteLogProc(void *service) {
    VYX_NameThread_Inter("WriteLogProc");
    auto *pService = static_cast<LogService *>(service);
    Batch batch;
    while (pService->AwaitBatch(batch))
        pService->WriteBatch(batch);
    return nullptr;
}

/* ---- Fork */

// Held for the moment of the fork is the lock under which the queue changes.
void LogService::BeforeFork() {
    m_forkHold.Before();
}

void LogService::AfterForkInParent() {
    m_forkHold.InParent();
}

void LogService::AfterForkInChild() {
    if (m_forkHold.InChild())
        Forget(); // also without a writer: a thread may just have been about to start it
}

const vyx_inter::ForkRow g_struLogForkRow = {
    [] { GetLogService().BeforeFork(); },
    [] { GetLogService().AfterForkInParent(); },
    [] { GetLogService().AfterForkInChild(); },
};

// For a child that came to be without the handlers above, such as by _Fork: it must at least be able to stop and end.
void LogService::ForgetIfForked() {
    if (m_iOwner != getpid())
        Forget();
}

// In a child: the writer and those who held locks exist in the parent only, and its lines are the parent's to write.
void LogService::Forget() {
    if (!m_forkHold.IsWhole())
        new (&m_queue) std::deque<_LOG>; // somebody was changing it
    m_switchLock.Renew();
    m_serviceLock.Renew();
    m_hQueueLock.Renew();
    m_fileLock.Renew();
    m_written.Renew();
    new (&m_bell) vyx_inter::Doorbell;
    m_iOwner = getpid();
    m_bStarted = false;
    m_bFileClosing = false;
    {
        const LockGuard guard(m_serviceLock);
        m_hThread = VYX_INVALID_THREAD;
    }
    {
        const LockGuard guard(m_hQueueLock);
        m_queue.clear();
        m_nSpare = 0;
        m_nAwaiting = 0;
        m_nWritten = m_nQueued;
        m_eWriter = Writer::Awake;
    }
    CloseFileTarget();
}

/* ---- The one service of the process */

namespace {

alignas(LogService) unsigned char s_storage[sizeof(LogService)];

LogService *TheService_Local() {
    return std::launder(reinterpret_cast<LogService *>(s_storage));
}

// Makes the service, and has it finish at the end of the process. Its memory is left as it is then: a thread or a
// static object that is still there may log, and is refused.
struct GlobalLog {
    GlobalLog() { new (s_storage) LogService; }
    ~GlobalLog() { TheService_Local()->Finish(); }
    GlobalLog(const GlobalLog &) = delete;
    GlobalLog &operator=(const GlobalLog &) = delete;
};

// Makes the service before the application's own static objects are made, hence finishes it after they are gone:
// they may log in their destructors.
struct MadeFirst {
    MadeFirst() { (void)GetLogService(); }
};
VYX_FIRST_INIT const MadeFirst s_madeFirst;

} // namespace

LogService &GetLogService() {
    static GlobalLog globalLog;
    return *TheService_Local();
}

/* ---- The functions of vyx/log.h */

int32_t StartLogService(void) {
    GetLogService().m_bStartBlocked = false;
    return 0;
}

int32_t StopLogService(bool bBlock) {
    LogService &service = GetLogService();
    service.m_bStartBlocked = bBlock;
    return service.ServiceStop(true);
}

int32_t EnableTarget(log_services eTarget, const void *pParam, uint32_t nSize, uint32_t nWrap) {
    switch (eTarget) {
    case VYX_LOG_TARGET_CONSOLE:
    case VYX_LOG_TARGET_DEBUG:
        GetLogService().SwitchOutputOn(eTarget);
        return 0;
    case VYX_LOG_TARGET_FILE:
        // Deliberate: a refused path is not told. Pinned by LogFile.RefusedPathIsNotTold.
        (void)GetLogService().SwitchFileService(true, static_cast<const char *>(pParam), nSize, nWrap != 0);
        return 0;
    }
    return -6;
}

int32_t DisableTarget(log_services eTarget) {
    switch (eTarget) {
    case VYX_LOG_TARGET_CONSOLE:
    case VYX_LOG_TARGET_DEBUG:
    case VYX_LOG_TARGET_FILE:
        GetLogService().SwitchOff(eTarget);
        return 0;
    }
    return -6;
}

int32_t AdjustLogLevel(log_level eLevel) {
    GetLogService().m_eLevel = eLevel;
    return 0;
}

int32_t WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...) {
    if (szFile == nullptr || szFormat == nullptr)
        return -6;
    const ErrnoKeeper keeper;
    LogService &service = GetLogService();
    if (eLevel > service.m_eLevel)
        return -3;
    if (!service.AnyTarget())
        return -5;
    if (!service.m_bStarted) {
        const int iStart = service.ServiceStart();
        if (iStart != 0)
            return iStart;
    }
    char szLine[kLineSize];
    const int32_t iHeader = VYX_LogHeader_Inter(szLine, kTextLimit, eLevel, szFile, iLine);
    if (iHeader < 0)
        return -7;
    const uint32_t nHeader = std::min(static_cast<uint32_t>(iHeader), kTextLimit - 1);
    keeper.Restore();
    va_list args;
    va_start(args, szFormat);
    const int32_t iText = VYX_LogText_Inter(szLine + nHeader, kTextLimit - nHeader, szFormat, args);
    va_end(args);
    if (iText < 0)
        return -7;
    const uint32_t nEnd = nHeader + std::min(static_cast<uint32_t>(iText), kTextLimit - 1 - nHeader);
    std::memcpy(szLine + nEnd, "\r\n", 3);
    return service.PushData(szLine, nEnd + 3);
}
