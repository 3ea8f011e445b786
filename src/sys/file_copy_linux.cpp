// What copying a file needs of Linux.
#include <sys/stat.h>
#include <unistd.h>

#include "base/platform.h"

ssize_t VYX_CopyInKernel_Inter(int iSource, int iTarget, off_t iOffset, size_t nLength) {
    off_t iFrom = iOffset;
    off_t iTo = iOffset;
    return copy_file_range(iSource, &iFrom, iTarget, &iTo, nLength, 0);
}

VYX_HOLES VYX_HolesOf_Inter(const struct stat *pFile) {
    constexpr int64_t kBlockSize = 512; // the unit of st_blocks
    return pFile->st_blocks * kBlockSize < pFile->st_size ? VYX_HOLES_TOLD : VYX_HOLES_NONE;
}
