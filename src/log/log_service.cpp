// The log service's queue and its writer thread.
//
// The space of a line is taken from the free count together with the bytes skipped before it, and given back only
// when the line has been written, so nothing that is still needed is ever written over. A line carries the targets
// that were on when it was accepted; switching one off waits until the lines accepted before have been written.
#include <cstdio>
#include <cstring>
#include <new>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "log/log_hold.h"
#include "logmodule.h"
#include "thread/service_thread.h"

using vyx_inter::ClassHold;
using vyx_inter::QueueHold;

namespace {

constexpr uint32_t kRingBytes = 2097152;
constexpr uint32_t kBatchBytes = 65536;
constexpr uint32_t kWriterStack = 131072;
constexpr uint32_t kQuickRounds = 10; // looks at an empty queue that are a millisecond apart
constexpr uint32_t kSlowRounds = 30;  // and then, up to this one, kPause milliseconds
constexpr uint32_t kPause = 5;
constexpr int kFailedAppendLine = 421; // the line number that reports of a lost line show

constexpr uint32_t Bit_Local(log_services eTarget) {
    return 1U << static_cast<uint32_t>(eTarget);
}

} // namespace

LogService::LogService() : m_hThread(VYX_INVALID_THREAD) {
    (void)VYX_MutexCreate(&m_hQueueLock, VYX_MUTEX_NORMAL);
    (void)VYX_CondCreate(&m_hWake);
    (void)VYX_CondCreate(&m_hWritten);
}

LogService::~LogService() {
    (void)ServiceStop(false);
    (void)VYX_CondDestroy(&m_hWritten);
    (void)VYX_CondDestroy(&m_hWake);
    (void)VYX_MutexDestroy(&m_hQueueLock);
}

bool LogService::MakeRing() {
    char *pRing = new (std::nothrow) char[kRingBytes + kBatchBytes];
    if (pRing == nullptr)
        return false;
    const QueueHold hold(m_hQueueLock);
    m_pRing = pRing;
    m_pBatch = pRing + kRingBytes;
    m_pWrite = pRing;
    m_nFree = kRingBytes;
    m_queue.clear();
    return true;
}

void LogService::FreeRing() {
    const ClassHold file(m_fileLock); // somebody may be inside InputDataToFile
    const QueueHold hold(m_hQueueLock);
    m_queue.clear();
    delete[] m_pRing;
    m_pRing = nullptr;
    m_pBatch = nullptr;
    m_pWrite = nullptr;
}

int LogService::ServiceStart() {
    const ClassHold service(m_serviceLock);
    if (m_bStarted)
        return 0;
    if (m_bStartBlocked)
        return -2;
    if (m_pRing == nullptr && !MakeRing())
        return -1;
    m_bQuit = 0;
    m_hThread = VYX_StartServiceThread_Inter(WriteLogProc, this, kWriterStack);
    if (m_hThread == VYX_INVALID_THREAD)
        return -1;
    const QueueHold hold(m_hQueueLock);
    m_bStarted = true;
    return 0;
}

int LogService::ServiceStop(bool /*wait*/) {
    const ClassHold service(m_serviceLock);
    if (!m_bStarted)
        return 0;
    {
        const QueueHold hold(m_hQueueLock);
        m_bStarted = false; // from here on no line is accepted, so the writer's last look finds them all
        m_bQuit = 1;
        (void)VYX_CondSignal(&m_hWake);
    }
    (void)VYX_Thread_Wait(m_hThread);
    m_hThread = VYX_INVALID_THREAD;
    (void)SwitchFileService(false, nullptr, 0, false);
    FreeRing();
    return 0;
}

uint32_t LogService::Targets() const {
    return (m_bConsole ? Bit_Local(VYX_LOG_TARGET_CONSOLE) : 0) |
           (m_bDebug ? Bit_Local(VYX_LOG_TARGET_DEBUG) : 0) |
           (m_bFile && !m_bFileClosing ? Bit_Local(VYX_LOG_TARGET_FILE) : 0);
}

// Copies and queues the line. False if there is no memory for the queue's entry; then nothing has changed.
bool LogService::Append(const char *data, unsigned int len, uint32_t nSkipped) {
    char *pTo = nSkipped != 0 ? m_pRing : m_pWrite;
    try {
        m_queue.push_back({pTo, len, nSkipped, Targets()});
    } catch (const std::bad_alloc &) {
        return false;
    }
    std::memcpy(pTo, data, len);
    m_pWrite = pTo + len;
    m_nFree -= len + nSkipped;
    ++m_nAccepted;
    if (m_bParked)
        (void)VYX_CondSignal(&m_hWake);
    return true;
}

int LogService::PushData(const char *data, unsigned int len) {
    {
        const QueueHold hold(m_hQueueLock);
        if (!m_bStarted)
            return -2;
        if (m_nFree < len)
            return -4;
        if (m_pRing == nullptr || m_pWrite == nullptr)
            return 0;
        const auto nLeft = static_cast<uint32_t>(m_pRing + kRingBytes - m_pWrite);
        const uint32_t nSkipped = len > nLeft ? nLeft : 0;
        if (m_nFree - len < nSkipped)
            return -4;
        if (Append(data, len, nSkipped))
            return 0;
    }
    // Outside the lock, since the report is a line itself; one that fails likewise is not reported.
    static thread_local bool s_bReporting = false;
    if (!s_bReporting) {
        s_bReporting = true;
        (void)WriteLog(VYX_LOG_LEVEL_ERR, "logmodule.cpp", kFailedAppendLine, "push_back allo exception");
        s_bReporting = false;
    }
    return -4;
}

