// Directories: listing them with the information of each entry, making and removing them. A handle is used by
// one thread at a time; handles share nothing.
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <new>
#include <unistd.h>

#include "base/errno_keeper.h"
#include "base/uncancelled.h"
#include "base/units.h"
#include "sys/file_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(_FILE_FIND_INFO, finfo) == (alignof(VYX_FINFO_T) == 8 ? 264 : 260) &&
              sizeof(_FILE_FIND_INFO) == offsetof(_FILE_FIND_INFO, finfo) + sizeof(VYX_FINFO_T));

struct _DIR_INFO_T {
    DIR *pDir;
};

namespace {

constexpr mode_t kNewDirMode = 0766;

// Looked up in the open directory rather than by its path: the answer is the same, sooner, and stays right when
// the directory is renamed or the process goes to another one meanwhile.
void FillInformation_Local(VYX_DIR_T hDir, const char *szName, VYX_FINFO_T *pInfo) {
    struct stat status;
    if (fstatat(dirfd(hDir->pDir), szName, &status, 0) == 0) {
        // Deliberate: microseconds, where VYX_FileStat gives seconds. Pinned by Dir.InformationOfEachKind.
        VYX_FileInfoFromStat_Inter(&status, vyx_inter::kMicrosPerSecond, pInfo);
        return;
    }
    const vyx_inter::ErrnoKeeper keeper;
    (void)std::printf("Get file stat failed! err:%d\n", keeper.Get());
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
    std::unique_ptr<_DIR_INFO_T> pInfo(new (std::nothrow) _DIR_INFO_T{});
    if (pInfo == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    pInfo->pDir = opendir(szPath);
    return pInfo->pDir == nullptr ? nullptr : pInfo.release();
}

int32_t VYX_CloseDir(VYX_DIR_T hDir) {
    if (hDir == nullptr)
        return VYX_ERROR;
    const vyx_inter::Uncancelled uncancelled;
    (void)closedir(hDir->pDir); // the handle goes in any case
    delete hDir;
    return VYX_OK;
}

int32_t VYX_FindFileInDir(VYX_DIR_T hDir, _FILE_FIND_INFO *pInfo) {
    if (hDir == nullptr || pInfo == nullptr)
        return VYX_ERROR;
    const struct dirent *pEntry = readdir(hDir->pDir);
    if (pEntry == nullptr)
        return VYX_ERROR; // at the end the platform leaves errno as it was
    *pInfo = {};
    std::memcpy(pInfo->name, pEntry->d_name, strnlen(pEntry->d_name, sizeof pInfo->name - 1));
    FillInformation_Local(hDir, pEntry->d_name, &pInfo->finfo);
    return VYX_OK;
}
