// Copying within the kernel, on Linux.
#include <unistd.h>

#include "sys/file_inter.h"

ssize_t VYX_CopyInKernel_Inter(int iSource, int iTarget, off_t iOffset, size_t nLength) {
    off_t iFrom = iOffset;
    off_t iTo = iOffset;
    return copy_file_range(iSource, &iFrom, iTarget, &iTo, nLength, 0);
}
