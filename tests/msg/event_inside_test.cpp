// Events from the inside: what lies in the pipe, and the edges of the poll array.
#include <atomic>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>
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

TEST(EventInside, ANewEvent) {
    for (int nBytes : {0, 1}) {
        const Event event = Make(nBytes != 0);
        EXPECT_EQ(BytesInPipe(event), nBytes);
        EXPECT_EQ(event->iSocket, -1);
        for (int32_t iField : {event->iPollEvents, event->lNetworkEvents, event->iTriggered, event->reserved,
                               event->iErrorCode})
            EXPECT_EQ(iField, 0);
    }
}

TEST(EventInside, SettingLeavesOneByte) {
    const Event event = Make(true);
    for (size_t nExtra : {0U, 2U, 256U, 700U}) {
        const std::string bytes(nExtra, 'x');
        ASSERT_EQ(write(event->iPipeFd[1], bytes.data(), nExtra), static_cast<ssize_t>(nExtra));
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
        EXPECT_EQ(BytesInPipe(event), 1) << nExtra;
    }
    EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    EXPECT_EQ(BytesInPipe(event), 0);
}

// All threads set the event in the same moment, round after round. A round in which one of them writes between
// another one's emptying and writing would end with two bytes.
TEST(EventInside, SettingFromManyThreadsLeavesOneByte) {
    constexpr int kThreads = 3;
    constexpr int kRounds = 3000;
    const Event event = Make();
    std::atomic<int> iRound{0};
    std::atomic<int> nDone{0};
    std::atomic<int> nFailed{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < kThreads; ++iThread) {
        threads.emplace_back([&] {
            for (int i = 1; i <= kRounds; ++i) {
                while (iRound < i)
                    std::this_thread::yield();
                nFailed += VYX_SetEvent(event.get()) == VYX_TRUE ? 0 : 1;
                ++nDone;
            }
        });
    }
    int nWrong = 0;
    for (int i = 1; i <= kRounds; ++i) {
        iRound = i;
        while (nDone < i * kThreads)
            std::this_thread::yield();
        nWrong += BytesInPipe(event) == 1 ? 0 : 1;
    }
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(nFailed, 0);
    EXPECT_EQ(nWrong, 0);
}

// Setting and resetting get nowhere while the lock is taken.
TEST(EventInside, SettingAndResettingTakeTheLock) {
    for (bool bSet : {true, false}) {
        SCOPED_TRACE(bSet);
        const Event event = Make(!bSet);
        std::atomic<bool> bReady{false};
        std::atomic<bool> bDone{false};
        ASSERT_EQ(VYX_MutexLock(&event->hMutex), VYX_OK);
        std::thread thread([&] {
            bReady = true;
            EXPECT_EQ(bSet ? VYX_SetEvent(event.get()) : VYX_ResetEvent(event.get()), VYX_TRUE);
            bDone = true;
        });
        EXPECT_TRUE(support::WaitUntil([&] { return bReady.load(); }));
        const auto end = support::Clock::now() + std::chrono::milliseconds(20); // a call takes microseconds
        while (!bDone && support::Clock::now() < end)
            std::this_thread::yield();
        EXPECT_FALSE(bDone);
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
    EXPECT_EQ(VYX_MutexTryLock(&event->hMutex), VYX_ERROR) << "it is a normal one";
    EXPECT_EQ(VYX_MutexUnlock(&event->hMutex), VYX_OK);
}

TEST(EventInside, PipeFailures) {
    const std::string unwritten = "quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = 7\n";
    const Event full = Make();
    const std::string block(4096, 'x');
    struct pollfd writable = {full->iPipeFd[1], POLLOUT, 0};
    while (poll(&writable, 1, 0) == 1)
        ASSERT_GT(write(full->iPipeFd[1], block.data(), block.size()), 0);
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_WritePipe_Inter(full.get()), VYX_FALSE); }), unwritten);
    EXPECT_EQ(VYX_ReadPipe_Inter(full.get()), VYX_TRUE);

    const Event unfed = Make(); // its write end is gone
    const int iWrite = unfed->iPipeFd[1];
    (void)close(iWrite);
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(unfed.get()), VYX_FALSE); }),
              "quelby !!! VYX_SetEvent read pipe return error 7 1\n\n");
    EXPECT_EQ(VYX_ResetEvent(unfed.get()), VYX_FALSE);
    ASSERT_EQ(dup2(unfed->iPipeFd[0], iWrite), iWrite); // for the closing

    const Event piped = Make();
    VYX_ClearEventPipe_Inter(piped.get());
    VYX_ClearEventPipe_Inter(piped.get());
    VYX_ClearEventPipe_Inter(nullptr);
    EXPECT_EQ(piped->iPipeFd[0], -1);
    EXPECT_EQ(piped->iPipeFd[1], -1);
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(piped.get()), VYX_FALSE); }),
              unwritten + "quelby !!! VYX_SetEvent write pipe return error 7 2\n\n");
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ResetEvent(piped.get()), VYX_FALSE); }),
              "quelby !!! VYX_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n\n");
}

TEST(EventInside, PollEntries) {
    struct Entry {
        int32_t iFd;
        short sEvents;
    };
    const struct {
        const char *szName;
        int32_t lAsked; // 0 = a plain event
        int32_t nBefore;
        std::vector<Entry> added;
    } cases[] = {
        {"plain", 0, 3, {{-2, POLLRDNORM}}},
        {"read", VYX_FD_READ, 0, {{0, POLLRDNORM}}},
        {"close", VYX_FD_CLOSE, 0, {{0, POLLRDNORM}}},
        {"accept", VYX_FD_ACCEPT, 0, {{0, POLLRDNORM}}},
        {"write", VYX_FD_WRITE, 0, {{0, POLLOUT}}},
        {"connect", VYX_FD_CONNECT, 0, {{0, POLLRDNORM}, {0, POLLOUT}}},
        {"both", VYX_FD_READ | VYX_FD_WRITE, 126, {{0, POLLRDNORM}, {0, POLLOUT}}},
        {"unknown bit", 4, 0, {}},
        {"half fits", VYX_FD_CONNECT, 127, {{0, POLLRDNORM}}},
        {"full", VYX_FD_CONNECT, 128, {}},
        {"full and plain", 0, 128, {}},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        const Event event = Make();
        if (test.lAsked != 0) {
            ASSERT_EQ(VYX_EventSelect(open("/dev/null", O_RDONLY), event.get(), test.lAsked), VYX_OK);
        }
        std::vector<struct pollfd> fds(VYX_WAIT_MAX_FDS + 2, {-9, -9, -9});
        std::vector<int32_t> map(VYX_WAIT_MAX_FDS + 2, -9);
        int32_t nCount = test.nBefore;
        EXPECT_EQ(VYX_AddFdsToPoll_Inter(event.get(), map.data(), fds.data(), 77, &nCount), 1);
        auto at = static_cast<size_t>(test.nBefore);
        EXPECT_EQ(static_cast<size_t>(nCount), at + test.added.size());
        for (const Entry &entry : test.added) {
            EXPECT_EQ(fds[at].fd, test.lAsked == 0 ? event->iPipeFd[0] : event->iSocket);
            EXPECT_EQ(fds[at].events, entry.sEvents);
            EXPECT_EQ(map[at++], 77);
        }
        EXPECT_EQ(fds[at].fd, -9); // nothing behind
        EXPECT_EQ(map[at], -9);
        if (test.lAsked != 0)
            (void)close(event->iSocket);
    }
}

} // namespace
