// Mutexes, conditions, semaphores, threads and storage of threads.
#include <atomic>
#include <cstdint>
#include <semaphore.h>
#include <thread>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;
using torture::Started;
namespace may = torture::may;

template <class Handle>
const void *Owned(Handle handle) {
    return reinterpret_cast<const void *>(static_cast<uintptr_t>(handle));
}

void Mutex() {
    VYX_MUTEX_T hMutex = {};
    *reinterpret_cast<char *>(&hMutex) = 1; // no mutex, but like one that is held
    Act([&] {
        failing_own(&hMutex);
        OK(CALL(VYX_MutexCreate)(&hMutex, VYX_MUTEX_RECURSIVE), 0);
        const bool bLocked = OK(CALL(VYX_MutexLock)(&hMutex), 0);
        const bool bTried = OK(CALL(VYX_MutexTryLock)(&hMutex), 0);
        for (int i = bLocked + bTried; i > 0; --i)
            if (!OK(CALL(VYX_MutexUnlock)(&hMutex), 0))
                (void)VYX_MutexUnlock(&hMutex);
        OK(CALL(VYX_MutexDestroy)(&hMutex), 0);
    });
}

void Condition() {
    VYX_MUTEX_T hMutex;
    VYX_COND_T hCond = {};
    const Started started;
    MUST(VYX_MutexCreate(&hMutex, VYX_MUTEX_NORMAL) == VYX_OK);
    std::atomic<bool> bStop{false};
    std::atomic<bool> bMade{false};
    std::thread waker([&] {
        failing_spare();
        for (; !bStop; std::this_thread::yield())
            if (bMade) {
                (void)pthread_mutex_lock(&hMutex);
                (void)pthread_cond_broadcast(&hCond);
                (void)pthread_mutex_unlock(&hMutex);
            }
    });
    Act([&] {
        failing_own(&hCond);
        const auto Done = [](int32_t iResult, int iLine) {
            return torture::Judge(iResult == 0, iResult > 0, 0, iLine);
        };
        (void)Done(CALL(VYX_CondCreate)(&hCond), __LINE__);
        bMade = true;
        (void)VYX_MutexLock(&hMutex);
        (void)Done(CALL(VYX_CondWait)(&hCond, &hMutex), __LINE__);
        (void)Done(CALL(VYX_CondTimedWait)(&hCond, &hMutex, VYX_INFINITE), __LINE__);
        MUST(CALL(VYX_CondTimedWait)(&hCond, &hMutex, 5) == VYX_ERROR);
        MUST(VYX_MutexTryLock(&hMutex) == VYX_ERROR); // it is held again
        (void)VYX_MutexUnlock(&hMutex);
        (void)Done(CALL(VYX_CondSignal)(&hCond), __LINE__);
        (void)Done(CALL(VYX_CondBroadCast)(&hCond), __LINE__);
        bStop = true;
        waker.join();
        (void)Done(CALL(VYX_CondDestroy)(&hCond), __LINE__);
    });
    (void)VYX_MutexDestroy(&hMutex);
}

void Semaphore() {
    const Started started;
    Act([] {
        VYX_SEM_T hSem = nullptr;
        if (!OK(CALL(VYX_SemCreate)(&hSem, 1), may::errors | may::files | may::descriptors)) {
            MUST(hSem == nullptr);
            return;
        }
        sem_t *const pPlatform = *reinterpret_cast<sem_t **>(hSem); // a record begins with it
        failing_own(pPlatform);
        int nCount = 1;
        for (const uint32_t nTimeOut : {1000U, 0U, VYX_INFINITE}) {
            nCount -= OK(CALL(VYX_SemTimedWait)(&hSem, nTimeOut),
                         may::semaphores | (nTimeOut == VYX_INFINITE ? 0 : may::interrupts))
                          ? 1
                          : 0;
            nCount += OK(CALL(VYX_SemPost)(&hSem), may::errors) ? 1 : 0;
            if (nCount == 0)
                break;
        }
        if (nCount > 0)
            nCount -= OK(CALL(VYX_SemWait)(&hSem), may::errors) ? 1 : 0;
        for (; nCount > 0; --nCount)
            (void)sem_trywait(pPlatform);
        (void)CALL(VYX_SemTimedWait)(&hSem, 2); // its time runs out
        MUST(CALL(VYX_SemDestroy)(&hSem) == VYX_OK);
    });
}

