// Threads, the VYX_Thread class and thread-local storage.
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/sync.h>
#include <vyx/thread.h>

namespace {

void *CountUp(void *pCount) {
    ++*static_cast<std::atomic<int> *>(pCount);
    return nullptr;
}

void *Post(void *pSem) {
    (void)VYX_SemPost(static_cast<VYX_SEM_T *>(pSem));
    return nullptr;
}

TEST(Thread, RunsTheRoutineWithItsParameter) {
    std::atomic<int> iCount{0};
    const VYX_THREAD_T hThread = VYX_Thread_Create(CountUp, &iCount, 0, INT_MIN, -1, INT_MAX);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    EXPECT_EQ(iCount.load(), 1);
}

TEST(Thread, WaitEndsOnlyWithTheThread) {
    VYX_SEM_T hRelease = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hRelease, 0), VYX_OK);
    struct Shared {
        VYX_THREAD_T hWaited;
        std::atomic<bool> bJoined{false};
        std::atomic<bool> bWaiting{false};
    } shared;
    shared.hWaited = VYX_Thread_Create(
        [](void *pSem) -> void * {
            (void)VYX_SemWait(static_cast<VYX_SEM_T *>(pSem));
            return pSem; // discarded
        },
        &hRelease, 0, 0, 0, 0);
    ASSERT_NE(shared.hWaited, VYX_INVALID_THREAD);
    const VYX_THREAD_T hWaiter = VYX_Thread_Create(
        [](void *pShared) -> void * {
            auto &self = *static_cast<Shared *>(pShared);
            self.bWaiting = true;
            self.bJoined = VYX_Thread_Wait(self.hWaited) == VYX_OK;
            return nullptr;
        },
        &shared, 0, 0, 0, 0);
    ASSERT_NE(hWaiter, VYX_INVALID_THREAD);
    while (!shared.bWaiting)
        (void)sched_yield();
    EXPECT_FALSE(shared.bJoined);
    (void)VYX_SemPost(&hRelease);
    EXPECT_EQ(VYX_Thread_Wait(hWaiter), VYX_OK);
    EXPECT_TRUE(shared.bJoined);
    EXPECT_EQ(VYX_SemDestroy(&hRelease), VYX_OK);
}

TEST(Thread, DetachedRunsAndIsNotJoinable) {
    struct Shared {
        VYX_SEM_T hDone = nullptr;
        int iDetached = 0;
    } shared;
    ASSERT_EQ(VYX_SemCreate(&shared.hDone, 0), VYX_OK);
    const auto fnRun = [](void *pShared) -> void * {
        auto &self = *static_cast<Shared *>(pShared);
        self.iDetached = pthread_detach(pthread_self()); // refused if it is so already
        return Post(&self.hDone);
    };
    EXPECT_EQ(VYX_ThreadDetached_Create(fnRun, &shared, 0), VYX_TRUE);
    EXPECT_EQ(VYX_SemWait(&shared.hDone), VYX_OK);
    EXPECT_EQ(shared.iDetached, EINVAL);
    EXPECT_EQ(VYX_ThreadDetached_Create(fnRun, &shared, 1 << 20), VYX_TRUE);
    EXPECT_EQ(VYX_SemWait(&shared.hDone), VYX_OK);
    EXPECT_EQ(VYX_SemDestroy(&shared.hDone), VYX_OK);
}

TEST(Thread, TooSmallAStackStartsNothing) {
    std::atomic<int> iCount{0};
    for (const uint32_t nStackSize : {1U, 4096U, static_cast<uint32_t>(PTHREAD_STACK_MIN) - 1}) {
        EXPECT_EQ(VYX_Thread_Create(CountUp, &iCount, nStackSize, 0, 0, 0), VYX_INVALID_THREAD);
        EXPECT_EQ(VYX_ThreadDetached_Create(CountUp, &iCount, nStackSize), VYX_FALSE);
    }
    VYX_Thread object;
    EXPECT_EQ(object.Create(CountUp, &iCount, 1, 0, 0, 0), VYX_ERROR);
    EXPECT_EQ(object.Wait(), VYX_ERROR);
    EXPECT_EQ(iCount.load(), 0);
}

TEST(Thread, StackIsAsLargeAsAskedFor) {
    const VYX_THREAD_T hThread = VYX_Thread_Create(
        [](void *) -> void * {
            volatile char szFill[40 << 20]; // above every default
            for (size_t i = 0; i < sizeof szFill; i += 4096)
                szFill[i] = 1;
            return nullptr;
        },
        nullptr, 64U << 20, 0, 0, 0);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
}

