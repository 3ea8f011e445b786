// Plain events as an application sees them, through the shared library.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "msg/event_support.h"
#include "support/support.h"
#include "support/temp_dir.h"

using eventtest::ErrorsOf;
using eventtest::Event;
using eventtest::Make;
using eventtest::Signalled;

namespace {

TEST(Event, NullArguments) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    VYX_NETWORKEVENTS_T found = {};
    EXPECT_EQ(VYX_CloseEvent(nullptr), VYX_FALSE);
    EXPECT_EQ(VYX_SetEvent(nullptr), VYX_FALSE);
    EXPECT_EQ(VYX_ResetEvent(nullptr), VYX_FALSE);
    EXPECT_EQ(VYX_WaitForSingleObject(nullptr, VYX_INFINITE), 0x7FFFFFFEU);
    EXPECT_EQ(VYX_WaitForMultipleObjects(1, nullptr, 0, VYX_INFINITE), 0x7FFFFFFEU);
    EXPECT_EQ(VYX_EventSelect(-1, hEvent, VYX_FD_READ), VYX_ERROR);
    EXPECT_EQ(VYX_EventSelect(0, nullptr, VYX_FD_READ), VYX_ERROR);
    EXPECT_EQ(VYX_EventSelect(0, hEvent, 0), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(-1, hEvent, &found), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(0, nullptr, &found), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(0, hEvent, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SetEvent(hEvent), VYX_TRUE); // no refused selection has closed the pipe
}

TEST(Event, OutOfDescriptors) {
    const long nBefore = support::OpenDescriptors();
    int iErrno = 0;
    EXPECT_EQ(ErrorsOf([&] {
                  const int iNext = dup(STDERR_FILENO); // the lowest that is free
                  (void)close(iNext);
                  const eventtest::DescriptorLimit limit(static_cast<rlim_t>(iNext) + 1); // a pipe needs two
                  EXPECT_EQ(VYX_CreateEvent(1), nullptr);
                  iErrno = errno;
              }),
              "quelby !!! VYX_CreateEvent return error " + std::to_string(EMFILE) + " 0\n\n");
    EXPECT_EQ(iErrno, EMFILE);
    (void)Make();
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
}

TEST(Event, WaitForSeveral) {
    const struct {
        std::string events; // a letter each: s signalled, n not, 0 null
        uint32_t nResult;
    } cases[] = {
        {"sns", 0},
        {"nns", 2},
        {"0n0s", 3},
        {"00", VYX_WAIT_TIMEOUT},
        {std::string(VYX_WAIT_MAX_FDS, 'n') + "s", VYX_WAIT_TIMEOUT}, // more than one wait watches
        {"0" + std::string(VYX_WAIT_MAX_FDS - 1, 'n') + "s", VYX_WAIT_MAX_FDS},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.events);
        std::vector<Event> owners;
        std::vector<VYX_EVENT> events;
        for (char c : test.events) {
            if (c != '0')
                owners.push_back(Make(c == 's'));
            events.push_back(c == '0' ? nullptr : owners.back().get());
        }
        const auto nCount = static_cast<int32_t>(events.size());
        for (int32_t bWaitAll : {0, 1})
            EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), bWaitAll, 1), test.nResult);
    }
}

TEST(Event, TimeOuts) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    const std::function<uint32_t(uint32_t)> waits[] = {
        [&](uint32_t n) { return VYX_WaitForSingleObject(hEvent, n); },
        [&](uint32_t n) { return VYX_WaitForMultipleObjects(1, &hEvent, 1, n); },
        [&](uint32_t n) { return VYX_WaitForMultipleObjects(-1, &hEvent, 0, n); },
    };
    for (const auto &wait : waits) {
        for (uint32_t nTimeOut : {0U, 30U}) {
            SCOPED_TRACE(&wait - waits);
            const double fTook =
                support::MillisecondsOf([&] { EXPECT_EQ(wait(nTimeOut), VYX_WAIT_TIMEOUT); });
            EXPECT_GE(fTook, nTimeOut);
            EXPECT_LE(fTook, (nTimeOut + 20.0) * 10 * support::TimeScale());
        }
    }
}

