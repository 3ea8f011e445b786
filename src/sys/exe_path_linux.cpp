// The path of the running program, on Linux.
#include <cerrno>
#include <unistd.h>

#include "base/platform.h"

int32_t VYX_ExecutablePath_Inter(char *szBuf, uint32_t nSize) {
    const ssize_t iLength = readlink("/proc/self/exe", szBuf, nSize);
    if (iLength < 0)
        return VYX_ERROR;
    if (static_cast<size_t>(iLength) >= nSize) { // perhaps cut
        errno = ENAMETOOLONG;
        return VYX_ERROR;
    }
    szBuf[iLength] = '\0';
    return VYX_OK;
}
