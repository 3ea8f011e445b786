// What copying a file needs of Darwin, which has no call that copies a part of a file within the kernel.
#include <cerrno>

#include "base/platform.h"

ssize_t VYX_CopyInKernel_Inter(int /*iSource*/, int /*iTarget*/, off_t /*iOffset*/, size_t /*nLength*/) {
    errno = ENOTSUP;
    return -1;
}

// Data that are not on the disk yet may count as a hole there, hence no look at the number of blocks either.
VYX_HOLES VYX_HolesOf_Inter(const struct stat * /*pFile*/) {
    return VYX_HOLES_HIDDEN;
}