// Without its semaphore an object refuses to wait, and posts nothing.
void BoundedSemaphore() {
    const Started started;
    Act([] {
        torture::Enter("VYX_Sema");
        VYX_Sema sema(1, 2);
        sem_t *const *const pRecord = *reinterpret_cast<sem_t ***>(&sema); // the object begins with the slot
        (void)DONE(pRecord != nullptr, pRecord == nullptr, may::descriptors);
        torture::Enter("VYX_Sema::Wait");
        const bool bTaken = OK(sema.Wait(), 0);
        torture::Enter("VYX_Sema::TimedWait");
        MUST(!bTaken || sema.TimedWait(0) == -1);
        torture::Enter("VYX_Sema::Post");
        OK(sema.Post(), may::anything);
    });
}

// Runs until the flag is set.
void *AwaitFlag(void *pFlag) {
    while (!static_cast<std::atomic<bool> *>(pFlag)->load())
        std::this_thread::yield();
    return nullptr;
}

void Thread() {
    VYX_THREAD_T hThread = VYX_INVALID_THREAD;
    std::atomic<bool> bRun{false};
    std::atomic<bool> bEnd{false};
    Act([&] {
        hThread = CALL(VYX_Thread_Create)(AwaitFlag, &bEnd, 262144, 0, 0, 0);
        if (DONE(hThread != VYX_INVALID_THREAD, hThread == VYX_INVALID_THREAD, 0)) {
            failing_own(Owned(hThread));
            OK(CALL(VYX_Thread_SetPriority)(hThread, 1), 0);
            OK(CALL(VYX_Thread_SetSchedPolicy)(hThread, SCHED_OTHER), 0);
            bEnd = true;
            if (OK(CALL(VYX_Thread_Wait)(hThread), 0))
                hThread = VYX_INVALID_THREAD;
        }
        const auto Mark = [](void *pFlag) -> void * {
            static_cast<std::atomic<bool> *>(pFlag)->store(true);
            return nullptr;
        };
        const int32_t bStarted = CALL(VYX_ThreadDetached_Create)(Mark, &bRun, 262144);
        if (!DONE(bStarted == VYX_TRUE, bStarted == VYX_FALSE, 0))
            bRun = true;
    });
    if (hThread != VYX_INVALID_THREAD)
        MUST(VYX_Thread_Wait(hThread) == VYX_OK);
    while (!bRun)
        std::this_thread::yield();
}

void Storage() {
    VYX_TLS_T hKey = VYX_INVALID_TLS;
    Act([&] {
        hKey = CALL(VYX_ThreadTls_Create)();
        if (!DONE(hKey != VYX_INVALID_TLS, hKey == VYX_INVALID_TLS, 0))
            return;
        failing_own(Owned(hKey + 1));
        const bool bSet = OK(CALL(VYX_ThreadTls_SetValue)(hKey, &hKey), 0);
        MUST(VYX_ThreadTls_GetValue(hKey) == (bSet ? &hKey : nullptr));
        if (OK(CALL(VYX_ThreadTls_Destroy)(hKey), 0))
            hKey = VYX_INVALID_TLS;
    });
    if (hKey != VYX_INVALID_TLS)
        MUST(VYX_ThreadTls_Destroy(hKey) == VYX_OK);
}

} // namespace

const std::vector<torture::Scenario> torture::kSyncScenarios = {
    {"mutex", Mutex},         {"condition", Condition},
    {"semaphore", Semaphore}, {"bounded semaphore", BoundedSemaphore},
    {"thread", Thread},       {"storage", Storage},
};
