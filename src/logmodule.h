// The log service; src/logmodule.cpp says how it works.
#ifndef VYX_LOGMODULE_H
#define VYX_LOGMODULE_H

#include <array>
#include <atomic>
#include <deque>
#include <sys/types.h>
#include <vyx/log.h>

#include "base/fork.h"
#include "log/doorbell.h"

// One queued line.
struct _LOG {
    const char *pData; // the line's first byte in the ring
    uint32_t nLen;     // bytes: the line, its carriage return, line feed and zero
    uint32_t nTargets; // bit N: it goes to target N
};

// A run of whole lines for the files, without their zeros.
struct VYX_LOG_TEXT_S {
    const char *pData;
    const uint32_t *pEnds; // of each line: where the next one begins, from pData on
    uint32_t nLines;
};

extern const char *const LEVEL_TEXT[4];

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
    int PushData(const char *data, unsigned int len);
    static void *WriteLogProc(void *service);

    // Result: 0; -6 for a path that is too long.
    int SwitchFileService(bool on, const char *path, unsigned int size, bool wrap);
    int StartWriteFile(const char *path, unsigned int size) VYX_REQUIRES(m_fileLock);
    int StopWriteFile() VYX_REQUIRES(m_fileLock);
    // Result: 0 written, or the target is off; -8 no file could be opened.
    int InputDataToFile(const char *data, unsigned int len);
    // Result: the working or the finished name; valid until the next call.
    char *MakeFileName(bool working) VYX_REQUIRES(m_fileLock);

    // As InputDataToFile, for several lines.
    int InputLinesToFile(const VYX_LOG_TEXT_S &text);
    bool AnyTarget() const { return TargetsOn() != 0; }
    // Targets 0 and 1 on; any target off, having written what it is owed; then a stop if that was the last one.
    void SwitchOutputOn(log_services eTarget);
    void SwitchOff(log_services eTarget);
    // The process is at its end: writes what is queued and never starts again.
    void Finish();
    // Around fork, in the thread that forks.
    void BeforeFork();
    void AfterForkInParent();
    void AfterForkInChild();

    std::atomic<bool> m_bStarted{false}; // changes under m_hQueueLock
    std::atomic<log_level> m_eLevel{VYX_LOG_LEVEL_INF};
    vyx_inter::Lock m_serviceLock{vyx_inter::Rank::LogService}; // serialises start and stop
    std::atomic<bool> m_bStartBlocked{false};
    std::atomic<bool> m_bConsole{false};
    std::atomic<bool> m_bDebug{false};
    std::atomic<bool> m_bFile{false};
    VYX_THREAD_T m_hThread VYX_GUARDED_BY(m_serviceLock) = VYX_INVALID_THREAD;
    std::atomic<int32_t> m_bQuit{0};

    vyx_inter::Lock m_hQueueLock{vyx_inter::Rank::LogQueue};
    char *m_pRing VYX_GUARDED_BY(m_hQueueLock) = nullptr;
    char *m_pWrite VYX_GUARDED_BY(m_hQueueLock) = nullptr; // where the next line goes
    uint32_t m_nFree VYX_GUARDED_BY(m_hQueueLock) = 0;     // bytes
    std::deque<_LOG> m_queue VYX_GUARDED_BY(m_hQueueLock);

    vyx_inter::Lock m_fileLock{vyx_inter::Rank::LogFile};
    VYX_FILE_T m_hFile VYX_GUARDED_BY(m_fileLock) = VYX_INVALID_FILE;
    int32_t m_iFileIndex VYX_GUARDED_BY(m_fileLock) = 0;    // the current file's number, less one
    int32_t m_bWrap VYX_GUARDED_BY(m_fileLock) = 1;         // numbers count modulo 100
    uint32_t m_nMaxFileSize VYX_GUARDED_BY(m_fileLock) = 0; // bytes
    char m_szDir[260] VYX_GUARDED_BY(m_fileLock) = {};      // ends in '/'

  private:
    static constexpr uint32_t kSpareLines = 64;

    // What the writer has taken off the queue; it alone works on it.
    struct Batch {
        std::array<_LOG, 512> lines;
        std::array<uint32_t, 512> ends; // of the lines for the files, in the text for the files
        uint32_t nLines = 0;
        uint32_t nHeld = 0;    // bytes of the ring, those skipped at its end included
        char *pText = nullptr; // room for the text for the files
    };
    enum class Writer : uint8_t {
        Awake,
        Dozing, // looks again by itself in a few milliseconds
        Parked, // looks again when the bell rings
    };

    uint32_t TargetsOn() const;
    int Append(const char *pData, uint32_t nLen, bool *pReport) VYX_REQUIRES(m_hQueueLock);
    bool Enqueue(const _LOG &line, bool *pReport) VYX_REQUIRES(m_hQueueLock);
    bool WakesWriter() VYX_REQUIRES(m_hQueueLock);
    const _LOG *Front() const VYX_REQUIRES(m_hQueueLock);
    void PopFront() VYX_REQUIRES(m_hQueueLock);
    void Take(Batch &batch) VYX_REQUIRES(m_hQueueLock);
    void GiveBack(Batch &batch) VYX_REQUIRES(m_hQueueLock);
    bool AwaitBatch(Batch &batch);
    void WriteBatch(Batch &batch);
    void WriteBatchToFile(Batch &batch);
    void AwaitWritten();
    bool PrepareRing();
    void FreeRing();
    void Stop() VYX_REQUIRES(m_switchLock);
    void SwitchFileOff() VYX_REQUIRES(m_switchLock);
    void CloseFileTarget();
    void ForgetIfForked();
    void Forget();
    int WriteLines(const VYX_LOG_TEXT_S &text) VYX_REQUIRES(m_fileLock);
    bool OpenFile() VYX_REQUIRES(m_fileLock);
    void CloseFile() VYX_REQUIRES(m_fileLock);
    void Rotate() VYX_REQUIRES(m_fileLock);

    uint32_t m_nAwaiting VYX_GUARDED_BY(m_hQueueLock) = 0; // threads that wait for m_nWritten
    vyx_inter::Lock m_switchLock{
        vyx_inter::Rank::LogSwitch}; // serialises what switches targets off or the service
    // The file target takes no more lines; changes under m_hQueueLock.
    std::atomic<bool> m_bFileClosing{false};
    std::atomic<bool> m_bFinished{false};
    vyx_inter::ForkHold m_forkHold{m_hQueueLock};
    Writer m_eWriter VYX_GUARDED_BY(m_hQueueLock) = Writer::Awake;
    std::atomic<pid_t> m_iOwner; // the process that this is the service of

    char *m_pText = nullptr; // the writer's room for the text for the files; changes while no writer runs
    const char *m_pRead VYX_GUARDED_BY(m_hQueueLock) = nullptr; // behind the line taken last
    uint64_t m_nQueued VYX_GUARDED_BY(m_hQueueLock) = 0;        // lines so far
    uint64_t m_nWritten VYX_GUARDED_BY(m_hQueueLock) = 0;
    vyx_inter::Condition m_written;
    vyx_inter::Doorbell m_bell;
    // Lines for which the queue had no memory; all younger than those in the queue.
    std::array<_LOG, kSpareLines> m_spare VYX_GUARDED_BY(m_hQueueLock) = {};
    uint32_t m_iSpare VYX_GUARDED_BY(m_hQueueLock) = 0; // the first of them
    uint32_t m_nSpare VYX_GUARDED_BY(m_hQueueLock) = 0;
};

extern const vyx_inter::ForkRow g_struLogForkRow;

#endif