void LogService::SetFlag(std::atomic<bool> &bFlag, bool on) {
    const QueueHold hold(m_hQueueLock);
    bFlag = on;
}

void LogService::SetTarget(log_services target, bool on) {
    SetFlag(target == VYX_LOG_TARGET_CONSOLE ? m_bConsole : m_bDebug, on);
    if (!on)
        AwaitWritten();
}

// Until the lines accepted so far have been written.
void LogService::AwaitWritten() {
    const QueueHold hold(m_hQueueLock);
    const uint64_t nUntil = m_nAccepted;
    ++m_nAwaiting;
    while (m_nWritten < nUntil)
        (void)VYX_CondWait(&m_hWritten, &m_hQueueLock);
    --m_nAwaiting;
}

int LogService::SwitchFileService(bool on, const char *path, unsigned int size, bool wrap) {
    const ClassHold file(m_fileLock);
    const int iResult = on ? StartWriteFile(path, size) : StopWriteFile();
    m_bWrap = on ? static_cast<int32_t>(wrap) : 1;
    return iResult;
}

int LogService::SwitchFileWhenWritten(bool on, const char *path, unsigned int size, bool wrap) {
    const ClassHold once(m_switchLock);
    if (!on) {
        SetFlag(m_bFileClosing, true);
        AwaitWritten();
    }
    const int iResult = SwitchFileService(on, path, size, wrap);
    SetFlag(m_bFileClosing, false);
    return iResult;
}

void *LogService::WriteLogProc(void *service) {
    VYX_NameThread_Inter("vyx_log");
    static_cast<LogService *>(service)->WriteUntilQuit();
    return nullptr;
}

void LogService::WriteUntilQuit() {
    for (uint32_t nRound = 0;;) {
        const bool bQuit = m_bQuit != 0; // read first: what is queued was queued before it was set
        if (TakeQueued()) {
            WriteTaken();
            nRound = 0;
        } else if (bQuit) {
            return;
        } else {
            Idle(nRound++);
        }
    }
}

bool LogService::TakeQueued() {
    const QueueHold hold(m_hQueueLock);
    if (m_queue.empty())
        return false;
    m_taken.swap(m_queue);
    return true;
}

// While lines keep coming the writer looks for them on its own, so that callers need not wake it.
void LogService::Idle(uint32_t nRound) {
    if (nRound < kSlowRounds) {
        (void)VYX_Sleep(nRound < kQuickRounds ? 1 : kPause);
        return;
    }
    const QueueHold hold(m_hQueueLock);
    m_bParked = true;
    while (m_queue.empty() && m_bQuit == 0)
        (void)VYX_CondWait(&m_hWake, &m_hQueueLock);
    m_bParked = false;
}

void LogService::WriteTaken() {
    size_t nFirst = 0;
    while (nFirst < m_taken.size()) {
        uint32_t nBytes = 0;
        size_t nEnd = nFirst;
        while (nEnd < m_taken.size() && nBytes < kBatchBytes) {
            nBytes += m_taken[nEnd].nLen + m_taken[nEnd].nSkipped;
            WriteToStreams(m_taken[nEnd]);
            ++nEnd;
        }
        WriteToFile(nFirst, nEnd);
        GiveBack(nBytes, nEnd - nFirst);
        nFirst = nEnd;
    }
    const QueueHold hold(m_hQueueLock);
    m_taken.clear();
}

void LogService::WriteToStreams(const _LOG &line) {
    if ((line.nTargets & Bit_Local(VYX_LOG_TARGET_CONSOLE)) != 0)
        (void)std::fputs(line.pData, stdout);
    if ((line.nTargets & Bit_Local(VYX_LOG_TARGET_DEBUG)) != 0)
        VYX_OutputDebugString(line.pData);
}

void LogService::GiveBack(uint32_t nBytes, size_t nLines) {
    const QueueHold hold(m_hQueueLock);
    m_nFree += nBytes;
    m_nWritten += nLines;
    if (m_nAwaiting != 0)
        (void)VYX_CondBroadCast(&m_hWritten);
}

void LogService::BeforeFork() {
    (void)m_switchLock.Lock();
    (void)m_serviceLock.Lock();
    (void)m_fileLock.Lock();
    (void)VYX_MutexLock(&m_hQueueLock);
}

void LogService::AfterForkInParent() {
    (void)VYX_MutexUnlock(&m_hQueueLock);
    (void)m_fileLock.Unlock();
    (void)m_serviceLock.Unlock();
    (void)m_switchLock.Unlock();
}

void LogService::AfterForkInChild() {
    m_bStarted = false;
    m_bQuit = 0;
    m_hThread = VYX_INVALID_THREAD;
    m_queue.clear();
    m_taken.clear();
    m_pWrite = m_pRing;
    m_nFree = m_pRing != nullptr ? kRingBytes : 0;
    m_nAccepted = 0;
    m_nWritten = 0;
    m_nBatch = 0;
    m_bParked = false;
    m_nAwaiting = 0;
    (void)VYX_CondCreate(&m_hWake); // anew: the parent's threads may sleep on the old ones
    (void)VYX_CondCreate(&m_hWritten);
    (void)StopWriteFile();
    AfterForkInParent();
}
