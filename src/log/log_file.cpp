// The file target of the log service: names, rotation, writing. Everything here is done under m_fileLock.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "logmodule.h"

using vyx_inter::LockGuard;

namespace {

constexpr const char *kDefaultDir = "./vyxlog/";
constexpr size_t kLongestPath = 256; // bytes
constexpr uint32_t kDefaultFileSize = 2097152;
constexpr int32_t kWrappedFiles = 100;
constexpr int32_t kLastIndex = INT32_MAX - 1; // its number is the last one
constexpr size_t kNameSize = 320; // a directory of 257 bytes, "vyx_log_", ten digits, "_w", ".log", zero
// A program that a fork's child executes has no business with the file.
constexpr int kOpenFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
constexpr int32_t kFromEnd = 2;

uint32_t Begin_Local(const VYX_LOG_TEXT_S &text, uint32_t nLine) {
    return nLine == 0 ? 0 : text.pEnds[nLine - 1];
}

// Writes all of it, if need be in several steps. Result: the bytes written.
uint32_t WriteAll_Local(VYX_FILE_T hFile, const char *pData, uint32_t nSize) {
    uint32_t nDone = 0;
    while (nDone < nSize) {
        int32_t iCount = 0;
        if (VYX_WriteFile(hFile, pData + nDone, nSize - nDone, &iCount) != VYX_OK && errno == EINTR)
            continue;
        if (iCount <= 0)
            break;
        nDone += static_cast<uint32_t>(iCount);
    }
    return nDone;
}

// Writes the lines nFirst to nLast - 1 to the end of a file of iSize bytes. Of a line that does not fit on the disk
// nothing stays in the file. Result: the line to go on with; a line that failed is passed over.
uint32_t WriteRun_Local(VYX_FILE_T hFile, int64_t iSize, const VYX_LOG_TEXT_S &text, uint32_t nFirst,
                        uint32_t nLast) {
    const uint32_t nBegin = Begin_Local(text, nFirst);
    const uint32_t nEnd = Begin_Local(text, nLast);
    const uint32_t nReached = nBegin + WriteAll_Local(hFile, text.pData + nBegin, nEnd - nBegin);
    if (nReached == nEnd)
        return nLast;
    uint32_t nLine = nFirst;
    while (text.pEnds[nLine] <= nReached)
        ++nLine;
    const uint32_t nWhole = Begin_Local(text, nLine);
    if (nReached > nWhole && ftruncate(hFile, iSize + (nWhole - nBegin)) != 0)
        return nLine + 1; // a device: what it took, it has
    return nLine + 1;
}

// How many lines from nFirst on may be written to a file of iSize bytes in one go: at least one.
uint32_t Fitting_Local(const VYX_LOG_TEXT_S &text, uint32_t nFirst, int64_t iSize, int64_t iMost) {
    const int64_t iBegin = Begin_Local(text, nFirst);
    uint32_t nLast = nFirst + 1;
    while (nLast < text.nLines && iSize + (text.pEnds[nLast] - iBegin) <= iMost)
        ++nLast;
    return nLast;
}

} // namespace

char *LogService::MakeFileName(bool working) {
    static char filename[kNameSize];
    std::memset(filename, 0, sizeof filename);
    (void)std::snprintf(filename, sizeof filename, "%svyx_log_%d%s.log", m_szDir, m_iFileIndex + 1,
                        working ? "_w" : "");
    return filename;
}

int LogService::StartWriteFile(const char *path, unsigned int size) {
    const char *szDir = path == nullptr ? kDefaultDir : path;
    const size_t nLength = std::strlen(szDir);
    if (nLength > kLongestPath)
        return -6;
    std::memset(m_szDir, 0, sizeof m_szDir);
    for (size_t n = 0; n < nLength; ++n)
        m_szDir[n] = szDir[n] == '\\' ? '/' : szDir[n];
    if (nLength == 0 || m_szDir[nLength - 1] != '/')
        m_szDir[nLength] = '/';
    m_nMaxFileSize = size == 0 ? kDefaultFileSize : size;
    (void)VYX_MakeDir(m_szDir); // it may exist; if it cannot be made, opening the file says so
    m_bFile = true;
    return 0;
}

int LogService::StopWriteFile() {
    if (!m_bFile)
        return 0;
    m_bFile = false;
    // Deliberate: the file keeps its working name. Pinned by LogFile.StopKeepsTheWorkingName.
    CloseFile();
    std::memset(m_szDir, 0, sizeof m_szDir);
    m_nMaxFileSize = 0;
    return 0;
}

void LogService::CloseFile() {
    const VYX_FILE_T hFile = m_hFile;
    m_hFile = VYX_INVALID_FILE; // first: a child forked in between must not close somebody else's descriptor
    (void)VYX_CloseFile(hFile); // also where none is open
}

void LogService::Rotate() {
    CloseFile();
    char szWorking[kNameSize];
    std::memcpy(szWorking, MakeFileName(true), sizeof szWorking);
    (void)std::rename(szWorking, MakeFileName(false)); // somebody may have taken it away
    if (m_bWrap != 0)
        m_iFileIndex = (m_iFileIndex + 1) % kWrappedFiles;
    else
        m_iFileIndex = m_iFileIndex < kLastIndex ? m_iFileIndex + 1 : 0;
}

bool LogService::OpenFile() {
    (void)VYX_DeleteFile(MakeFileName(false)); // of an earlier turn or run; there may be none
    m_hFile = open(MakeFileName(true), kOpenFlags, S_IWUSR);
    if (m_hFile != VYX_INVALID_FILE)
        return true;
    (void)VYX_OutputDebug("LogService OpenFile[%s] failed", MakeFileName(true));
    return false;
}

int LogService::WriteLines(const VYX_LOG_TEXT_S &text) {
    int iResult = 0;
    uint32_t nLine = 0;
    while (nLine < text.nLines) {
        int64_t iSize = 0;
        if (m_hFile != VYX_INVALID_FILE) {
            (void)VYX_FileSeek(m_hFile, 0, kFromEnd, &iSize);
            if (m_nMaxFileSize < iSize + (text.pEnds[nLine] - Begin_Local(text, nLine))) {
                Rotate();
                iSize = 0;
            }
        }
        if (m_hFile == VYX_INVALID_FILE && !OpenFile()) {
            iResult = -8;
            ++nLine; // lost; the next one tries again
            continue;
        }
        nLine =
            WriteRun_Local(m_hFile, iSize, text, nLine, Fitting_Local(text, nLine, iSize, m_nMaxFileSize));
    }
    return iResult;
}

int LogService::InputDataToFile(const char *data, unsigned int len) {
    return InputLinesToFile({data, &len, 1});
}

int LogService::InputLinesToFile(const VYX_LOG_TEXT_S &text) {
    const LockGuard guard(m_fileLock);
    return m_bFile ? WriteLines(text) : 0;
}
