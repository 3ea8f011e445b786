// Directories: listing them with the information of each entry, making and removing them. A handle is used by
// one thread at a time; handles share nothing.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unistd.h>

#include "sys/dir_inter.h"
#include "sys/file_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(_FILE_FIND_INFO, finfo) == (alignof(VYX_FINFO_T) == 8 ? 264 : 260) &&
              sizeof(_FILE_FIND_INFO) == offsetof(_FILE_FIND_INFO, finfo) + sizeof(VYX_FINFO_T));

static_assert(sizeof(_FILE_FIND_INFO::name) == 260 && offsetof(_FILE_FIND_INFO, finfo) >= 260,
              "callers' layout");

namespace {

constexpr int64_t kMicroseconds = 1000000;
constexpr mode_t kNewDirMode = 0766;

// Keeps the platform's entry, whose storage is as long as its name needs, in the handle.
const char *KeepEntry_Local(VYX_DIR_T hDir, const struct dirent *pEntry) {
    constexpr size_t kRoom = sizeof hDir->struEntry.d_name;
    const size_t nHead = offsetof(struct dirent, d_name);
    const size_t nName = strnlen(pEntry->d_name, kRoom - 1);
    std::memcpy(&hDir->struEntry, pEntry, nHead);
    std::memcpy(hDir->struEntry.d_name, pEntry->d_name, nName);
    hDir->struEntry.d_name[nName] = '\0';
    return hDir->struEntry.d_name;
}

// The next entry's name; null at the end, with errno as it was, or after a failure.
const char *NextName_Local(VYX_DIR_T hDir) {
    const int iBefore = errno;
    errno = 0;
    const struct dirent *pEntry = readdir(hDir->pDir);
    if (errno == 0)
        errno = iBefore;
    return pEntry == nullptr ? nullptr : KeepEntry_Local(hDir, pEntry);
}

// Looked up in the open directory rather than by its path: the answer is the same, sooner, and stays right when
// the directory is renamed or the process goes to another one meanwhile.
void FillInformation_Local(VYX_DIR_T hDir, const char *szName, VYX_FINFO_T *pInfo) {
    struct stat status;
    if (fstatat(dirfd(hDir->pDir), szName, &status, 0) == 0) {
        // Deliberate: microseconds, where VYX_FileStat gives seconds. Pinned by Dir.InformationOfEachKind.
        VYX_FileInfoFromStat_Inter(&status, kMicroseconds, pInfo);
        return;
    }
    const int iError = errno;
    (void)std::printf("Get file stat failed! err:%d\n", iError);
    errno = iError;
}

// A copy of the path that ends in '/', to be freed with free; null if memory is short.
char *PathWithSlash_Local(const char *szPath) {
    const size_t nLength = std::strlen(szPath);
    auto *szCopy = static_cast<char *>(std::calloc(nLength + 3, 1));
    if (szCopy == nullptr)
        return nullptr;
    std::memcpy(szCopy, szPath, nLength + 1);
    if (nLength > 0 && szCopy[nLength - 1] != '/')
        szCopy[nLength] = '/';
    return szCopy;
}

} // namespace

int32_t VYX_MakeDir(const char *szPath) {
    if (szPath == nullptr || mkdir(szPath, kNewDirMode) != 0)
        return VYX_ERROR;
    // Deliberate: the file-creation mask is overruled, so that other users may write. Pinned by
    // Dir.MadeWithoutRegardToTheMask.
    return chmod(szPath, kNewDirMode);
}

int32_t VYX_RemoveDir(const char *szPath) {
    return szPath == nullptr ? VYX_ERROR : std::remove(szPath);
}

VYX_DIR_T VYX_OpenDir(const char *szPath) {
    if (szPath == nullptr)
        return nullptr;
    std::unique_ptr<DIR, int (*)(DIR *)> pDir(opendir(szPath), closedir);
    if (pDir == nullptr)
        return nullptr;
    std::unique_ptr<_DIR_INFO_T> pInfo(new (std::nothrow) _DIR_INFO_T{});
    char *szOwnPath = pInfo == nullptr ? nullptr : PathWithSlash_Local(szPath);
    if (szOwnPath == nullptr) {
        pDir.reset();
        errno = ENOMEM;
        return nullptr;
    }
    pInfo->pDir = pDir.release();
    pInfo->szPath = szOwnPath;
    return pInfo.release();
}

int32_t VYX_CloseDir(VYX_DIR_T hDir) {
    if (hDir == nullptr)
        return VYX_ERROR;
    (void)closedir(hDir->pDir); // the handle goes in any case
    std::free(hDir->szPath);
    delete hDir;
    return VYX_OK;
}

int32_t VYX_FindFileInDir(VYX_DIR_T hDir, _FILE_FIND_INFO *pInfo) {
    if (hDir == nullptr || pInfo == nullptr)
        return VYX_ERROR;
    const char *szName = NextName_Local(hDir);
    if (szName == nullptr)
        return VYX_ERROR;
    *pInfo = {};
    std::memcpy(pInfo->name, szName, strnlen(szName, sizeof pInfo->name - 1));
    FillInformation_Local(hDir, szName, &pInfo->finfo);
    return VYX_OK;
}
