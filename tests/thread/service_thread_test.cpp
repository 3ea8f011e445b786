// The library's own threads.
#include <csignal>

#include <gtest/gtest.h>

#include "thread/service_thread.h"

namespace {

// The calling thread's blocked signals, as it sees them itself.
void *OwnMask(void *pSet) {
    VYX_NameThread_Inter("probe");
    return reinterpret_cast<void *>(
        static_cast<intptr_t>(pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t *>(pSet))));
}

TEST(ServiceThread, BlocksSignalsExceptThoseOfItsOwnFaults) {
    sigset_t setBefore;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &setBefore), 0);
    sigset_t setThread;
    (void)sigemptyset(&setThread);
    const VYX_THREAD_T hThread = VYX_StartServiceThread_Inter(OwnMask, &setThread, 262144);
    ASSERT_NE(hThread, VYX_INVALID_THREAD);
    ASSERT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    for (const int iSignal : {SIGINT, SIGTERM, SIGUSR1, SIGALRM, SIGCHLD, SIGPIPE})
        EXPECT_EQ(sigismember(&setThread, iSignal), 1) << iSignal;
    for (const int iSignal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        EXPECT_EQ(sigismember(&setThread, iSignal), 0) << iSignal;

    EXPECT_EQ(VYX_StartServiceThread_Inter(OwnMask, &setThread, 1), VYX_INVALID_THREAD);
    sigset_t setAfter;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &setAfter), 0);
    for (int iSignal = 1; iSignal < 32; ++iSignal)
        EXPECT_EQ(sigismember(&setAfter, iSignal), sigismember(&setBefore, iSignal)) << iSignal;
}

} // namespace
