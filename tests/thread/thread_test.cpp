// Threads, the VYX_Thread class, thread-local storage, and the library's own threads.
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <sched.h>

#include <gtest/gtest.h>

#include "base/platform.h"
#include "sync/timed_wait_support.h"
#include "thread/service_thread.h"

namespace {

void *CountUp(void *pCount) {
    ++*static_cast<std::atomic<int> *>(pCount);
    return nullptr;
}

TEST(Thread, DetachedRunsAndIsNotJoinable) {
    std::atomic<int> iDetached{-1};
    const auto fnRun = [](void *pDetached) -> void * {
        *static_cast<std::atomic<int> *>(pDetached) = pthread_detach(pthread_self()); // it is so already
        return nullptr;
    };
    EXPECT_EQ(VYX_ThreadDetached_Create(fnRun, &iDetached, 1U << 20), VYX_TRUE);
    EXPECT_TRUE(support::WaitUntil([&] { return iDetached == EINVAL; }));
}

TEST(Thread, StackIsAsLargeAsAskedForAndWaitEndsWithTheThread) {
    std::atomic<int> iCount{0};
    const VYX_THREAD_T hThread = VYX_Thread_Create(
        [](void *pCount) -> void * {
            volatile char szFill[40 << 20]; // above every default, and it takes its time
            for (size_t i = 0; i < sizeof szFill; i += 4096)
                szFill[i] = 1;
            return CountUp(pCount);
        },
        &iCount, 64U << 20, INT_MIN, -1, INT_MAX);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    EXPECT_EQ(iCount.load(), 1);
}

TEST(Thread, TooSmallAStackStartsNothing) {
    const auto nTooSmall = static_cast<uint32_t>(PTHREAD_STACK_MIN) - 1;
    std::atomic<int> iCount{0};
    EXPECT_EQ(VYX_Thread_Create(CountUp, &iCount, nTooSmall, 0, 0, 0), VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_ThreadDetached_Create(CountUp, &iCount, nTooSmall), VYX_FALSE);
    EXPECT_EQ(iCount.load(), 0);
}

TEST(Thread, InvalidValuesAreRefused) {
    EXPECT_EQ(VYX_Thread_Suspend(VYX_INVALID_THREAD), VYX_NOT_AVAILABLE);
    EXPECT_EQ(VYX_Thread_Resume(VYX_Thread_GetSelfId()), VYX_NOT_AVAILABLE);
    EXPECT_EQ(VYX_Thread_Wait(VYX_INVALID_THREAD), VYX_ERROR);
    EXPECT_EQ(VYX_Thread_Wait(VYX_Thread_GetSelfId()), VYX_ERROR); // would never end
    EXPECT_EQ(VYX_Thread_SetPriority(VYX_INVALID_THREAD, 0), VYX_ERROR);
    EXPECT_EQ(VYX_Thread_SetSchedPolicy(VYX_INVALID_THREAD, SCHED_OTHER), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_SetValue(VYX_INVALID_TLS, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_GetValue(VYX_INVALID_TLS), nullptr);
    EXPECT_EQ(VYX_ThreadTls_Destroy(VYX_INVALID_TLS), VYX_ERROR);
}

TEST(Thread, PriorityAndPolicyAreProbes) {
    const VYX_THREAD_T hSelf = VYX_Thread_GetSelfId();
    int iBefore = -1;
    sched_param before = {};
    ASSERT_EQ(pthread_getschedparam(hSelf, &iBefore, &before), 0);
    for (const int32_t iPriority : {0, INT_MAX, INT_MIN})
        EXPECT_EQ(VYX_Thread_SetPriority(hSelf, iPriority), VYX_OK) << iPriority;
    for (const int32_t iPolicy : {SCHED_OTHER, SCHED_FIFO, SCHED_RR})
        EXPECT_EQ(VYX_Thread_SetSchedPolicy(hSelf, iPolicy), VYX_OK) << iPolicy;
    EXPECT_EQ(VYX_Thread_SetSchedPolicy(hSelf, -1), VYX_ERROR);
    int iAfter = -1;
    sched_param after = {};
    ASSERT_EQ(pthread_getschedparam(hSelf, &iAfter, &after), 0);
    EXPECT_EQ(iAfter, iBefore);
    EXPECT_EQ(after.sched_priority, before.sched_priority);
}

TEST(ThreadClass, KeepsItsHandle) {
    VYX_Thread object;
    EXPECT_EQ(object.Wait(), VYX_ERROR);
    EXPECT_EQ(object.SetPriority(1), VYX_ERROR);
    EXPECT_EQ(object.SetSchedPolicy(SCHED_OTHER), VYX_ERROR);
    support::Semaphore release;
    const auto fnRun = [](void *pSem) -> void * {
        (void)VYX_SemWait(static_cast<VYX_SEM_T *>(pSem));
        return nullptr;
    };
    ASSERT_EQ(object.Create(fnRun, &release.h, 1 << 20, 1, 2, 3), VYX_OK);
    VYX_Thread copy = object;
    EXPECT_EQ(copy.SetPriority(1), VYX_OK);
    EXPECT_EQ(object.SetSchedPolicy(SCHED_OTHER), VYX_OK);
    EXPECT_EQ(object.SetSchedPolicy(12345), VYX_ERROR);
    EXPECT_EQ(object.Suspend() + object.Resume(), 2 * VYX_NOT_AVAILABLE);
    EXPECT_EQ(object.Create(fnRun, nullptr, 1, 0, 0, 0), VYX_ERROR); // forgets the old handle
    EXPECT_EQ(object.SetPriority(1), VYX_ERROR);
    (void)release.Post();
    EXPECT_EQ(copy.Wait(), VYX_OK);
}

TEST(ThreadLocal, EveryThreadHasItsOwnPointer) {
    static VYX_TLS_T s_hKey;
    s_hKey = VYX_ThreadTls_Create();
    ASSERT_NE(s_hKey, VYX_INVALID_TLS);
    int iMine = 0;
    EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, &iMine), VYX_OK);
    std::thread([] {
        int iTheirs = 0; // not the heap's: nothing may free it when the thread ends
        EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), nullptr);
        EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, &iTheirs), VYX_OK);
        EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), &iTheirs);
    }).join();
    EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), &iMine);
    EXPECT_EQ(VYX_ThreadTls_Destroy(s_hKey), VYX_OK);
    EXPECT_EQ(VYX_ThreadTls_Destroy(s_hKey), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, &iMine), VYX_ERROR);
}

// Many platforms put it into each thread's stack.
thread_local volatile char t_storage[131072];

// The calling thread's blocked signals, as it sees them itself.
void *OwnMask(void *pSet) {
    t_storage[0] = 1;
    VYX_NameThread_Inter("probe");
    return reinterpret_cast<void *>(
        static_cast<intptr_t>(pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t *>(pSet))));
}

TEST(ServiceThread, BlocksEverySignalAndLeavesItsStarterAlone) {
    sigset_t setThread;
    (void)sigemptyset(&setThread);
    const VYX_THREAD_T hThread = VYX_StartServiceThread_Inter(OwnMask, &setThread, 262144);
    ASSERT_NE(hThread, VYX_INVALID_THREAD) << "the storage comes on top of the stack";
    ASSERT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    sigset_t setOwn;
    (void)OwnMask(&setOwn);
    for (const int iSignal : {SIGHUP, SIGINT, SIGSEGV, SIGTERM, SIGUSR1, SIGALRM, SIGCHLD, SIGPROF}) {
        EXPECT_EQ(sigismember(&setThread, iSignal), 1) << iSignal;
        EXPECT_EQ(sigismember(&setOwn, iSignal), 0) << iSignal;
    }
}

} // namespace
