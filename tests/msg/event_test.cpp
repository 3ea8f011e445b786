// Plain events as an application sees them, through the shared library.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
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

TEST(Event, StaysSignalledUntilItIsReset) {
    const Event event = Make(true);
    EXPECT_TRUE(Signalled(event));
    EXPECT_TRUE(Signalled(event));
    for (int nSets : {0, 1, 3}) {
        SCOPED_TRACE(nSets);
        EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
        EXPECT_FALSE(Signalled(event));
        for (int i = 0; i < nSets; ++i)
            EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
        EXPECT_EQ(Signalled(event), nSets > 0);
    }
    EXPECT_FALSE(Signalled(Make(false)));
}

TEST(Event, NullArguments) {
    VYX_NETWORKEVENTS_T found = {};
    const Event event = Make();
    const struct {
        const char *szName;
        std::function<uint32_t()> call;
        uint32_t nResult;
        std::string message;
    } cases[] = {
        {"close", [] { return uint32_t(VYX_CloseEvent(nullptr)); }, 0,
         "VYX_CloseEvent !hEvnet return error 0"},
        {"set", [] { return uint32_t(VYX_SetEvent(nullptr)); }, 0, "VYX_SetEvent !hEvent return error 0"},
        {"reset", [] { return uint32_t(VYX_ResetEvent(nullptr)); }, 0,
         "VYX_ResetEvent  !hEvent return error 0"},
        {"wait", [] { return VYX_WaitForSingleObject(nullptr, VYX_INFINITE); }, 0x7FFFFFFE,
         "VYX_WaitForSingleObject !hEvent return error 0"},
        {"wait for several", [] { return VYX_WaitForMultipleObjects(1, nullptr, 0, VYX_INFINITE); },
         0x7FFFFFFE, "VYX_WaitForMultipleObjects ((nEventCount < 0) || !hEvents) return error 0"},
        {"select without socket", [&] { return uint32_t(VYX_EventSelect(-1, event.get(), VYX_FD_READ)); },
         UINT32_MAX, "VYX_EventSelect input param error return error 0"},
        {"select without event", [] { return uint32_t(VYX_EventSelect(0, nullptr, VYX_FD_READ)); },
         UINT32_MAX, "VYX_EventSelect input param error return error 0"},
        {"select nothing", [&] { return uint32_t(VYX_EventSelect(0, event.get(), 0)); }, UINT32_MAX,
         "VYX_EventSelect input param error return error 0"},
        {"enumerate without socket", [&] { return uint32_t(VYX_EnumNetworkEvents(-1, event.get(), &found)); },
         UINT32_MAX, "VYX_EnumNetworkEvents input param error return error 0"},
        {"enumerate without event", [&] { return uint32_t(VYX_EnumNetworkEvents(0, nullptr, &found)); },
         UINT32_MAX, "VYX_EnumNetworkEvents input param error return error 0"},
        {"enumerate into nothing", [&] { return uint32_t(VYX_EnumNetworkEvents(0, event.get(), nullptr)); },
         UINT32_MAX, "VYX_EnumNetworkEvents input param error return error 0"},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        uint32_t nResult = 1;
        EXPECT_EQ(ErrorsOf([&] { nResult = test.call(); }), "quelby !!! " + test.message + "\n\n");
        EXPECT_EQ(nResult, test.nResult);
    }
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE); // no refused selection has closed the pipe
}

TEST(Event, OutOfDescriptors) {
    const long nBefore = support::OpenDescriptors();
    VYX_EVENT hEvent = nullptr;
    int iErrno = 0;
    const std::string errors = ErrorsOf([&] {
        const int iNext = dup(STDERR_FILENO); // the lowest that is free
        (void)close(iNext);
        for (rlim_t nSpare : {0U, 1U}) { // a pipe needs two
            const eventtest::DescriptorLimit limit(static_cast<rlim_t>(iNext) + nSpare);
            errno = 0;
            hEvent = VYX_CreateEvent(1);
            iErrno = errno;
            ASSERT_EQ(hEvent, nullptr);
            ASSERT_EQ(iErrno, EMFILE);
        }
    });
    const std::string message =
        "quelby !!! VYX_CreateEvent return error " + std::to_string(EMFILE) + " 0\n\n";
    EXPECT_EQ(errors, message + message);
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
    (void)Make();
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
}

TEST(Event, WaitForSeveral) {
    const struct {
        const char *szName;
        std::string events; // a letter each: s signalled, n not, 0 null
        uint32_t nResult;
    } cases[] = {
        {"first and last", "sns", 0},         {"last", "nns", 2}, {"none", "nnn", VYX_WAIT_TIMEOUT},
        {"null entries", "0n0s", 3},          {"all", "sss", 0},  {"only null", "00", VYX_WAIT_TIMEOUT},
        {"no entries", "", VYX_WAIT_TIMEOUT},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        std::vector<Event> owners;
        std::vector<VYX_EVENT> events(1); // never empty, so that its data is not null
        events.clear();
        for (char c : test.events) {
            if (c != '0')
                owners.push_back(Make(c == 's'));
            events.push_back(c == '0' ? nullptr : owners.back().get());
        }
        const auto nCount = static_cast<int32_t>(events.size());
        for (int32_t bWaitAll : {0, 1, -1}) {
            EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), bWaitAll, 0), test.nResult);
            EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), bWaitAll, 1), test.nResult);
        }
    }
}

