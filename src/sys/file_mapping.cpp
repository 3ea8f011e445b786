// Translation of open flags, permissions and file types between the library's bits and the platform's.
#include <fcntl.h>

#include "sys/file_inter.h"

namespace {

// A bit of the library and the bit of the platform that it stands for.
struct BitPair {
    uint32_t nPerm;
    mode_t nMode;
};

// What both directions have in common; S_ISGID and the attributes differ.
constexpr BitPair kPermissions[] = {
    {VYX_USETID, S_ISUID},   {VYX_UREAD, S_IRUSR},    {VYX_UWRITE, S_IWUSR}, {VYX_UEXECUTE, S_IXUSR},
    {VYX_GREAD, S_IRGRP},    {VYX_GWRITE, S_IWGRP},   {VYX_WREAD, S_IROTH},  {VYX_WWRITE, S_IWOTH},
    {VYX_GEXECUTE, S_IXGRP}, {VYX_WEXECUTE, S_IXOTH},
};

uint32_t TypeByMode_Local(mode_t nMode) {
    switch (nMode & S_IFMT) {
    case S_IFREG:
        return VYX_TYPE_REG;
    case S_IFDIR:
        return VYX_TYPE_DIR;
    case S_IFCHR:
        return VYX_TYPE_CHR;
    case S_IFBLK:
        return VYX_TYPE_BLK;
    case S_IFIFO:
        return VYX_TYPE_PIPE;
    case S_IFLNK:
        return VYX_TYPE_LINK;
    case S_IFSOCK:
        return VYX_TYPE_SOCK;
    default:
        return VYX_TYPE_UNKNOWN;
    }
}

// Some file systems store any 64-bit time; one too far away for the unit wraps around.
int64_t TimeInUnits_Local(time_t iSeconds, int64_t iUnits) {
    return static_cast<int64_t>(static_cast<uint64_t>(iSeconds) * static_cast<uint64_t>(iUnits));
}

} // namespace

int32_t VYX_GetOFlagByFlag(uint32_t nFlags) {
    const bool bRead = (nFlags & VYX_OPEN_READ) != 0;
    const bool bWrite = (nFlags & VYX_OPEN_WRITE) != 0;
    if (!bRead && !bWrite)
        return VYX_ERROR;
    int32_t iResult = bRead && bWrite ? O_RDWR : bRead ? O_RDONLY : O_WRONLY;
    if ((nFlags & VYX_OPEN_CREATE) != 0)
        iResult |= (nFlags & VYX_OPEN_EXCL) != 0 ? O_CREAT | O_EXCL : O_CREAT;
    if ((nFlags & VYX_OPEN_APPEND) != 0)
        iResult |= O_APPEND;
    if ((nFlags & VYX_OPEN_TRUNCATE) != 0)
        iResult |= O_TRUNC;
    return iResult;
}

uint16_t VYX_GetModeByPerm(uint32_t nPerm) {
    if ((nPerm & VYX_ATTR_READONLY) != 0)
        return S_IRUSR;
    mode_t nMode = 0;
    if ((nPerm & VYX_ATTR_WRITE) != 0)
        nMode |= S_IWUSR;
    // Deliberate: 0x4000 is the owner's execute right here, never the set-group-id bit that VYX_GetPermByMode
    // reports with it, so that no file becomes set-group-id. Pinned by FileMapping.ModeByPerm.
    if ((nPerm & VYX_ATTR_EXECUTE) != 0)
        nMode |= S_IXUSR;
    for (const BitPair &pair : kPermissions)
        if ((nPerm & pair.nPerm) != 0)
            nMode |= pair.nMode;
    return static_cast<uint16_t>(nMode);
}

uint32_t VYX_GetPermByMode(uint32_t nMode) {
    uint32_t nPerm = (nMode & S_ISGID) != 0 ? VYX_GSETID : 0;
    for (const BitPair &pair : kPermissions)
        if ((nMode & pair.nMode) != 0)
            nPerm |= pair.nPerm;
    return nPerm;
}

void VYX_FileInfoFromStat_Inter(const struct stat *pStat, int64_t iTimeUnits, VYX_FINFO_T *pInfo) {
    pInfo->type = TypeByMode_Local(pStat->st_mode);
    pInfo->uid = pStat->st_uid;
    pInfo->gid = pStat->st_gid;
    pInfo->perm = VYX_GetPermByMode(pStat->st_mode);
    pInfo->rdev = static_cast<uint32_t>(pStat->st_rdev);
    pInfo->nlink = static_cast<uint32_t>(pStat->st_nlink);
    pInfo->inode = pStat->st_ino;
    pInfo->size = pStat->st_size;
    pInfo->atime = TimeInUnits_Local(pStat->st_atime, iTimeUnits);
    pInfo->ctime = TimeInUnits_Local(pStat->st_ctime, iTimeUnits);
    pInfo->mtime = TimeInUnits_Local(pStat->st_mtime, iTimeUnits);
}