TEST(Event, WakesAllWhoWait) {
    const Event event = Make();
    const Event other = Make();
    const VYX_EVENT events[] = {other.get(), event.get()};
    std::atomic<int> nReady{0};
    std::atomic<int> nWoken{0};
    const auto waiter = [&](uint32_t nTimeOut) {
        ++nReady;
        const bool bSingle = VYX_WaitForSingleObject(event.get(), nTimeOut) == 0;
        const bool bSeveral = VYX_WaitForMultipleObjects(2, events, 0, nTimeOut) == 1;
        nWoken += bSingle && bSeveral ? 1 : 0;
    };
    std::vector<std::thread> threads;
    for (uint32_t nTimeOut : {VYX_INFINITE, 0xFFFFFFFEU, 0x80000000U, 0x7FFFFFFFU})
        threads.emplace_back(waiter, nTimeOut);
    EXPECT_TRUE(support::WaitUntil([&] { return nReady == 4; }));
    EXPECT_EQ(nWoken, 0);
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(nWoken, 4);
}

constexpr int kEnough = 400;
std::atomic<int> s_nSignals;

// SIGALRM after some milliseconds, and then again and again if asked to.
void SetAlarm(int iFirst, int iAgain) {
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const struct itimerval never = {};
        if (++s_nSignals >= kEnough)
            (void)setitimer(ITIMER_REAL, &never, nullptr);
    };
    (void)sigaction(SIGALRM, &action, nullptr);
    const struct itimerval timer = {{0, iAgain * 1000}, {0, iFirst * 1000}};
    (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

TEST(Event, Interruptions) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    uint32_t nResult = 0;
    int iErrno = 0;
    const std::string errors = ErrorsOf([&] {
        SetAlarm(20, 20); // again, in case the first one comes before the wait
        nResult = VYX_WaitForSingleObject(hEvent, VYX_INFINITE);
        iErrno = errno;
        SetAlarm(0, 0);
    });
    EXPECT_EQ(nResult, 0x7FFFFFFCU);
    EXPECT_EQ(iErrno, EINTR);
    EXPECT_EQ(errors,
              "quelby VYX_WaitForSingleObject poll error return error " + std::to_string(EINTR) + " 3\n\n");

    SetAlarm(20, 20); // until the handler has had enough
    const double fTook = support::MillisecondsOf(
        [&] { EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 0, 120), VYX_WAIT_TIMEOUT); });
    SetAlarm(0, 0);
    EXPECT_GE(fTook, 120);
    EXPECT_LT(s_nSignals, kEnough) << "signals do not lengthen it";
}

// On a thread whose cancellation is pending. Only the waits are cancellation points.
TEST(Event, AllButWaitsFinishOnACancelledThread) {
    const auto fnCancelled = [](const std::function<void()> &fnCall) {
        std::thread([&] {
            (void)pthread_cancel(pthread_self());
            fnCall();
        }).join();
    };
    const long nBefore = support::OpenDescriptors();
    Event event;
    fnCancelled([&] { event = Make(true); });
    ASSERT_NE(event, nullptr);
    fnCancelled([&] { (void)VYX_SetEvent(event.get()); });
    EXPECT_TRUE(Signalled(event));
    fnCancelled([&] { (void)VYX_ResetEvent(event.get()); });
    EXPECT_FALSE(Signalled(event));
    fnCancelled([&] { (void)VYX_SetEvent(event.get()); });
    EXPECT_TRUE(Signalled(event));
    fnCancelled([&] { (void)VYX_EventSelect(STDIN_FILENO, event.get(), VYX_FD_READ); });
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
    event = Make();
    fnCancelled([&] { event.reset(); });
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
}

} // namespace
