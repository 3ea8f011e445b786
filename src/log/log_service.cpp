#include "log/log_service.h"

#include <array>
#include <unistd.h>

#include "base/platform.h"
#include "base/uncancelled.h"
#include "log/log_targets.h"
#include "thread/service_thread.h"

using vyx_inter::LockGuard;
using vyx_inter::Uncancelled;

namespace {

constexpr uint32_t kWriterStack = 131072; // bytes

bool GoesTo_Local(const _LOG &line, uint32_t nTarget) {
    return (line.nTargets >> nTarget & 1U) != 0;
}

iovec WithoutZero_Local(const LogBatch &batch, const _LOG &line) {
    return {const_cast<char *>(batch.Text(line)), size_t{line.nLen - 1}}; // which writing does not change
}

} // namespace

LogService::LogService() : m_iOwner(getpid()) {}

LogService::~LogService() {
    (void)ServiceStop(true);
}

/* ---- Start and stop */

int LogService::ServiceStart() {
    ForgetIfForked();
    const LockGuard guard(m_serviceLock);
    if (IsStarted())
        return 0;
    if (m_bStartBlocked)
        return -2;
    const int iResult = m_ring.Prepare();
    if (iResult != 0)
        return iResult;
    m_hThread = VYX_StartServiceThread_Inter(WriteLogProc, this, kWriterStack);
    if (m_hThread == VYX_INVALID_THREAD)
        return -1;
    if (m_ring.Open())
        return 0;
    Stop(); // the process has come to its end meanwhile
    return -2;
}

int LogService::ServiceStop(bool /*wait*/) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_serviceLock);
    Stop();
    return 0;
}

void LogService::Stop() {
    m_ring.Close();
    if (m_hThread == VYX_INVALID_THREAD)
        return;
    Join();
    for (uint32_t nTarget = 0; nTarget < g_nLogTargets; ++nTarget)
        if (g_struLogTargets[nTarget].fnOff != nullptr)
            Close(nTarget);
    m_ring.Free();
}

void LogService::Join() {
    (void)VYX_Thread_Wait(m_hThread); // fails where there is none
    m_hThread = VYX_INVALID_THREAD;
}

void LogService::Finish() {
    const Uncancelled uncancelled;
    ForgetIfForked();
    if (!m_ring.Finish() || !m_serviceLock.TryAcquire())
        return; // somebody is just starting or stopping it, perhaps this very thread, interrupted
    Join();
    m_serviceLock.Release();
}

/* ---- Targets */

int LogService::SwitchOn(uint32_t nTarget, const void *pParam, uint32_t nSize, uint32_t nWrap) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const VYX_LOG_TARGET_S &target = g_struLogTargets[nTarget];
    if (target.fnOn == nullptr) {
        (void)m_ring.Switch(nTarget, true);
        return 0;
    }
    const LockGuard guard(m_serviceLock);
    const int iResult = target.fnOn(m_files, pParam, nSize, nWrap);
    if (iResult == 0)
        (void)m_ring.Switch(nTarget, true);
    return iResult;
}

void LogService::SwitchOff(uint32_t nTarget) {
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_serviceLock);
    Close(nTarget);
    if (!AnyTarget())
        Stop();
}

int LogService::SwitchFileService(bool on, const char *path, unsigned int size, bool wrap) {
    if (on)
        return SwitchOn(VYX_LOG_TARGET_FILE, path, size, wrap ? 1 : 0);
    const Uncancelled uncancelled;
    ForgetIfForked();
    const LockGuard guard(m_serviceLock);
    Close(VYX_LOG_TARGET_FILE);
    return 0;
}

// Switches the target off, after it has got the lines that are queued for it.
void LogService::Close(uint32_t nTarget) {
    (void)m_ring.Switch(nTarget, false);
    m_ring.AwaitWritten();
    if (g_struLogTargets[nTarget].fnOff != nullptr)
        g_struLogTargets[nTarget].fnOff(m_files);
}

/* ---- The writer */

void LogService::WriteBatch(const LogBatch &batch) {
    std::array<iovec, LogRing::kBatchLines> lines;
    for (uint32_t n = 0; n < batch.Size(); ++n)
        for (uint32_t nTarget = 0; nTarget < g_nLogTargets; ++nTarget)
            if (g_struLogTargets[nTarget].eHanded == Handed::ByLine && GoesTo_Local(batch.Line(n), nTarget)) {
                lines[0] = WithoutZero_Local(batch, batch.Line(n));
                g_struLogTargets[nTarget].fnWrite(m_files, lines.data(), 1);
            }
    for (uint32_t nTarget = 0; nTarget < g_nLogTargets; ++nTarget) {
        uint32_t nLines = 0;
        for (uint32_t n = 0; g_struLogTargets[nTarget].eHanded == Handed::ByBatch && n < batch.Size(); ++n)
            if (GoesTo_Local(batch.Line(n), nTarget))
                lines[nLines++] = WithoutZero_Local(batch, batch.Line(n));
        if (nLines > 0)
            g_struLogTargets[nTarget].fnWrite(m_files, lines.data(), nLines);
    }
}

void *LogService::WriteLogProc(void *service) {
    VYX_NameThread_Inter("WriteLogProc");
    auto *pService = static_cast<LogService *>(service);
    pService->m_ring.Populate();
    LogBatch batch;
    while (pService->m_ring.Next(batch))
        pService->WriteBatch(batch);
    return nullptr;
}

/* ---- Fork */

void LogService::AfterForkInChild() {
    if (m_ring.AfterForkInChild())
        Forget(); // also without a writer: a thread may just have been about to start it
}

// For a child that was made without the handlers of a fork, by _Fork for one: it must at least be able to stop and end.
void LogService::ForgetIfForked() {
    if (m_iOwner != getpid())
        Forget();
}

// The writer and those who held locks exist in the parent only, and what is queued is the parent's to write.
void LogService::Forget() {
    m_iOwner = getpid();
    m_serviceLock.Renew();
    m_ring.Forget();
    (void)m_ring.Switch(VYX_LOG_TARGET_FILE, false);
    m_files.Forget();
    const LockGuard guard(m_serviceLock);
    m_hThread = VYX_INVALID_THREAD;
}

const vyx_inter::ForkRow g_struLogForkRow = {
    [] { GetLogService().BeforeFork(); },
    [] { GetLogService().AfterForkInParent(); },
    [] { GetLogService().AfterForkInChild(); },
};
