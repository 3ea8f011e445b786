// The path of the running program.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vyx/sys.h>

#include "base/platform.h"

int32_t VYX_GetCurExePath(char *szBuf, uint32_t nSize) {
    constexpr size_t kLongest = 1024; // with the terminating zero
    if (szBuf == nullptr) {
        errno = EINVAL;
        return VYX_ERROR;
    }
    char szRaw[kLongest];
    if (VYX_ExecutablePath_Inter(szRaw, sizeof szRaw) != VYX_OK)
        return VYX_ERROR;
    const std::unique_ptr<char, void (*)(void *)> szResolved(realpath(szRaw, nullptr), std::free);
    if (szResolved == nullptr)
        return VYX_ERROR;
    const size_t nNeeded = std::strlen(szResolved.get()) + 1;
    if (nNeeded > kLongest) {
        errno = ENAMETOOLONG;
        return VYX_ERROR;
    }
    if (nSize < nNeeded) {
        errno = ENOMEM;
        return VYX_ERROR;
    }
    std::memcpy(szBuf, szResolved.get(), nNeeded);
    return VYX_OK;
}
