// The log service: starts and stops the writer, switches targets, and has the writer write.
//
// A target that is switched off is first off for the lines to come; then those that are on their way to it are written;
// only then it is closed.
//
// The one service of the process is never destroyed, so that it may be used at any time. At the end of the process
// it writes what is queued, and takes no more.
#ifndef VYX_LOG_LOG_SERVICE_H
#define VYX_LOG_LOG_SERVICE_H

#include <atomic>
#include <sys/types.h>
#include <vyx/log.h>

#include "base/lock.h"
#include "log/log_files.h"
#include "log/log_ring.h"

class LogService {
  public:
    LogService();
    // Writes what is queued, as ServiceStop.
    ~LogService();
    LogService(const LogService &) = delete;
    LogService &operator=(const LogService &) = delete;

    // Result: 0 running; -2 start blocked; -1 no memory or no thread.
    int ServiceStart();
    // Result: 0. The writer is waited for in any case, because the ring is freed.
    int ServiceStop(bool wait);
    // Queues a line of len bytes, its zero included. Result: 0; -2 not running; -4 no room; -5 no target is on.
    int PushData(const char *data, unsigned int len) { return m_ring.Put(data, len); }
    // The file target on or off. Result: 0; -6 for a path that is too long.
    int SwitchFileService(bool on, const char *path, unsigned int size, bool wrap);

    // A target of the table, with the last arguments of EnableTarget. Result: 0; the target's own if it refuses them.
    int SwitchOn(uint32_t nTarget, const void *pParam, uint32_t nSize, uint32_t nWrap);
    // Stops the service if that was the last target.
    void SwitchOff(uint32_t nTarget);

    [[nodiscard]] bool IsStarted() const { return m_ring.IsOpen(); }
    [[nodiscard]] bool AnyTarget() const { return m_ring.Targets() != 0; }
    [[nodiscard]] log_level Level() const { return m_eLevel.load(std::memory_order_relaxed); }
    void SetLevel(log_level eLevel) { m_eLevel = eLevel; }
    void BlockStart(bool bBlocked) { m_bStartBlocked = bBlocked; }

    // The process is at its end: writes what is queued and never starts again.
    void Finish();
    // Around fork, in the thread that forks.
    void BeforeFork() { m_ring.BeforeFork(); }
    void AfterForkInParent() { m_ring.AfterForkInParent(); }
    void AfterForkInChild();

  private:
    friend struct LogRows;
    void Forget();
    static void *WriteLogProc(void *service);
    void WriteBatch(const LogBatch &batch);
    void Close(uint32_t nTarget) VYX_REQUIRES(m_serviceLock);
    void Stop() VYX_REQUIRES(m_serviceLock);
    void Join() VYX_REQUIRES(m_serviceLock);
    void ForgetIfForked();

    LogRing m_ring;
    vyx_inter::Lock m_serviceLock{vyx_inter::Rank::LogService}; // serialises starts, stops and switches
    VYX_THREAD_T m_hThread VYX_GUARDED_BY(m_serviceLock) = VYX_INVALID_THREAD;
    std::atomic<pid_t> m_iOwner; // the process that this is the service of
    std::atomic<bool> m_bStartBlocked{false};
    std::atomic<log_level> m_eLevel{VYX_LOG_LEVEL_INF};
    LogFiles m_files;
};

extern const vyx_inter::ForkRow g_struLogForkRow;

#endif
