#include "log/log_ring.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "base/platform.h"
#include "base/probes.h"
#include "base/signals.h"

using vyx_inter::Clock;
using vyx_inter::Deadline;
using vyx_inter::LockGuard;

namespace {

// While lines come in, the writer looks for them every few milliseconds, so that callers need not wake it: they do
// only when the ring is half full, or when nothing came for a second and it sleeps for good.
constexpr uint32_t kDozeMillis = 5;
constexpr uint32_t kDozes = 200; // in a row, before the writer sleeps for good
constexpr uint32_t kHalfFull = kRingSize / 2;
constexpr uint32_t kNotEmpty = kRingSize;

} // namespace

/* ---- Lines in */

int LogRing::Append(const char *pLine, uint32_t nLen) {
    if (!m_bOpen)
        return -2;
    const uint32_t nTargets = Targets();
    if (nTargets == 0) // the last one went off since the caller looked
        return -5;
    const uint32_t nPlace = std::max(nLen, kLeastPlace);
    const uint32_t nTail = kRingSize - m_nPut % kRingSize;
    const uint32_t nSkipped = nPlace > nTail ? nTail : 0;
    if (m_nFree < nSkipped || m_nFree - nSkipped < nPlace) {
        ++m_nRefused;
        return -4;
    }
    const uint32_t nEnd = m_nPut + nSkipped + nPlace;
    std::memcpy(m_pMemory->ring + (nEnd - nLen) % kRingSize, pLine, nLen);
    m_pMemory->queue[m_nLines % kMostLines] = {nEnd, nLen, nTargets};
    m_nPut = nEnd;
    m_nFree -= nSkipped + nPlace;
    std::atomic_signal_fence(std::memory_order_release); // last, see Finish: with this the line is there
    ++m_nLines;
    return 0;
}

// Result: true if the caller is to wake the writer.
bool LogRing::WakesWriter() {
    if (m_nFree >= m_nWakeBelow)
        return false;
    m_nWakeBelow = 0;
    return true;
}

int LogRing::Put(const char *pLine, uint32_t nLen) {
    int iResult = 0;
    bool bWakes = false;
    {
        const LockGuard guard(m_lock);
        iResult = Append(pLine, nLen);
        bWakes = WakesWriter();
    }
    if (bWakes) {
        // A handler may end the process, and Finish would signal the same condition within this call.
        const vyx_inter::SignalsBlocked blocked;
        m_wake.Signal();
    }
    VYX_PROBE3(log_line, pLine, nLen, iResult);
    return iResult;
}

/* ---- Lines out */

void LogRing::Populate() {
    VYX_LOG_MEMORY_S *pMemory = nullptr;
    {
        const LockGuard guard(m_lock);
        pMemory = m_pMemory; // which is not freed while the writer runs
    }
    VYX_PopulateMemory_Inter(pMemory, offsetof(VYX_LOG_MEMORY_S, queue) + sizeof(pMemory->queue) / 3);
}

// All lines are written: the next one goes to the start of the ring.
void LogRing::Clear() {
    m_nPut = 0;
    m_nFree = kRingSize;
    m_nLines = 0;
    m_nDone = 0;
}

void LogRing::GiveBack(const LogBatch &batch) {
    m_nWritten += batch.Size();
    VYX_PROBE1(log_written, batch.Size());
    m_nDone += batch.Size();
    if (Waiting() == 0)
        Clear();
    else if (batch.Size() > 0)
        m_nFree = kRingSize - (m_nPut - batch.Line(batch.Size() - 1).nEnd);
    if (m_nAwaiting > 0)
        m_written.Broadcast();
}

void LogRing::Sleep(uint32_t nIdle) {
    const bool bForGood = nIdle >= kDozes;
    m_nWakeBelow = bForGood ? kNotEmpty : kHalfFull;
    (void)m_wake.WaitUntil(m_lock,
                           bForGood ? Deadline::Never() : Deadline::In(kDozeMillis, Clock::Monotonic));
    m_nWakeBelow = 0;
}

bool LogRing::Next(LogBatch &batch) {
    const LockGuard guard(m_lock);
    GiveBack(batch);
    batch = {};
    for (uint32_t nIdle = 0; Waiting() == 0; ++nIdle) {
        if (m_bQuit)
            return false;
        Sleep(nIdle);
    }
    batch = {m_pMemory, m_nDone, std::min(Waiting(), kBatchLines)};
    return true;
}

void LogRing::AwaitLines() {
    const uint64_t nDue = m_nWritten + Waiting();
    m_wake.Signal();
    ++m_nAwaiting;
    while (m_nWritten < nDue)
        m_written.Wait(m_lock);
    --m_nAwaiting;
}

void LogRing::AwaitWritten() {
    const LockGuard guard(m_lock);
    AwaitLines();
}

/* ---- Start and stop */

int LogRing::Prepare() {
    const LockGuard guard(m_lock);
    if (m_bForGood)
        return -2;
    if (m_pMemory == nullptr)
        m_pMemory = new (std::nothrow) VYX_LOG_MEMORY_S;
    m_bQuit = false;
    Clear();
    return m_pMemory == nullptr ? -1 : 0;
}

bool LogRing::Open() {
    const LockGuard guard(m_lock);
    m_bOpen = !m_bForGood;
    return m_bOpen;
}

void LogRing::Close() {
    const LockGuard guard(m_lock);
    m_bOpen = false;
    m_bQuit = true;
    m_wake.Signal();
}

// Afterwards this thread has the lock. Where the platform cannot tell the holder, it had it before: a signal interrupted
// it while it was taking or releasing the lock. The order of locks is not checked, as the interrupted code may hold any.
bool LogRing::Finish() VYX_UNCHECKED {
    vyx_inter::ForkHold hold(m_lock);
    hold.Before();
    if (hold.IsOthers())
        return false; // and never gives it back: it is better to lose lines than never to end
    m_bOpen = false;
    m_bQuit = true;
    m_bForGood = true;
    AwaitLines();
    m_lock.ReleaseAfterFork();
    return true;
}

void LogRing::Free() {
    VYX_LOG_MEMORY_S *pMemory = nullptr;
    {
        const LockGuard guard(m_lock);
        std::swap(pMemory, m_pMemory);
    }
    delete pMemory;
}

uint32_t LogRing::Switch(uint32_t nTarget, bool bOn) {
    const LockGuard guard(m_lock);
    const uint32_t nBit = 1U << nTarget;
    m_nTargets = bOn ? m_nTargets | nBit : m_nTargets & ~nBit;
    return m_nTargets;
}

void LogRing::Forget() {
    m_lock.Renew();
    m_wake.Renew();
    m_written.Renew();
    const LockGuard guard(m_lock);
    m_bOpen = false;
    m_nAwaiting = 0;
    Clear();
}
