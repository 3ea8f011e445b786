// The path of the running program, on Darwin.
#include <mach-o/dyld.h>

#include "base/platform.h"

int32_t VYX_ExecutablePath_Inter(char *szBuf, uint32_t nSize) {
    return _NSGetExecutablePath(szBuf, &nSize) == 0 ? VYX_OK : VYX_ERROR;
}
