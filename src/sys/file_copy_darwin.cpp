// Copying within the kernel, on Darwin: there is no such call for a part of a file.
#include <cerrno>

#include "sys/file_inter.h"

ssize_t VYX_CopyInKernel_Inter(int /*iSource*/, int /*iTarget*/, off_t /*iOffset*/, size_t /*nLength*/) {
    errno = ENOTSUP;
    return -1;
}
