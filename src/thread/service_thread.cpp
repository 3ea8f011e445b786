#include "thread/service_thread.h"

#include <algorithm>
#include <csignal>

#include "base/platform.h"

VYX_THREAD_T VYX_StartServiceThread_Inter(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize) {
    const uint64_t nWhole = std::min<uint64_t>(nStackSize + VYX_StackTaken_Inter(), UINT32_MAX);
    sigset_t setAll;
    sigset_t setOld;
    (void)sigfillset(&setAll);
    (void)pthread_sigmask(SIG_SETMASK, &setAll, &setOld); // a new thread inherits its creator's mask
    const VYX_THREAD_T hThread = VYX_Thread_Create(fnStart, pParam, static_cast<uint32_t>(nWhole), 0, 0, 0);
    (void)pthread_sigmask(SIG_SETMASK, &setOld, nullptr);
    return hThread;
}
