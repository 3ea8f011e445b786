// The log's files: DIRECTORY/vyx_log_N_w.log is being written, DIRECTORY/vyx_log_N.log is finished.
#ifndef VYX_LOG_LOG_FILES_H
#define VYX_LOG_LOG_FILES_H

#include <sys/uio.h>
#include <vyx/types.h>

#include "base/lock.h"

class LogFiles {
  public:
    struct Name {
        char szPath[320]; // a directory of 257 bytes, "vyx_log_", ten digits, "_w", ".log", zero
    };

    // iIndex: the first file's number, less one.
    explicit LogFiles(int32_t iIndex = 0) : m_iFileIndex(iIndex) {}
    ~LogFiles() { StopWriteFile(); }
    LogFiles(const LogFiles &) = delete;
    LogFiles &operator=(const LogFiles &) = delete;

    // The arguments of EnableTarget. Result: 0; -6 for a path that is too long, which changes nothing but nWrap.
    int StartWriteFile(const char *szPath, uint32_t nSize, bool bWrap);
    // Deliberate: the file keeps its working name. Pinned by Fuzz.log.
    void StopWriteFile();

    // Writes whole lines, each to one file; changes pLines. Result: 0 written, or there is no directory to write to; -8
    // if some are lost because no file could be opened, which is printed.
    int InputDataToFile(iovec *pLines, uint32_t nLines);

    // In a forked child, which has no part in the parent's files.
    void Forget();

  private:
    friend struct LogRows;
    // The path of the working file, or of the finished one.
    Name MakeFileName(bool bWorking) const VYX_REQUIRES(m_lock);
    bool Open() VYX_REQUIRES(m_lock);
    void Close() VYX_REQUIRES(m_lock);
    void Rotate() VYX_REQUIRES(m_lock);
    bool MakeRoom(size_t nNext, int64_t *pSize) VYX_REQUIRES(m_lock);

    vyx_inter::Lock m_lock{vyx_inter::Rank::LogFile};
    VYX_FILE_T m_hFile VYX_GUARDED_BY(m_lock) = VYX_INVALID_FILE;
    int32_t m_iFileIndex VYX_GUARDED_BY(m_lock);        // the current file's number, less one
    bool m_bWrap VYX_GUARDED_BY(m_lock) = true;         // numbers count modulo 100
    uint32_t m_nMaxFileSize VYX_GUARDED_BY(m_lock) = 0; // bytes
    char m_szDir[260] VYX_GUARDED_BY(m_lock) = {};      // ends in '/'; empty: there is none
};

#endif