TEST(Event, OneWaitWatches128) {
    constexpr size_t nEvents = VYX_WAIT_MAX_FDS + 2;
    std::vector<Event> owners(nEvents);
    std::vector<VYX_EVENT> events(nEvents);
    for (size_t i = 0; i < nEvents; ++i) {
        owners[i] = Make(i >= VYX_WAIT_MAX_FDS);
        events[i] = owners[i].get();
    }
    const auto nCount = static_cast<int32_t>(nEvents);
    EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), 0, 0), VYX_WAIT_TIMEOUT);
    ASSERT_EQ(VYX_SetEvent(events[127]), VYX_TRUE);
    EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), 0, VYX_INFINITE), 127U);
    events[5] = nullptr; // makes room for one more
    ASSERT_EQ(VYX_ResetEvent(events[127]), VYX_TRUE);
    EXPECT_EQ(VYX_WaitForMultipleObjects(nCount, events.data(), 0, VYX_INFINITE), 128U);
}

TEST(Event, TimeOuts) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    const struct {
        const char *szName;
        std::function<uint32_t(uint32_t)> wait;
    } waits[] = {
        {"one", [&](uint32_t n) { return VYX_WaitForSingleObject(hEvent, n); }},
        {"several", [&](uint32_t n) { return VYX_WaitForMultipleObjects(1, &hEvent, 1, n); }},
        {"none", [&](uint32_t n) { return VYX_WaitForMultipleObjects(0, &hEvent, 0, n); }},
        {"less than none", [&](uint32_t n) { return VYX_WaitForMultipleObjects(-1, &hEvent, 0, n); }},
    };
    for (const auto &test : waits) {
        for (uint32_t nTimeOut : {0U, 30U}) {
            SCOPED_TRACE(test.szName);
            const double fTook =
                support::MillisecondsOf([&] { EXPECT_EQ(test.wait(nTimeOut), VYX_WAIT_TIMEOUT); });
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

std::atomic<int64_t> s_iLastSignal; // when, in nanoseconds of the steady clock

void OnSignal(int) {
    s_iLastSignal = support::Clock::now().time_since_epoch().count();
}

// Sends SIGALRM after some milliseconds, and then again and again if asked to.
class Alarm {
  public:
    Alarm(int iMilliseconds, bool bAgain) {
        struct sigaction action = {};
        action.sa_handler = OnSignal;
        (void)sigaction(SIGALRM, &action, &m_before);
        const struct timeval time = {0, iMilliseconds * 1000};
        const struct itimerval timer = {bAgain ? time : timeval{}, time};
        (void)setitimer(ITIMER_REAL, &timer, nullptr);
    }
    ~Alarm() {
        const struct itimerval off = {};
        (void)setitimer(ITIMER_REAL, &off, nullptr);
        (void)sigaction(SIGALRM, &m_before, nullptr);
    }
    Alarm(const Alarm &) = delete;
    Alarm &operator=(const Alarm &) = delete;

  private:
    struct sigaction m_before = {};
};

TEST(Event, Interruptions) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    uint32_t nResult = 0;
    int iErrno = 0;
    const std::string errors = ErrorsOf([&] {
        const Alarm alarm(20, true); // again, in case the first one comes before the wait
        nResult = VYX_WaitForSingleObject(hEvent, VYX_INFINITE);
        iErrno = errno;
    });
    EXPECT_EQ(nResult, 0x7FFFFFFCU);
    EXPECT_EQ(iErrno, EINTR);
    EXPECT_EQ(errors,
              "quelby VYX_WaitForSingleObject poll error return error " + std::to_string(EINTR) + " 3\n\n");

    s_iLastSignal = 0;
    const Alarm alarm(50, false);
    EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 0, 120), VYX_WAIT_TIMEOUT);
    const int64_t iEnd = support::Clock::now().time_since_epoch().count();
    ASSERT_NE(s_iLastSignal, 0);
    EXPECT_GE(iEnd - s_iLastSignal, 120 * 1000 * 1000) << "the whole time-out passes after the signal";
}

TEST(Event, DescriptorsAbove1023) {
    const eventtest::DescriptorLimit limit(2048);
    std::vector<int> fillers;
    int iFiller = 0;
    while (iFiller != -1 && iFiller < 1030) {
        iFiller = open("/dev/null", O_RDONLY);
        fillers.push_back(iFiller);
    }
    if (iFiller == -1) {
        for (int i : fillers)
            (void)close(i);
        GTEST_SKIP() << "this process may not have more than " << fillers.size() << " descriptors open";
    }
    const Event event = Make();
    EXPECT_FALSE(Signalled(event));
    EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    EXPECT_TRUE(Signalled(event));
    EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    EXPECT_FALSE(Signalled(event));
    for (int i : fillers)
        (void)close(i);
}

} // namespace
