// What files and directories share: the file information record, and what each platform does in its own way.
#ifndef VYX_SYS_FILE_INTER_H
#define VYX_SYS_FILE_INTER_H

#include <sys/stat.h>
#include <sys/types.h>
#include <vyx/sys.h>

VYX_BEGIN_DECLS

// Fills the whole record. iTimeUnits is the number of units a second has in its three times.
void VYX_FileInfoFromStat_Inter(const struct stat *pStat, int64_t iTimeUnits, VYX_FINFO_T *pInfo);

// Writes the path that the running program was started by, zero-terminated, into szBuf of nSize bytes. It may
// hold links. VYX_ERROR if it cannot be told or does not fit.
int32_t VYX_ExecutablePath_Inter(char *szBuf, uint32_t nSize);

// What a file's holes are known by.
enum VYX_HOLES {
    VYX_HOLES_NONE,  // there are none
    VYX_HOLES_TOLD,  // lseek tells where they are (SEEK_DATA, SEEK_HOLE)
    VYX_HOLES_HIDDEN // there may be some; what lseek says may be wrong, so that only the content tells
};
VYX_HOLES VYX_HolesOf_Inter(const struct stat *pFile);

// Copies up to nLength bytes within the kernel, from iOffset of one file to the same place of the other, and
// returns how many; 0 at the end of the source; -1 if that failed or cannot be done for these files.
ssize_t VYX_CopyInKernel_Inter(int iSource, int iTarget, off_t iOffset, size_t nLength);

VYX_END_DECLS

#endif