// Limits the address space to a little more than is in use, as long as it lives.
class AddressSpaceLimit {
  public:
    AddressSpaceLimit() {
        unsigned long nPages = 0;
        if (FILE *pFile = std::fopen("/proc/self/statm", "r")) {
            m_bSet = std::fscanf(pFile, "%lu", &nPages) == 1 && getrlimit(RLIMIT_AS, &m_old) == 0;
            (void)std::fclose(pFile);
        }
        rlimit tight = m_old;
        tight.rlim_cur = nPages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (512U << 20);
        m_bSet = m_bSet && setrlimit(RLIMIT_AS, &tight) == 0;
    }
    ~AddressSpaceLimit() {
        if (m_bSet)
            (void)setrlimit(RLIMIT_AS, &m_old);
    }
    AddressSpaceLimit(const AddressSpaceLimit &) = delete;
    AddressSpaceLimit &operator=(const AddressSpaceLimit &) = delete;
    // Whether so much is refused.
    static bool Refuses(size_t nSize) {
        void *pMemory = mmap(nullptr, nSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return pMemory == MAP_FAILED || munmap(pMemory, nSize) != 0;
    }

  private:
    rlimit m_old = {};
    bool m_bSet = false;
};

TEST(Thread, PlatformThatStartsNoneIsReported) {
    std::atomic<int> iCount{0};
    constexpr uint32_t kTooLarge = 15U << 28; // nearly all that 32 bits can address
    {
        const AddressSpaceLimit limit;
        if (!AddressSpaceLimit::Refuses(kTooLarge))
            GTEST_SKIP() << "no way to limit the address space here";
        EXPECT_EQ(VYX_Thread_Create(CountUp, &iCount, kTooLarge, 0, 0, 0), VYX_INVALID_THREAD);
        EXPECT_EQ(VYX_ThreadDetached_Create(CountUp, &iCount, kTooLarge), VYX_FALSE);
    }
    EXPECT_EQ(iCount.load(), 0);
}

TEST(Thread, ExitEndsTheThreadThereAndThen) {
    std::atomic<int> iCount{0};
    const VYX_THREAD_T hThread = VYX_Thread_Create(
        [](void *pCount) -> void * {
            if (CountUp(pCount) == nullptr)
                VYX_Thread_Exit();
            return CountUp(pCount);
        },
        &iCount, 0, 0, 0, 0);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    EXPECT_EQ(iCount.load(), 1);
}

TEST(Thread, KnowsItself) {
    VYX_THREAD_T hInside = VYX_INVALID_THREAD;
    const VYX_THREAD_T hThread = VYX_Thread_Create(
        [](void *pInside) -> void * {
            *static_cast<VYX_THREAD_T *>(pInside) = VYX_Thread_GetSelfId();
            return nullptr;
        },
        &hInside, 0, 0, 0, 0);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    EXPECT_NE(pthread_equal(hInside, hThread), 0);
    EXPECT_NE(pthread_equal(VYX_Thread_GetSelfId(), pthread_self()), 0);
    EXPECT_EQ(VYX_Thread_Wait(VYX_Thread_GetSelfId()), VYX_ERROR); // would never end
}

TEST(Thread, InvalidValuesAreRefused) {
    EXPECT_EQ(VYX_Thread_Wait(VYX_INVALID_THREAD), VYX_ERROR);
    EXPECT_EQ(VYX_Thread_SetPriority(VYX_INVALID_THREAD, 0), VYX_ERROR);
    EXPECT_EQ(VYX_Thread_SetSchedPolicy(VYX_INVALID_THREAD, SCHED_OTHER), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_SetValue(VYX_INVALID_TLS, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_GetValue(VYX_INVALID_TLS), nullptr);
    EXPECT_EQ(VYX_ThreadTls_Destroy(VYX_INVALID_TLS), VYX_ERROR);
}

TEST(Thread, SuspendAndResumeAreNotAvailable) {
    VYX_Thread object;
    for (const VYX_THREAD_T hThread : {VYX_INVALID_THREAD, VYX_Thread_GetSelfId()}) {
        EXPECT_EQ(VYX_Thread_Suspend(hThread), -2);
        EXPECT_EQ(VYX_Thread_Resume(hThread), VYX_NOT_AVAILABLE);
    }
    EXPECT_EQ(object.Suspend(), -2);
    EXPECT_EQ(object.Resume(), -2);
}

TEST(Thread, PriorityAndPolicyAreProbes) {
    const VYX_THREAD_T hSelf = VYX_Thread_GetSelfId();
    int iBefore = -1;
    sched_param before = {};
    ASSERT_EQ(pthread_getschedparam(hSelf, &iBefore, &before), 0);
    for (const int32_t iPriority : {0, 1, 99, INT_MAX, INT_MIN})
        EXPECT_EQ(VYX_Thread_SetPriority(hSelf, iPriority), VYX_OK) << iPriority;
    for (const int32_t iPolicy : {SCHED_OTHER, SCHED_FIFO, SCHED_RR})
        EXPECT_EQ(VYX_Thread_SetSchedPolicy(hSelf, iPolicy), VYX_OK) << iPolicy;
    for (const int32_t iPolicy : {12345, -1})
        EXPECT_EQ(VYX_Thread_SetSchedPolicy(hSelf, iPolicy), VYX_ERROR) << iPolicy;
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
    VYX_SEM_T hRelease = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hRelease, 0), VYX_OK);
    ASSERT_EQ(object.Create(
                  [](void *pSem) -> void * {
                      (void)VYX_SemWait(static_cast<VYX_SEM_T *>(pSem));
                      return nullptr;
                  },
                  &hRelease, 1 << 20, 1, 2, 3),
              VYX_OK);
    VYX_Thread copy = object;
    EXPECT_EQ(copy.SetPriority(1), VYX_OK);
    EXPECT_EQ(object.SetSchedPolicy(SCHED_OTHER), VYX_OK);
    EXPECT_EQ(object.SetSchedPolicy(12345), VYX_ERROR);
    (void)VYX_SemPost(&hRelease);
    EXPECT_EQ(copy.Wait(), VYX_OK);
    EXPECT_EQ(object.Create(CountUp, nullptr, 1, 0, 0, 0), VYX_ERROR); // forgets the old handle
    EXPECT_EQ(object.Wait(), VYX_ERROR);
    EXPECT_EQ(VYX_SemDestroy(&hRelease), VYX_OK);
}

