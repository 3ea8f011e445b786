// The ring of memory that log lines wait in, and the queue of the lines in it. Any number of threads put lines in; one
// thread, the writer, takes them out. Lines come out in the order in which they took the ring's lock.
//
// A line lies in one piece. Where it does not fit before the end of the ring, what is left there is skipped and counts as
// taken until the line does not. What the writer has taken out stays as it is until it comes back for more.
//
// Which targets a line goes to is settled when it is put in, under the lock under which targets are switched.
#ifndef VYX_LOG_LOG_RING_H
#define VYX_LOG_LOG_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/fork.h"

// One line in the queue.
struct _LOG {
    uint32_t nEnd;     // bytes put into the ring up to its end, those skipped included; see LogRing::m_nPut
    uint32_t nLen;     // bytes: the line, its carriage return, line feed and zero
    uint32_t nTargets; // bit N: it goes to target N
};

constexpr uint32_t kRingSize = 2097152; // bytes
constexpr uint32_t kLeastPlace =
    32; // bytes that a line takes of it, however short: with a header, none is shorter
constexpr uint32_t kMostLines = kRingSize / kLeastPlace;

struct VYX_LOG_MEMORY_S {
    char ring[kRingSize];
    _LOG queue[kMostLines];
};

// Lines that the writer has taken out, oldest first.
class LogBatch {
  public:
    LogBatch() = default;
    LogBatch(const VYX_LOG_MEMORY_S *pMemory, uint32_t nFirst, uint32_t nLines)
        : m_pMemory(pMemory), m_nFirst(nFirst), m_nLines(nLines) {}

    [[nodiscard]] uint32_t Size() const { return m_nLines; }
    [[nodiscard]] const _LOG &Line(uint32_t n) const { return m_pMemory->queue[(m_nFirst + n) % kMostLines]; }
    [[nodiscard]] const char *Text(const _LOG &line) const {
        return m_pMemory->ring + (line.nEnd - line.nLen) % kRingSize;
    }

  private:
    const VYX_LOG_MEMORY_S *m_pMemory = nullptr;
    uint32_t m_nFirst = 0;
    uint32_t m_nLines = 0;
};

class LogRing {
  public:
    static constexpr uint32_t kBatchLines = 512;

    LogRing() = default;
    ~LogRing() { Free(); }
    LogRing(const LogRing &) = delete;
    LogRing &operator=(const LogRing &) = delete;

    // The answers may be out of date at once; Put looks again.
    [[nodiscard]] bool IsOpen() const { return m_bOpen.load(std::memory_order_relaxed); }
    [[nodiscard]] uint32_t Targets() const { return m_nTargets.load(std::memory_order_relaxed); }

    // Puts a line of nLen bytes in, its zero included. Never waits for room. Result: 0; -2 not open; -5 no target is on;
    // -4 no room.
    int Put(const char *pLine, uint32_t nLen);

    // Gets memory, for a writer that is about to start. Result: 0; -1 there is none; -2 the ring is closed for good.
    int Prepare();
    // The writer is there: from now on lines are taken. Result: false if the ring is closed for good.
    bool Open();
    // No line is taken any more; the writer ends when all are written.
    void Close();
    // The same for good, at the end of the process, which may have come in a signal handler that interrupted this very
    // thread in Put: so the line that it was putting in is left where it is. Returns when all others are written. Result:
    // false if that cannot be.
    bool Finish();
    // The writer has ended.
    void Free();

    // Switches a target (0, 1, ...) for the lines to come. Result: the targets that are on now.
    uint32_t Switch(uint32_t nTarget, bool bOn);
    // Returns when the lines put in so far are written.
    void AwaitWritten();

    // The writer's first call: has the pages of the ring ready, and of its queue what lines of 100 bytes need. Else each
    // page would cost a line its time, and all others as well, which wait for the lock.
    void Populate();
    // The writer's call: everything in the batch is written, what is next? Waits for it. Result: false if the writer is
    // to end; the batch is empty then.
    bool Next(LogBatch &batch);

    // Around fork, in the thread that forks. Result in the child: false if nothing is to be changed; see ForkHold.
    void BeforeFork() { m_forkHold.Before(); }
    void AfterForkInParent() { m_forkHold.InParent(); }
    bool AfterForkInChild() { return m_forkHold.InChild(); }
    // In a forked child: not open and empty, whatever others were doing in the parent.
    void Forget();

  private:
    friend struct LogRows;
    [[nodiscard]] uint32_t Waiting() const VYX_REQUIRES(m_lock) { return m_nLines - m_nDone; }
    int Append(const char *pLine, uint32_t nLen) VYX_REQUIRES(m_lock);
    bool WakesWriter() VYX_REQUIRES(m_lock);
    void GiveBack(const LogBatch &batch) VYX_REQUIRES(m_lock);
    void Clear() VYX_REQUIRES(m_lock);
    void Sleep(uint32_t nIdle) VYX_REQUIRES(m_lock);
    void AwaitLines() VYX_REQUIRES(m_lock);

    // Read by each call without the lock; changed with it held.
    alignas(64) std::atomic<bool> m_bOpen{false};
    std::atomic<uint32_t> m_nTargets{0}; // bit N: target N is on
    VYX_LOG_MEMORY_S *m_pMemory VYX_GUARDED_BY(m_lock) = nullptr;

    // What each line changes: one cache line.
    alignas(64) vyx_inter::Lock m_lock{vyx_inter::Rank::LogQueue, vyx_inter::Taken::Spin};
    uint32_t m_nPut VYX_GUARDED_BY(m_lock) = 0;   // bytes; modulo the ring's size: where the next line goes
    uint32_t m_nFree VYX_GUARDED_BY(m_lock) = 0;  // bytes
    uint32_t m_nLines VYX_GUARDED_BY(m_lock) = 0; // modulo the queue's size: the next line's place in it
    uint32_t
        m_nWakeBelow VYX_GUARDED_BY(m_lock) = 0; // the writer wants to be woken when less than that is free

    // What each batch changes.
    alignas(64) uint32_t m_nDone VYX_GUARDED_BY(m_lock) = 0; // lines written, counted as m_nLines
    uint32_t m_nAwaiting VYX_GUARDED_BY(m_lock) = 0;         // threads that wait for m_nWritten
    uint64_t m_nWritten VYX_GUARDED_BY(m_lock) = 0;          // lines of all times
    uint64_t m_nRefused VYX_GUARDED_BY(m_lock) = 0; // lines for which there was no room, of all times
    bool m_bQuit VYX_GUARDED_BY(m_lock) = false;    // the writer is to end
    bool m_bForGood VYX_GUARDED_BY(m_lock) = false;
    vyx_inter::ForkHold m_forkHold{m_lock};
    vyx_inter::Condition m_wake;    // the writer sleeps here
    vyx_inter::Condition m_written; // and here who waits for it
};

#endif
