// The log service's one object. Callers reach it through the functions of vyx/log.h.
#ifndef VYX_LOGMODULE_H
#define VYX_LOGMODULE_H

#include <atomic>
#include <deque>

#include <vyx/log.h>
#include <vyx/sync.h>

// A queued line.
struct _LOG {
    const char *pData; // its first byte, in the ring
    uint32_t nLen;     // with carriage return, line feed and zero
    uint32_t nSkipped; // bytes left unused at the ring's end before it
    uint32_t nTargets; // bits 1 << log_services: the targets that were on when it was accepted
};

extern const char *const LEVEL_TEXT[4];

// Producers copy their lines into a ring; one writer thread takes them out in order and gives each line's space back
// once it is written.
//
// Locks, outermost first: m_switchLock, m_serviceLock, then m_fileLock or m_hQueueLock, never both. The writer takes
// only the last two. Flags are read without a lock; those that decide what happens to a line change with
// m_hQueueLock held.
class LogService {
  public:
    LogService();
    // Writes what is queued and ends the writer.
    ~LogService();
    LogService(const LogService &) = delete;
    LogService &operator=(const LogService &) = delete;

    // 0 started, or running already; -2 start blocked; -1 no memory for the ring, or no thread.
    int ServiceStart();
    // Writes what is queued, ends the writer and switches the file target off. 0. The writer is waited for in any
    // case, since it uses the ring.
    int ServiceStop(bool wait);
    // Sets whether the service refuses to start.
    void BlockStart(bool block) { m_bStartBlocked = block; }

    // Queues a line, for the targets that are on. 0; -2 not started; -4 the ring is full, or memory for the queue is
    // short: the line is dropped.
    int PushData(const char *data, unsigned int len);

    // The writer's routine; service is the LogService.
    static void *WriteLogProc(void *service);

    // Switches a target. Off: what was queued for it is written first.
    void SetTarget(log_services target, bool on);
    bool AnyTarget() const { return Targets() != 0; }
    // Switches the file target with its parameters, at once.
    int SwitchFileService(bool on, const char *path, unsigned int size, bool wrap);
    // The same with what is queued for it written before it goes off.
    int SwitchFileWhenWritten(bool on, const char *path, unsigned int size, bool wrap);

    // The file target. All but InputDataToFile with m_fileLock held. -6 path too long; -8 the file cannot be opened.
    int StartWriteFile(const char *path, unsigned int size);
    int StopWriteFile();
    int InputDataToFile(const char *data, unsigned int len);
    // The name of the current file while it is written, or when it is finished; valid until the next call.
    char *MakeFileName(bool working);

    // Around a fork: before it, and after it in either process. The child has no writer, an empty queue and no
    // file target; the lines queued are written by its parent.
    void BeforeFork();
    void AfterForkInParent();
    void AfterForkInChild();

    std::atomic<bool> m_bStarted{false};
    std::atomic<log_level> m_eLevel{VYX_LOG_LEVEL_INF};
    VYX_Mutex m_serviceLock{VYX_MUTEX_NORMAL};
    std::atomic<bool> m_bStartBlocked{false};
    std::atomic<bool> m_bConsole{false};
    std::atomic<bool> m_bDebug{false};
    std::atomic<bool> m_bFile{false};
    VYX_THREAD_T m_hThread; // VYX_INVALID_THREAD while there is none
    std::atomic<int32_t> m_bQuit{0};
    VYX_MUTEX_T m_hQueueLock; // guards ring, free count, queue and the counts below
    char *m_pRing = nullptr;  // 2 MiB while started
    char *m_pWrite = nullptr; // where the next line goes
    uint32_t m_nFree = 0;     // bytes that no queued or half-written line holds
    std::deque<_LOG> m_queue;
    VYX_Mutex m_fileLock{VYX_MUTEX_NORMAL}; // guards what follows up to m_szDir
    VYX_FILE_T m_hFile = VYX_INVALID_FILE;
    int32_t m_iFileIndex = 0; // number of the current file, less one
    int32_t m_bWrap = 1;      // after file 100 comes file 1
    uint32_t m_nMaxFileSize = 0;
    char m_szDir[260] = {}; // ends in '/'

  private:
    uint32_t Targets() const;
    bool MakeRing();
    void FreeRing();
    bool Append(const char *data, unsigned int len, uint32_t nSkipped);
    void SetFlag(std::atomic<bool> &bFlag, bool on);
    void AwaitWritten();
    bool TakeQueued();
    void WriteUntilQuit();
    void Idle(uint32_t nRound);
    void WriteTaken();
    void WriteToFile(size_t nFirst, size_t nEnd);
    void WriteToStreams(const _LOG &line);
    void GiveBack(uint32_t nBytes, size_t nLines);
    int PutLine(const char *data, unsigned int len);
    bool OpenWorkingFile();
    void Rotate();
    void FlushBatch();
    void CutTornLine(uint32_t nWritten);

    // The file's size with what is in the batch, and the batch: lines that go to the file with one write.
    int64_t m_nFileSize = 0;
    char *m_pBatch = nullptr; // behind the ring
    uint32_t m_nBatch = 0;

    std::atomic<bool> m_bFileClosing{false};  // on its way off: takes no more lines
    VYX_Mutex m_switchLock{VYX_MUTEX_NORMAL}; // serialises what switches the file target
    std::deque<_LOG> m_taken; // being written; changed with m_hQueueLock held, read by the writer without
    uint64_t m_nAccepted = 0; // lines
    uint64_t m_nWritten = 0;
    bool m_bParked = false;   // the writer sleeps until m_hWake
    uint32_t m_nAwaiting = 0; // threads that sleep until m_hWritten
    VYX_COND_T m_hWake;
    VYX_COND_T m_hWritten;
};

#endif
