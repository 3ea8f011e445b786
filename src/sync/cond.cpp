// Condition variables: POSIX conditions in the caller's storage. The bounded wait is in timed_wait.cpp.
#include <vyx/sync.h>

#include "sync/timed_wait.h"

int32_t VYX_CondCreate(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_init(pCond, nullptr);
}

int32_t VYX_CondDestroy(VYX_COND_T *pCond) {
    if (pCond == nullptr)
        return VYX_ERROR;
    VYX_TimedWaitWithdraw_Inter(pCond); // woken waiters may not have taken their records out yet
    return pthread_cond_destroy(pCond);
}

int32_t VYX_CondWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex) {
    return pCond == nullptr || pMutex == nullptr ? VYX_ERROR : pthread_cond_wait(pCond, pMutex);
}

int32_t VYX_CondSignal(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_signal(pCond);
}

int32_t VYX_CondBroadCast(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_broadcast(pCond);
}
