// Plain events as an application sees them, through the shared library.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "msg/event_support.h"
#include "support/calls.h"
#include "support/support.h"
#include "support/temp_dir.h"

using eventtest::Event;
using eventtest::Make;
using eventtest::Signalled;
using support::EndsThoughCancelled;
using support::ErrorsOf;

namespace {

TEST(Event, RefusalsChangeNothing) {
    const Event event = Make();
    VYX_NETWORKEVENTS_T found = {};
    EXPECT_EQ(VYX_EventSelect(-1, event.get(), VYX_FD_READ), VYX_ERROR);
    EXPECT_EQ(VYX_EventSelect(0, nullptr, VYX_FD_READ), VYX_ERROR);
    EXPECT_EQ(VYX_EventSelect(0, event.get(), 0), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(-1, event.get(), &found), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(0, nullptr, &found), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(0, event.get(), nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE); // the pipe is open
}

TEST(Event, OutOfDescriptors) {
    const std::string errors = ErrorsOf([] {
        const int iNext = dup(STDERR_FILENO); // the lowest that is free
        (void)close(iNext);
        const rlim_t nBefore =
            eventtest::LimitDescriptors(static_cast<rlim_t>(iNext) + 1); // a pipe needs two
        EXPECT_EQ(VYX_CreateEvent(1), nullptr);
        (void)eventtest::LimitDescriptors(nBefore);
    });
    EXPECT_EQ(errors, "quelby !!! VYX_CreateEvent return error " + std::to_string(EMFILE) + " 0\n\n");
    EXPECT_EQ(support::ErrnoOf([] {
                  const rlim_t nBefore = eventtest::LimitDescriptors(STDERR_FILENO + 1); // that one is free
                  EXPECT_EQ(VYX_CreateEvent(1), nullptr);
                  (void)eventtest::LimitDescriptors(nBefore);
              }),
              EMFILE);
}

TEST(Event, WaitForSeveral) {
    const std::string most(VYX_WAIT_MAX_FDS - 2, 'n'); // two less than one wait watches
    const struct {
        std::string events; // s signalled, n not, 0 null, c a connected socket, which takes two descriptors
        uint32_t nResult;
    } cases[] = {
        {"sns", 0},
        {"nns", 2},
        {"0n0s", 3},
        {"00", VYX_WAIT_TIMEOUT},
        {"0" + most + "ns", VYX_WAIT_MAX_FDS},
        {most + "nns", VYX_WAIT_TIMEOUT},
        {most + "c", VYX_WAIT_MAX_FDS - 2},
        {most + "nc", VYX_WAIT_TIMEOUT}, // that it can be written to is not seen any more
        {most + "nnc", VYX_WAIT_TIMEOUT},
    };
    int iEnds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, iEnds), 0);
    for (const auto &test : cases) {
        SCOPED_TRACE(test.events);
        std::vector<Event> owners;
        std::vector<VYX_EVENT> events;
        for (char c : test.events) {
            owners.push_back(c == '0' ? nullptr : Make(c == 's'));
            events.push_back(owners.back().get());
            EXPECT_EQ(c == 'c' ? VYX_EventSelect(iEnds[0], events.back(), VYX_FD_CONNECT) : VYX_OK, VYX_OK);
        }
        const auto nCount = static_cast<int32_t>(events.size());
        for (int32_t bWaitAll : {0, 1})
            EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), bWaitAll, 1), test.nResult);
    }
    for (const int iEnd : iEnds)
        (void)close(iEnd);
}

TEST(Event, TimeOuts) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    for (const uint32_t nTimeOut : {0U, 30U}) {
        const double fTook = support::MillisecondsOf([&] {
            EXPECT_EQ(VYX_WaitForSingleObject(hEvent, nTimeOut), VYX_WAIT_TIMEOUT);
            EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 1, nTimeOut), VYX_WAIT_TIMEOUT);
            EXPECT_EQ(VYX_WaitForMultipleObjects(-1, &hEvent, 0, nTimeOut), VYX_WAIT_TIMEOUT);
        });
        EXPECT_GE(fTook, 3 * nTimeOut);
        EXPECT_LE(fTook, (nTimeOut + 20.0) * 10 * support::TimeScale());
    }
}

TEST(Event, WakesAllWhoWait) {
    const Event event = Make();
    const VYX_EVENT events[] = {nullptr, event.get()};
    std::atomic<int> nReady{0};
    std::atomic<int> nWoken{0};
    std::vector<std::thread> threads;
    for (const uint32_t nTimeOut : {VYX_INFINITE, 0xFFFFFFFEU, 0x80000000U, 0x7FFFFFFFU})
        for (const bool bSingle : {true, false})
            threads.emplace_back([&, nTimeOut, bSingle] {
                ++nReady;
                nWoken += (bSingle ? VYX_WaitForSingleObject(event.get(), nTimeOut) == 0
                                   : VYX_WaitForMultipleObjects(2, events, 0, nTimeOut) == 1)
                              ? 1
                              : 100;
            });
    EXPECT_TRUE(support::WaitUntil([&] { return nReady == 8; }));
    EXPECT_EQ(nWoken, 0);
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(nWoken, 8);
}

constexpr int kEnough = 400;
std::atomic<int> s_nSignals;

// SIGALRM each so many milliseconds, until it was enough. 0: never again.
void SetAlarm(int iMillis) {
    const struct itimerval timer = {{0, iMillis * 1000}, {0, iMillis * 1000}};
    (void)signal(SIGALRM, [](int) {
        if (++s_nSignals >= kEnough)
            SetAlarm(0);
    });
    (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

TEST(Event, Interruptions) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    SetAlarm(20);
    const std::string errors =
        ErrorsOf([&] { EXPECT_EQ(VYX_WaitForSingleObject(hEvent, VYX_INFINITE), 0x7FFFFFFCU); });
    EXPECT_EQ(errors,
              "quelby VYX_WaitForSingleObject poll error return error " + std::to_string(EINTR) + " 3\n\n");
    EXPECT_EQ(support::ErrnoOf([&] { (void)VYX_WaitForSingleObject(hEvent, VYX_INFINITE); }), EINTR);
    const double fTook = support::MillisecondsOf(
        [&] { EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 0, 120), VYX_WAIT_TIMEOUT); });
    EXPECT_GE(fTook, 120);
    EXPECT_LT(s_nSignals, kEnough) << "signals do not lengthen it";
    SetAlarm(0);
}

// On a thread whose cancellation is pending.
TEST(Event, AllButWaitsFinishOnACancelledThread) {
    const long nBefore = support::OpenDescriptors();
    Event event;
    EXPECT_TRUE(EndsThoughCancelled([&] { event = Make(true); }));
    EXPECT_FALSE(EndsThoughCancelled([&] {
        for (;;)
            (void)VYX_ResetEvent(event.get());
    }));
    EXPECT_FALSE(Signalled(event));
    EXPECT_FALSE(EndsThoughCancelled([&] {
        for (;;)
            (void)VYX_SetEvent(event.get());
    }));
    EXPECT_TRUE(Signalled(event));
    EXPECT_TRUE(EndsThoughCancelled([&] { (void)VYX_EventSelect(STDIN_FILENO, event.get(), VYX_FD_READ); }));
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
    event = Make();
    EXPECT_TRUE(EndsThoughCancelled([&] { event.reset(); }));
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
}

} // namespace
