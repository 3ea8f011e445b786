#include "log/log_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vyx/sys.h>

using vyx_inter::LockGuard;

namespace {

constexpr const char *kDefaultDir = "./vyxlog/";
constexpr size_t kLongestPath = 256; // bytes
constexpr uint32_t kDefaultFileSize = 2097152;
constexpr int32_t kWrappedFiles = 100;
constexpr int32_t kLastIndex = INT32_MAX - 1; // its number is the last one
constexpr int32_t kFromEnd = 2;
// Closed in a program that a forked child executes.
constexpr int kOpenFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;

// How far a write has come.
struct Reached {
    iovec *pLine;   // the first line that is not written
    int64_t iWhole; // bytes of the lines before it
    size_t nCut;    // bytes of that line that are written all the same
};

// Writes the lines from pLine to pEnd, if need be in several steps, up to one that cannot be written.
Reached WriteAll_Local(VYX_FILE_T hFile, iovec *pLine, const iovec *pEnd) {
    Reached reached = {pLine, 0, 0};
    while (reached.pLine != pEnd) {
        const ssize_t iCount = writev(hFile, reached.pLine, static_cast<int>(pEnd - reached.pLine));
        if (iCount < 0 && errno == EINTR)
            continue;
        if (iCount <= 0)
            break;
        auto nCount = static_cast<size_t>(iCount);
        for (; reached.pLine != pEnd && nCount >= reached.pLine->iov_len; ++reached.pLine, reached.nCut = 0) {
            nCount -= reached.pLine->iov_len;
            reached.iWhole += static_cast<int64_t>(reached.nCut + reached.pLine->iov_len);
        }
        if (nCount == 0)
            continue;
        reached.pLine->iov_base = static_cast<char *>(reached.pLine->iov_base) + nCount;
        reached.pLine->iov_len -= nCount;
        reached.nCut += nCount;
    }
    return reached;
}

// Appends the lines to a file of iSize bytes. Of a line that does not fit on the disk nothing stays in the file. Result:
// the line to go on with; one that failed is passed over.
iovec *WriteRun_Local(VYX_FILE_T hFile, int64_t iSize, iovec *pLine, iovec *pEnd) {
    const Reached reached = WriteAll_Local(hFile, pLine, pEnd);
    if (reached.pLine == pEnd)
        return pEnd;
    if (reached.nCut > 0 && ftruncate(hFile, iSize + reached.iWhole) != 0)
        return reached.pLine + 1; // a device, from which nothing can be taken back
    return reached.pLine + 1;
}

// The first of the lines from pLine to pEnd that does not fit into iRoom bytes with those before it. The line at pLine
// counts as fitting in any case.
iovec *EndOfFitting_Local(iovec *pLine, const iovec *pEnd, int64_t iRoom) {
    do
        iRoom -= static_cast<int64_t>(pLine->iov_len);
    while (++pLine != pEnd && static_cast<int64_t>(pLine->iov_len) <= iRoom);
    return pLine;
}

} // namespace

/* ---- Names */

LogFiles::Name LogFiles::MakeFileName(bool bWorking) const {
    Name name;
    (void)std::snprintf(name.szPath, sizeof name.szPath, "%svyx_log_%d%s.log", m_szDir, m_iFileIndex + 1,
                        bWorking ? "_w" : "");
    return name;
}

/* ---- On and off */

int LogFiles::StartWriteFile(const char *szPath, uint32_t nSize, bool bWrap) {
    const char *szGiven = szPath == nullptr ? kDefaultDir : szPath;
    const size_t nLength = std::strlen(szGiven);
    char szDir[sizeof m_szDir] = {};
    if (nLength <= kLongestPath) {
        std::replace_copy(szGiven, szGiven + nLength, szDir, '\\', '/');
        if (nLength == 0 || szDir[nLength - 1] != '/')
            szDir[nLength] = '/';
        (void)VYX_MakeDir(szDir); // it may exist; if it cannot be made, opening the file says so
    }
    const LockGuard guard(m_lock);
    m_bWrap = bWrap;
    if (nLength > kLongestPath)
        return -6;
    std::memcpy(m_szDir, szDir, sizeof m_szDir);
    m_nMaxFileSize = nSize == 0 ? kDefaultFileSize : nSize;
    return 0;
}

void LogFiles::StopWriteFile() {
    const LockGuard guard(m_lock);
    Close();
    m_szDir[0] = '\0';
    m_nMaxFileSize = 0;
    m_bWrap = true;
}

void LogFiles::Forget() {
    m_lock.Renew();
    StopWriteFile();
}

/* ---- Writing */

void LogFiles::Close() {
    // Forgotten before it is closed: a child forked in between would close a descriptor that is somebody else's by then.
    const VYX_FILE_T hFile = std::exchange(m_hFile, VYX_INVALID_FILE);
    (void)VYX_CloseFile(hFile); // also where none is open
}

void LogFiles::Rotate() {
    Close();
    (void)std::rename(MakeFileName(true).szPath,
                      MakeFileName(false).szPath); // somebody may have taken it away
    if (m_bWrap)
        m_iFileIndex = (m_iFileIndex + 1) % kWrappedFiles;
    else
        m_iFileIndex = m_iFileIndex < kLastIndex ? m_iFileIndex + 1 : 0;
}

bool LogFiles::Open() {
    const Name working = MakeFileName(true);
    (void)VYX_DeleteFile(
        MakeFileName(false)
            .szPath); // left by an earlier run, or before the numbers wrapped; there may be none
    m_hFile = open(working.szPath, kOpenFlags, S_IWUSR);
    if (m_hFile != VYX_INVALID_FILE)
        return true;
    (void)VYX_OutputDebug("LogService OpenFile[%s] failed", working.szPath);
    return false;
}

// Has a file open to which the next line can be appended. Result: false if none can be opened.
//   *pSize  the file's bytes
bool LogFiles::MakeRoom(size_t nNext, int64_t *pSize) {
    if (m_hFile != VYX_INVALID_FILE) {
        (void)VYX_FileSeek(m_hFile, 0, kFromEnd, pSize);
        if (*pSize + static_cast<int64_t>(nNext) <= m_nMaxFileSize)
            return true;
        Rotate();
    }
    *pSize = 0;
    return Open();
}

int LogFiles::InputDataToFile(iovec *pLines, uint32_t nLines) {
    const LockGuard guard(m_lock);
    if (m_szDir[0] == '\0')
        return 0;
    int iResult = 0;
    iovec *const pEnd = pLines + nLines;
    for (iovec *pLine = pLines; pLine != pEnd;) {
        int64_t iSize = 0;
        if (!MakeRoom(pLine->iov_len, &iSize)) {
            iResult = -8;
            ++pLine; // lost; the next one tries again
            continue;
        }
        pLine =
            WriteRun_Local(m_hFile, iSize, pLine, EndOfFitting_Local(pLine, pEnd, m_nMaxFileSize - iSize));
    }
    return iResult;
}
