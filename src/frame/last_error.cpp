// The library's own error slot, which is always empty, and the calling thread's errno.
#include <cerrno>

#include "frame/frame_inter.h"

// Deliberate: nothing in the library records a code. Pinned by LastError.OwnSlotIsAlwaysEmpty.
uint32_t VYX_GetLastError_Inter(void) {
    return 0;
}
int32_t VYX_SetLastError_Inter(uint32_t /*nCode*/) {
    return 0;
}

uint32_t VYX_GetLastError(void) {
    return VYX_GetLastError_Inter();
}
int32_t VYX_SetLastError(uint32_t nCode) {
    return VYX_SetLastError_Inter(nCode);
}

uint32_t VYX_GetSystemLastError(void) {
    return static_cast<uint32_t>(errno);
}
void VYX_SetSystemLastError(uint32_t nCode) {
    errno = static_cast<int>(nCode);
}
