#include "thread/service_thread.h"

#include <csignal>
#include <initializer_list>

VYX_THREAD_T VYX_StartServiceThread_Inter(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize) {
    sigset_t setBlocked;
    sigset_t setOld;
    (void)sigfillset(&setBlocked);
    for (const int iFault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        (void)sigdelset(&setBlocked, iFault);
    (void)pthread_sigmask(SIG_SETMASK, &setBlocked, &setOld); // a new thread inherits its creator's mask
    const VYX_THREAD_T hThread = VYX_Thread_Create(fnStart, pParam, nStackSize, 0, 0, 0);
    (void)pthread_sigmask(SIG_SETMASK, &setOld, nullptr);
    return hThread;
}
