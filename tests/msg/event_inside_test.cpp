// Events from the inside: what lies in the pipe, and the edges of the poll array.
#include <atomic>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "msg/event_inter.h"
#include "msg/event_support.h"
#include "support/support.h"

using eventtest::ErrorsOf;
using eventtest::Event;
using eventtest::Make;

namespace {

int BytesInPipe(const Event &event) {
    int nBytes = -1;
    EXPECT_EQ(ioctl(event->iPipeFd[0], FIONREAD, &nBytes), 0);
    return nBytes;
}

TEST(EventInside, SettingLeavesOneByte) {
    const Event event = Make(true);
    for (size_t nExtra : {0U, 2U, 256U, 700U}) {
        const std::string bytes(nExtra, 'x');
        ASSERT_EQ(write(event->iPipeFd[1], bytes.data(), nExtra), static_cast<ssize_t>(nExtra));
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
        EXPECT_EQ(BytesInPipe(event), 1) << nExtra;
    }
}

// Setting and resetting get nowhere while the lock is taken.
TEST(EventInside, SettingAndResettingTakeTheLock) {
    for (bool bSet : {true, false}) {
        SCOPED_TRACE(bSet);
        const Event event = Make(!bSet);
        std::atomic<bool> bReady{false};
        ASSERT_EQ(VYX_MutexLock(&event->hMutex), VYX_OK);
        std::thread thread([&] {
            bReady = true;
            EXPECT_EQ(bSet ? VYX_SetEvent(event.get()) : VYX_ResetEvent(event.get()), VYX_TRUE);
        });
        EXPECT_TRUE(support::WaitUntil([&] { return bReady.load(); }));
        const auto end = support::Clock::now() + std::chrono::milliseconds(20); // a call takes microseconds
        while (support::Clock::now() < end)
            std::this_thread::yield();
        EXPECT_EQ(BytesInPipe(event), bSet ? 0 : 1);
        EXPECT_EQ(VYX_MutexUnlock(&event->hMutex), VYX_OK);
        thread.join();
        EXPECT_EQ(BytesInPipe(event), bSet ? 1 : 0);
    }
}

// The lock is a setter's last concern in an event.
TEST(EventInside, ClosingWaitsForASetterAboutToLeave) {
    Event event = Make();
    std::atomic<bool> bInside{false};
    std::atomic<bool> bLeft{false};
    std::thread setter([&, pEvent = event.get()] {
        (void)VYX_MutexLock(&pEvent->hMutex);
        bInside = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // meanwhile the event is closed
        bLeft = true;
        (void)VYX_MutexUnlock(&pEvent->hMutex);
    });
    EXPECT_TRUE(support::WaitUntil([&] { return bInside.load(); }));
    EXPECT_EQ(VYX_CloseEvent(event.release()), VYX_TRUE);
    EXPECT_TRUE(bLeft);
    setter.join();
}

TEST(EventInside, EnumerationLeavesTheLock) {
    const Event event = Make();
    VYX_NETWORKEVENTS_T found;
    EXPECT_EQ(VYX_EnumNetworkEvents(0, event.get(), &found), VYX_OK);
    EXPECT_EQ(VYX_MutexTryLock(&event->hMutex), VYX_OK);
    EXPECT_EQ(VYX_MutexUnlock(&event->hMutex), VYX_OK);
}

TEST(EventInside, PipeFailures) {
    const Event full = Make();
    const std::string block(4096, 'x');
    struct pollfd writable = {full->iPipeFd[1], POLLOUT, 0};
    while (poll(&writable, 1, 0) == 1)
        ASSERT_GT(write(full->iPipeFd[1], block.data(), block.size()), 0);
    EXPECT_EQ(VYX_WritePipe_Inter(full.get()), VYX_FALSE) << "does not block";
    EXPECT_EQ(VYX_ReadPipe_Inter(full.get()), VYX_TRUE);

    const Event unfed = Make(); // its write end is gone
    const int iWrite = unfed->iPipeFd[1];
    (void)close(iWrite);
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(unfed.get()), VYX_FALSE); }),
              "quelby !!! VYX_SetEvent read pipe return error 7 1\n\n");
    EXPECT_EQ(VYX_ResetEvent(unfed.get()), VYX_FALSE);
    ASSERT_EQ(dup2(unfed->iPipeFd[0], iWrite), iWrite); // for the closing
}

TEST(EventInside, PollEntries) {
    const struct {
        int32_t lAsked; // 0 = a plain event
        int32_t nBefore;
        std::vector<short> added;
    } cases[] = {
        {0, 3, {POLLRDNORM}},
        {VYX_FD_CONNECT, 126, {POLLRDNORM, POLLOUT}},
        {VYX_FD_CONNECT, 127, {POLLRDNORM}},
        {VYX_FD_CONNECT, 128, {}},
        {0, 128, {}},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        const Event event = Make();
        if (test.lAsked != 0) {
            ASSERT_EQ(VYX_EventSelect(STDIN_FILENO, event.get(), test.lAsked), VYX_OK);
        }
        std::vector<struct pollfd> fds(VYX_WAIT_MAX_FDS + 2, {-9, -9, -9});
        std::vector<int32_t> map(VYX_WAIT_MAX_FDS + 2, -9);
        int32_t nCount = test.nBefore;
        EXPECT_EQ(VYX_AddFdsToPoll_Inter(event.get(), map.data(), fds.data(), 77, &nCount), 1);
        auto at = static_cast<size_t>(test.nBefore);
        EXPECT_EQ(static_cast<size_t>(nCount), at + test.added.size());
        for (short sEvents : test.added) {
            EXPECT_EQ(fds[at].fd, test.lAsked == 0 ? event->iPipeFd[0] : STDIN_FILENO);
            EXPECT_EQ(fds[at].events, sEvents);
            EXPECT_EQ(map[at++], 77);
        }
        EXPECT_EQ(fds[at].fd, -9); // nothing behind
        EXPECT_EQ(map[at], -9);
    }
}

TEST(EventInside, DescriptorsAbove1023) {
    const eventtest::DescriptorLimit limit(2048);
    const Event event = Make();
    for (int32_t &iEnd : event->iPipeFd) {
        const int iHigh = fcntl(iEnd, F_DUPFD, 1024);
        if (iHigh == -1)
            GTEST_SKIP() << "this process may not have descriptors that high";
        (void)close(std::exchange(iEnd, iHigh));
    }
    EXPECT_FALSE(eventtest::Signalled(event));
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    EXPECT_TRUE(eventtest::Signalled(event));
    EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    EXPECT_FALSE(eventtest::Signalled(event));
}

} // namespace
