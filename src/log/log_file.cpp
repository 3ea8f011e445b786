// The log service's file target: names, rotation, and writing several lines at a time.
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vyx/sys.h>

#include "log/log_hold.h"
#include "logmodule.h"

using vyx_inter::ClassHold;

namespace {

constexpr uint32_t kDefaultFileBytes = 2097152;
constexpr size_t kLongestPath = 256;
constexpr int32_t kFilesWhenWrapping = 100;
constexpr uint32_t kBatchBytes = 65536;
constexpr char kDefaultDirectory[] = "./vyxlog/";
constexpr char kBaseName[] = "vyx_log_";
constexpr uint32_t kOpenFlags = VYX_OPEN_WRITE | VYX_OPEN_CREATE | VYX_OPEN_TRUNCATE;
constexpr uint32_t kPermission = VYX_ATTR_WRITE;

// A longest directory, a name and any number.
constexpr size_t kNameBytes = 320;

} // namespace

char *LogService::MakeFileName(bool working) {
    static char filename[kNameBytes];
    std::memset(filename, 0, sizeof filename);
    const int32_t iNumber = static_cast<int32_t>(static_cast<uint32_t>(m_iFileIndex) + 1);
    (void)std::snprintf(filename, sizeof filename, "%s%s%d%s%s", m_szDir, kBaseName, iNumber,
                        working ? "_w" : "", ".log");
    return filename;
}

int LogService::StartWriteFile(const char *path, unsigned int size) {
    const char *szFrom = path != nullptr ? path : kDefaultDirectory;
    const size_t nLength = std::strlen(szFrom);
    if (nLength > kLongestPath)
        return -6;
    std::memset(m_szDir, 0, sizeof m_szDir);
    std::memcpy(m_szDir, szFrom, nLength);
    for (char *p = m_szDir; *p != '\0'; ++p)
        if (*p == '\\')
            *p = '/';
    if (nLength == 0 || m_szDir[nLength - 1] != '/')
        m_szDir[nLength] = '/';
    m_nMaxFileSize = size != 0 ? size : kDefaultFileBytes;
    (void)VYX_MakeDir(m_szDir); // may exist
    m_bFile = true;
    return 0;
}

int LogService::StopWriteFile() {
    if (!m_bFile)
        return 0;
    m_bFile = false;
    if (m_hFile != VYX_INVALID_FILE)
        (void)VYX_CloseFile(m_hFile);
    m_hFile = VYX_INVALID_FILE;
    std::memset(m_szDir, 0, sizeof m_szDir);
    m_nMaxFileSize = 0;
    return 0;
}

int LogService::InputDataToFile(const char *data, unsigned int len) {
    const ClassHold file(m_fileLock);
    if (!m_bFile)
        return 0;
    m_nFileSize = 0;
    if (m_hFile != VYX_INVALID_FILE)
        (void)VYX_FileSeek(m_hFile, 0, SEEK_END, &m_nFileSize);
    const int iResult = PutLine(data, len);
    FlushBatch();
    return iResult;
}

// The taken lines from nFirst up to nEnd, as InputDataToFile writes each.
void LogService::WriteToFile(size_t nFirst, size_t nEnd) {
    const ClassHold file(m_fileLock);
    if (!m_bFile)
        return;
    m_nFileSize = 0;
    if (m_hFile != VYX_INVALID_FILE)
        (void)VYX_FileSeek(m_hFile, 0, SEEK_END, &m_nFileSize);
    for (size_t n = nFirst; n < nEnd; ++n) {
        const _LOG &line = m_taken[n];
        if ((line.nTargets & (1U << VYX_LOG_TARGET_FILE)) != 0)
            (void)PutLine(line.pData, line.nLen - 1); // without its zero
    }
    FlushBatch();
}

// A line is never split: the file changes before one that would cross the limit.
int LogService::PutLine(const char *data, unsigned int len) {
    if (m_hFile != VYX_INVALID_FILE && static_cast<int64_t>(m_nMaxFileSize) < m_nFileSize + len)
        Rotate();
    if (m_hFile == VYX_INVALID_FILE && !OpenWorkingFile())
        return -8;
    if (len > kBatchBytes - m_nBatch)
        FlushBatch();
    m_nFileSize += len;
    if (m_pBatch == nullptr || len > kBatchBytes) {
        (void)VYX_WriteFile(m_hFile, data, len, nullptr);
        return 0;
    }
    std::memcpy(m_pBatch + m_nBatch, data, len);
    m_nBatch += len;
    return 0;
}

bool LogService::OpenWorkingFile() {
    (void)VYX_DeleteFile(MakeFileName(false)); // an old one of the same number
    const char *szName = MakeFileName(true);
    m_hFile = VYX_OpenFile(szName, kOpenFlags, kPermission);
    m_nFileSize = 0;
    if (m_hFile == VYX_INVALID_FILE)
        VYX_OutputDebug("LogService OpenFile[%s] failed", szName);
    return m_hFile != VYX_INVALID_FILE;
}

void LogService::Rotate() {
    FlushBatch();
    (void)VYX_CloseFile(m_hFile);
    m_hFile = VYX_INVALID_FILE;
    char szFinished[kNameBytes];
    std::memcpy(szFinished, MakeFileName(false), sizeof szFinished);
    (void)std::rename(MakeFileName(true), szFinished);
    const uint32_t nNext = static_cast<uint32_t>(m_iFileIndex) + 1;
    m_iFileIndex = static_cast<int32_t>(m_bWrap != 0 ? nNext % kFilesWhenWrapping : nNext);
}

void LogService::FlushBatch() {
    uint32_t nDone = 0;
    while (nDone < m_nBatch) {
        int32_t iCount = 0;
        if (VYX_WriteFile(m_hFile, m_pBatch + nDone, m_nBatch - nDone, &iCount) != 0 || iCount <= 0)
            break;
        nDone += static_cast<uint32_t>(iCount);
    }
    if (nDone < m_nBatch)
        CutTornLine(nDone);
    m_nBatch = 0;
}

// A full disk took only a part: the file ends with the last whole line of it.
void LogService::CutTornLine(uint32_t nWritten) {
    const int64_t nStart = m_nFileSize - m_nBatch;
    while (nWritten > 0 && m_pBatch[nWritten - 1] != '\n')
        --nWritten;
    m_nFileSize = nStart + nWritten;
    if (ftruncate(m_hFile, static_cast<off_t>(m_nFileSize)) == 0)
        (void)VYX_FileSeek(m_hFile, m_nFileSize, SEEK_SET, nullptr);
}
