// Events from the inside: what lies in the pipe, and who is in the way of whom.
#include <atomic>
#include <fcntl.h>
#include <functional>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "msg/event_inter.h"
#include "msg/event_support.h"
#include "support/calls.h"

using eventtest::Event;
using eventtest::Make;
using support::ErrnoOf;
using support::ErrorsOf;

// The library's calls come here first (--wrap). Each function is called once, before the next such call.
static std::function<void()> s_fnBeforeRead;
static std::function<void()> s_fnBeforeWrite;

extern "C" {
ssize_t __real_read(int iFd, void *pBytes, size_t nLength);
ssize_t __real_write(int iFd, const void *pBytes, size_t nLength);
ssize_t __wrap_read(int iFd, void *pBytes, size_t nLength) {
    if (const auto fnCall = std::exchange(s_fnBeforeRead, nullptr))
        fnCall();
    return __real_read(iFd, pBytes, nLength);
}
ssize_t __wrap_write(int iFd, const void *pBytes, size_t nLength) {
    if (const auto fnCall = std::exchange(s_fnBeforeWrite, nullptr))
        fnCall();
    return __real_write(iFd, pBytes, nLength);
}
}

namespace {

int BytesInPipe(const Event &event) {
    int nBytes = -1;
    EXPECT_EQ(ioctl(event->iPipeFd[0], FIONREAD, &nBytes), 0);
    return nBytes;
}

TEST(EventInside, SettingLeavesOneByteAndResettingNone) {
    const Event event = Make(true);
    for (const size_t nExtra : {0U, 1U, 255U, 256U, 60000U}) {
        SCOPED_TRACE(nExtra);
        const std::string bytes(nExtra, 'x');
        for (const bool bSet : {true, false}) {
            ASSERT_EQ(write(event->iPipeFd[1], bytes.data(), nExtra), static_cast<ssize_t>(nExtra));
            EXPECT_EQ(bSet ? VYX_SetEvent(event.get()) : VYX_ResetEvent(event.get()), VYX_TRUE);
            EXPECT_EQ(BytesInPipe(event), bSet ? 1 : 0);
        }
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    }
}

// Another thread does something when a set has found the pipe empty, and not written yet.
TEST(EventInside, SetsThatMeetLeaveOneByte) {
    const Event event = Make();
    for (const bool bResetThen : {false, true}) {
        s_fnBeforeWrite = [&] {
            EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
            EXPECT_EQ(BytesInPipe(event), 1);
            EXPECT_EQ(bResetThen ? VYX_ResetEvent(event.get()) : VYX_TRUE, VYX_TRUE);
        };
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
        EXPECT_EQ(BytesInPipe(event), 1);
        EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    }
}

// Of two who reset, the second one would wait for the next set; and would take its byte.
TEST(EventInside, OnlyWhoTakesBytesOutHoldsTheLock) {
    const Event event = Make();
    const auto fnExpect = [&](bool bFree) {
        return [&event, bFree] {
            const bool bGot = event->hMutex.TryAcquire();
            if (bGot)
                event->hMutex.Release();
            EXPECT_EQ(bGot, bFree);
        };
    };
    s_fnBeforeWrite = fnExpect(true);
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    ASSERT_EQ(write(event->iPipeFd[1], "xx", 2), 2);
    s_fnBeforeRead = fnExpect(false);
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    s_fnBeforeRead = fnExpect(false);
    EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    EXPECT_EQ(s_fnBeforeRead, nullptr) << "all looks were taken";
    fnExpect(true)();
}

TEST(EventInside, ClosingWaitsForASetterAboutToLeave) {
    for (const bool bSelect : {true, false}) {
        Event event = Make();
        std::atomic<bool> bLeft{false};
        ++event->nInside;
        std::thread setter([&, pEvent = event.get()] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // meanwhile the pipe is closed
            bLeft = true;
            --pEvent->nInside;
        });
        if (bSelect)
            EXPECT_EQ(VYX_EventSelect(STDIN_FILENO, event.get(), VYX_FD_READ), VYX_OK);
        else
            event.reset();
        EXPECT_TRUE(bLeft);
        setter.join();
    }
}

TEST(EventInside, PipeFailures) {
    const Event unfed = Make(); // its write end is gone
    const int iWrite = unfed->iPipeFd[1];
    (void)close(iWrite);
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(unfed.get()), VYX_FALSE); }),
              "quelby !!! VYX_SetEvent read pipe return error 7 1\n\n");
    EXPECT_EQ(ErrnoOf([&] { errno = 7, VYX_SetEvent(unfed.get()); }), 7);
    EXPECT_EQ(VYX_ResetEvent(unfed.get()), VYX_FALSE);
    ASSERT_EQ(dup2(unfed->iPipeFd[0], iWrite), iWrite); // for the closing
    const Event full = Make();                          // of which the read end sees a write end all the same
    const int iKept = dup(full->iPipeFd[1]);
    const int iFull = open("/dev/full", O_WRONLY);
    ASSERT_EQ(dup2(iFull, full->iPipeFd[1]), full->iPipeFd[1]);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(full.get()), VYX_FALSE); }),
              "quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = " + std::to_string(ENOSPC) +
                  "\nquelby !!! VYX_SetEvent write pipe return error " + std::to_string(ENOSPC) + " 2\n\n");
    EXPECT_EQ(ErrnoOf([&] { VYX_SetEvent(full.get()); }), ENOSPC);
    (void)close(iFull);
    (void)close(iKept);
}

} // namespace
