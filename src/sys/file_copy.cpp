// Copying a file. The target gets its full size first and then the source's content, hole by hole: within the
// kernel where it can, else through a buffer. Nothing is mapped, so that a source that another process cuts
// short or a full disk ends in a result and not in a signal.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>

#include "base/descriptor.h"
#include "base/platform.h"
#include "base/uncancelled.h"
#include "sys/file_inter.h"

namespace {

using vyx_inter::Descriptor;
using vyx_inter::Uncancelled;

constexpr int32_t kCopied = 1;                // what callers compare with
constexpr off_t kKernelStep = off_t{1} << 30; // bytes for one call within the kernel
constexpr off_t kBufferSize = off_t{1} << 18;

// Where bytes are copied from and to, at the same offset in both.
struct Copy {
    int iSource;
    int iTarget;
    bool bInKernel = true;                // until the kernel refuses
    bool bSkipZeros = false;              // the target reads as zeros where nothing is written
    std::unique_ptr<char[]> pBuffer = {}; // from the first time that it refused
};

bool Fail_Local(int iError) {
    errno = iError;
    return false;
}

template <class Call>
ssize_t Restarted_Local(Call call) {
    ssize_t iResult = 0;
    do
        iResult = call();
    while (iResult < 0 && errno == EINTR);
    return iResult;
}

bool WriteAll_Local(int iTarget, const char *pData, size_t nLength, off_t iOffset) {
    while (nLength > 0) {
        const ssize_t iCount = Restarted_Local([&] { return pwrite(iTarget, pData, nLength, iOffset); });
        if (iCount <= 0)
            return iCount == 0 ? Fail_Local(EIO) : false;
        pData += iCount;
        iOffset += iCount;
        nLength -= static_cast<size_t>(iCount);
    }
    return true;
}

bool IsZero_Local(const char *pData, size_t nLength) {
    return pData[0] == 0 && std::memcmp(pData, pData + 1, nLength - 1) == 0;
}

// Bytes copied; 0 at the end of the source, -1 after a failure.
ssize_t CopyThroughBuffer_Local(Copy *pCopy, off_t iOffset, off_t iLength) {
    if (pCopy->pBuffer == nullptr)
        pCopy->pBuffer.reset(new (std::nothrow) char[kBufferSize]);
    char *pBuffer = pCopy->pBuffer.get();
    if (pBuffer == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    const auto nWanted = static_cast<size_t>(std::min(iLength, kBufferSize));
    const ssize_t iCount = Restarted_Local([&] { return pread(pCopy->iSource, pBuffer, nWanted, iOffset); });
    if (iCount <= 0)
        return iCount;
    const auto nCount = static_cast<size_t>(iCount);
    if (pCopy->bSkipZeros && IsZero_Local(pBuffer, nCount))
        return iCount;
    return WriteAll_Local(pCopy->iTarget, pBuffer, nCount, iOffset) ? iCount : -1;
}

ssize_t CopySome_Local(Copy *pCopy, off_t iOffset, off_t iLength) {
    if (pCopy->bInKernel) {
        const auto nWanted = static_cast<size_t>(std::min(iLength, kKernelStep));
        const ssize_t iCount = Restarted_Local(
            [&] { return VYX_CopyInKernel_Inter(pCopy->iSource, pCopy->iTarget, iOffset, nWanted); });
        // Some file systems end early or refuse; whether that is a real failure the buffer will tell.
        if (iCount > 0)
            return iCount;
        pCopy->bInKernel = false;
    }
    return CopyThroughBuffer_Local(pCopy, iOffset, iLength);
}

bool CopyRange_Local(Copy *pCopy, off_t iOffset, off_t iEnd) {
    while (iOffset < iEnd) {
        const ssize_t iCount = CopySome_Local(pCopy, iOffset, iEnd - iOffset);
        if (iCount <= 0)
            return iCount == 0 ? Fail_Local(EIO) : false; // shorter than it was at the start
        iOffset += iCount;
    }
    return true;
}

// Copies the parts of the source that hold data, as lseek tells them, up to iSize.
bool CopyToldData_Local(Copy *pCopy, off_t iSize) {
    off_t iOffset = 0;
    while (iOffset < iSize) {
        const off_t iData = lseek(pCopy->iSource, iOffset, SEEK_DATA);
        if (iData < 0 && errno == ENXIO)
            break; // one hole up to the end
        if (iData < 0)
            return CopyRange_Local(pCopy, iOffset, iSize); // the file system cannot tell its holes
        const off_t iHole = lseek(pCopy->iSource, iData, SEEK_HOLE);
        const off_t iEnd = iHole < 0 ? iSize : std::min(iHole, iSize);
        if (!CopyRange_Local(pCopy, iData, iEnd))
            return false;
        iOffset = std::max(iEnd, iData);
    }
    return true;
}

// Copies into a target that reads as zeros.
bool CopyData_Local(Copy *pCopy, const struct stat &source) {
    const VYX_HOLES eHoles = VYX_HolesOf_Inter(&source);
    pCopy->bSkipZeros = eHoles == VYX_HOLES_HIDDEN;
    const bool bCopied = eHoles == VYX_HOLES_TOLD ? CopyToldData_Local(pCopy, source.st_size)
                                                  : CopyRange_Local(pCopy, 0, source.st_size);
    struct stat status;
    if (!bCopied || fstat(pCopy->iSource, &status) != 0)
        return false;
    return status.st_size >= source.st_size || Fail_Local(EIO); // a hole may be what was cut off
}

// Empties the target, unless it is the source: that would lose the only copy. One that is empty is left alone, as
// some file systems write a file to the disk at its close once it was truncated.
bool Truncate_Local(const struct stat &source, int iTarget, struct stat *pTarget) {
    if (fstat(iTarget, pTarget) != 0)
        return false;
    if (source.st_dev == pTarget->st_dev && source.st_ino == pTarget->st_ino)
        return Fail_Local(EINVAL);
    if (!S_ISREG(pTarget->st_mode) || pTarget->st_size == 0)
        return true;
    return Restarted_Local([&] { return ftruncate(iTarget, 0); }) == 0;
}

bool CopyInto_Local(int iSource, const struct stat &source, int iTarget) {
    struct stat target;
    if (!Truncate_Local(source, iTarget, &target))
        return false;
    // Deliberate: there is no last byte in an empty file, so that its copy fails here and leaves an empty target.
    // Pinned by FileCopy.EmptyFileFails.
    if (lseek(iTarget, source.st_size - 1, SEEK_SET) < 0 ||
        Restarted_Local([&] { return write(iTarget, "", 1); }) != 1)
        return false;
    if (!S_ISREG(source.st_mode) && !S_ISBLK(source.st_mode))
        return Fail_Local(ENODEV);
    Copy copy{iSource, iTarget};
    if (S_ISREG(target.st_mode))
        return CopyData_Local(&copy, source);
    return S_ISBLK(target.st_mode) ? CopyRange_Local(&copy, 0, source.st_size) : Fail_Local(ENODEV);
}

// A thread that is cancelled just as open returns may lose the descriptor (glibc before 2.41), so it is not cancelled
// there; but it is in the wait for the other end of a pipe.
int OpenSource_Local(const char *szPath) {
    struct stat status;
    if (stat(szPath, &status) == 0 && S_ISFIFO(status.st_mode))
        return open(szPath, O_RDONLY | O_CLOEXEC);
    const Uncancelled uncancelled;
    return open(szPath, O_RDONLY | O_CLOEXEC);
}
int OpenTarget_Local(const char *szPath, mode_t mode) {
    const Uncancelled uncancelled;
    return open(szPath, O_RDWR | O_CREAT | O_CLOEXEC, mode);
}

} // namespace

int32_t VYX_CopyFile(const char *szSource, const char *szTarget, int32_t bFailIfExists) {
    if (szSource == nullptr || szTarget == nullptr)
        return VYX_ERROR;
    if (access(szTarget, F_OK) == 0 && bFailIfExists != 0)
        return VYX_ERROR;
    struct stat status;
    const Descriptor source(OpenSource_Local(szSource));
    if (source.Get() < 0 || fstat(source.Get(), &status) != 0)
        return VYX_ERROR;
    const Descriptor target(OpenTarget_Local(szTarget, status.st_mode & 07777));
    if (target.Get() < 0)
        return VYX_ERROR;
    return CopyInto_Local(source.Get(), status, target.Get()) ? kCopied : VYX_ERROR;
}
