// The linker routes the library's calls here (--wrap).
#include "pool/refusals.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>

namespace refusals {

std::atomic<int> g_nSemaphoresLeft{-1};
std::atomic<int> g_nThreadsLeft{-1};
std::atomic<int> g_nNames{0};

// Result: true if one more is granted, which is counted.
static bool Grant(std::atomic<int> &nLeft) {
    int nOld = nLeft.load();
    while (nOld > 0 && !nLeft.compare_exchange_weak(nOld, nOld - 1)) {
    }
    return nOld != 0;
}

} // namespace refusals

extern "C" {

sem_t *__real_sem_open(const char *szName, int iFlags, mode_t nMode, unsigned int nInitial);
int __real_sem_unlink(const char *szName);
int __real_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fnStart)(void *),
                          void *pParam);

sem_t *__wrap_sem_open(const char *szName, int iFlags, mode_t nMode, unsigned int nInitial) {
    if (!refusals::Grant(refusals::g_nSemaphoresLeft)) {
        errno = EEXIST;
        return SEM_FAILED;
    }
    sem_t *pSem = __real_sem_open(szName, iFlags, nMode, nInitial);
    if (pSem != SEM_FAILED)
        ++refusals::g_nNames;
    else if (refusals::g_nSemaphoresLeft != -1)
        ++refusals::g_nSemaphoresLeft; // another process has this name: nothing was granted
    return pSem;
}

int __wrap_sem_unlink(const char *szName) {
    const int iResult = __real_sem_unlink(szName);
    if (iResult == 0)
        --refusals::g_nNames;
    return iResult;
}

int __wrap_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fnStart)(void *),
                          void *pParam) {
    if (!refusals::Grant(refusals::g_nThreadsLeft))
        return EAGAIN;
    return __real_pthread_create(pThread, pAttr, fnStart, pParam);
}
}