TEST(ThreadLocal, EveryThreadHasItsOwnPointer) {
    static VYX_TLS_T s_hKey;
    s_hKey = VYX_ThreadTls_Create();
    ASSERT_NE(s_hKey, VYX_INVALID_TLS);
    int iMine = 0;
    EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), nullptr);
    EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, &iMine), VYX_OK);
    std::atomic<int> iCount{0};
    const VYX_THREAD_T hThread = VYX_Thread_Create(
        [](void *pCount) -> void * {
            int iTheirs = 0; // not the heap's: nothing may free it when the thread ends
            const bool bEmpty = VYX_ThreadTls_GetValue(s_hKey) == nullptr;
            const bool bSet = VYX_ThreadTls_SetValue(s_hKey, &iTheirs) == VYX_OK;
            return bEmpty && bSet && VYX_ThreadTls_GetValue(s_hKey) == &iTheirs ? CountUp(pCount) : nullptr;
        },
        &iCount, 0, 0, 0, 0);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    EXPECT_EQ(iCount.load(), 1);
    EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), &iMine);
    EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, nullptr), VYX_OK);
    EXPECT_EQ(VYX_ThreadTls_GetValue(s_hKey), nullptr);
    EXPECT_EQ(VYX_ThreadTls_Destroy(s_hKey), VYX_OK);
    EXPECT_EQ(VYX_ThreadTls_Destroy(s_hKey), VYX_ERROR);
    EXPECT_EQ(VYX_ThreadTls_SetValue(s_hKey, &iMine), VYX_ERROR);
}

TEST(ThreadLocal, KeysRunOutAndComeBack) {
    for (int iRound = 0; iRound < 2; ++iRound) {
        std::vector<VYX_TLS_T> keys;
        VYX_TLS_T hKey = VYX_ThreadTls_Create();
        for (; hKey != VYX_INVALID_TLS && keys.size() < 100000; hKey = VYX_ThreadTls_Create())
            keys.push_back(hKey);
        EXPECT_EQ(hKey, VYX_INVALID_TLS);
        EXPECT_GT(keys.size(), 64U);
        for (const VYX_TLS_T hOld : keys)
            EXPECT_EQ(VYX_ThreadTls_Destroy(hOld), VYX_OK);
    }
}

} // namespace
