#include "thread/service_thread.h"

#include <algorithm>

#include "base/platform.h"
#include "base/signals.h"

VYX_THREAD_T VYX_StartServiceThread_Inter(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize) {
    const uint64_t nWhole = std::min<uint64_t>(nStackSize + VYX_StackTaken_Inter(), UINT32_MAX);
    const vyx_inter::SignalsBlocked blocked; // also in the new thread
    return VYX_Thread_Create(fnStart, pParam, static_cast<uint32_t>(nWhole), 0, 0, 0);
}
