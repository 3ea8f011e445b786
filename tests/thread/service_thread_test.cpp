// The library's own threads.
#include <csignal>

#include <gtest/gtest.h>

#include "base/platform.h"
#include "thread/service_thread.h"

namespace {

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
    sigset_t setBefore;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &setBefore), 0);
    sigset_t setThread;
    (void)sigemptyset(&setThread);
    const VYX_THREAD_T hThread = VYX_StartServiceThread_Inter(OwnMask, &setThread, 262144);
    ASSERT_NE(hThread, VYX_INVALID_THREAD) << "the storage comes on top of the stack";
    ASSERT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    for (int iSignal = 1; iSignal < 32; ++iSignal) {
        if (iSignal != SIGKILL && iSignal != SIGSTOP) { // the system keeps these two open
            EXPECT_EQ(sigismember(&setThread, iSignal), 1) << iSignal;
        }
    }

    // Too small, unless a sanitizer's thread-local storage is large enough for a whole stack.
    const VYX_THREAD_T hSmall = VYX_StartServiceThread_Inter(OwnMask, &setThread, 1);
    if (hSmall != VYX_INVALID_THREAD) {
        EXPECT_EQ(VYX_Thread_Wait(hSmall), VYX_OK);
    }
    sigset_t setAfter;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &setAfter), 0);
    for (int iSignal = 1; iSignal < 32; ++iSignal)
        EXPECT_EQ(sigismember(&setAfter, iSignal), sigismember(&setBefore, iSignal)) << iSignal;
}

} // namespace
