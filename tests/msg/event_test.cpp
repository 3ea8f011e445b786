// Events as an application sees them: set by hand, and what they tell about a socket after a multiple wait.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/msg.h>
#include <vyx/net.h>

#include "msg/event_inter.h"
#include "net/net_support.h"
#include "support/calls.h"
#include "support/support.h"
#include "support/temp_dir.h"

using nettest::Bound;
using nettest::Pair;
using nettest::Socket;
using support::ErrorsOf;

namespace {

struct Closer {
    void operator()(VYX_EVENT hEvent) const { EXPECT_EQ(VYX_CloseEvent(hEvent), VYX_TRUE); }
};
using Event = std::unique_ptr<std::remove_pointer_t<VYX_EVENT>, Closer>;

Event Make(bool bSignalled = false) {
    Event event(VYX_CreateEvent(bSignalled ? 1 : 0));
    EXPECT_NE(event, nullptr);
    return event;
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

TEST(Event, WakesAllWhoWait) {
    const Event event = Make();
    const VYX_EVENT events[] = {nullptr, event.get()};
    std::atomic<int> nReady{0};
    std::atomic<int> nWoken{0};
    std::vector<std::thread> threads;
    for (const uint32_t nTimeOut : {VYX_INFINITE, 0x80000000U, 0x7FFFFFFFU})
        threads.emplace_back([&, nTimeOut] {
            ++nReady;
            EXPECT_EQ(VYX_WaitForSingleObject(event.get(), nTimeOut), VYX_WAIT_OBJECT_0);
            EXPECT_EQ(VYX_WaitForMultipleObjects(2, events, 0, nTimeOut), VYX_WAIT_OBJECT_0 + 1);
            ++nWoken;
        });
    EXPECT_TRUE(support::WaitUntil([&] { return nReady == 3; }));
    EXPECT_EQ(nWoken, 0);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_TRUE);
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_TRUE);
    EXPECT_EQ(VYX_WaitForSingleObject(event.get(), 0), VYX_WAIT_TIMEOUT) << "though it was set twice";
}

TEST(Event, Interruptions) {
    const Event event = Make();
    const VYX_EVENT hEvent = event.get();
    (void)signal(SIGALRM, [](int) {});
    const struct itimerval often = {{0, 20000}, {0, 20000}};
    (void)setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_WaitForSingleObject(hEvent, VYX_INFINITE), 0x7FFFFFFCU); }),
              "quelby VYX_WaitForSingleObject poll error return error " + std::to_string(EINTR) + " 3\n\n");
    EXPECT_EQ(support::ErrnoOf([&] { (void)VYX_WaitForSingleObject(hEvent, VYX_INFINITE); }), EINTR);
    const double fTook = support::MillisecondsOf(
        [&] { EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 0, 120), VYX_WAIT_TIMEOUT); });
    EXPECT_GE(fTook, 120);
    const struct itimerval never = {};
    (void)setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(Event, ClosingWaitsForASetterAboutToLeave) {
    Event event = Make();
    std::atomic<bool> bLeft{false};
    ++event->nInside;
    std::thread setter([&, pEvent = event.get()] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // nothing tells that the closing waits
        bLeft = true;
        --pEvent->nInside;
    });
    event.reset();
    EXPECT_TRUE(bLeft);
    setter.join();
}

constexpr char kNoPipe[] = "quelby !!! VYX_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n\n";

// A socket whose attempt to connect is refused: its peer is bound, but does not listen.
Socket Refused() {
    const Socket nobody(AF_INET, SOCK_STREAM);
    VYX_ADDR_T address = nettest::Loopback(AF_INET);
    EXPECT_EQ(VYX_Bind(nobody, &address), 0);
    address = nettest::LocalOf(nobody);
    Socket socket(AF_INET, SOCK_STREAM);
    EXPECT_EQ(VYX_SetNonBlock(socket, 1), 0);
    EXPECT_EQ(connect(socket, &address.sa, sizeof address.in4), -1);
    return socket;
}

Event Selected(int iSocket, int32_t lAsked) {
    Event event = Make();
    EXPECT_EQ(VYX_EventSelect(iSocket, event.get(), lAsked), VYX_OK);
    return event;
}

constexpr int32_t kNothing = -1; // the wait ran out

// With -7 where nothing was written.
VYX_NETWORKEVENTS_T Enumerate(const Event &event) {
    VYX_NETWORKEVENTS_T found = {-7, {-7, -7, -7, -7, -7, -7, -7, -7, -7, -7}};
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_EnumNetworkEvents(0, event.get(), &found), VYX_OK); }), kNoPipe);
    return found;
}

// What the enumeration tells after a wait, or kNothing.
int32_t Seen(const Event &event, uint32_t nTimeOut) {
    const VYX_EVENT hEvent = event.get();
    const uint32_t nResult = VYX_WaitForMultipleObjects(1, &hEvent, 0, nTimeOut);
    return nResult == VYX_WAIT_OBJECT_0 ? Enumerate(event).lNetworkEvents : kNothing;
}

// Whether something is seen soon that is not there yet.
bool SeenSoon(const Event &event, int32_t lExpected) {
    return support::WaitUntil([&] { return Seen(event, 0) == lExpected; });
}

TEST(SocketEvent, Streams) {
    enum Peer { kQuiet, kTalks, kTalksAndCloses, kCloses, kHalfCloses, kResets };
    const struct {
        const char *szName;
        int32_t lAsked;
        Peer peer;
        int32_t lSeen;
        int32_t lSeenAfterReading;
    } cases[] = {
        {"read, nothing", VYX_FD_READ, kQuiet, kNothing, kNothing},
        {"read, data and close", VYX_FD_READ, kTalksAndCloses, VYX_FD_READ, VYX_FD_CLOSE},
        {"read, half-close", VYX_FD_READ, kHalfCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"read, reset", VYX_FD_READ, kResets, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"close, data", VYX_FD_CLOSE, kTalks, VYX_FD_READ, kNothing},
        {"close, close", VYX_FD_CLOSE, kCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"write, data", VYX_FD_WRITE, kTalks, VYX_FD_WRITE, VYX_FD_WRITE},
        {"both, data", VYX_FD_READ | VYX_FD_WRITE, kTalks, VYX_FD_READ, VYX_FD_WRITE},
        {"both, half-close", VYX_FD_CLOSE | VYX_FD_WRITE, kHalfCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"connect and read, data", VYX_FD_CONNECT | VYX_FD_READ, kTalks, VYX_FD_CONNECT, VYX_FD_CONNECT},
        {"accept, data", VYX_FD_ACCEPT, kTalks, VYX_FD_ACCEPT, kNothing},
        {"accept and write, nothing", VYX_FD_ACCEPT | VYX_FD_WRITE, kQuiet, VYX_FD_WRITE, VYX_FD_WRITE},
        {"unknown bit, data", 4, kTalks, kNothing, kNothing},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        Pair pair;
        if (test.peer == kTalks || test.peer == kTalksAndCloses)
            (void)VYX_Send(pair.server, "data", 4);
        if (test.peer == kHalfCloses)
            (void)VYX_ShutDown(pair.server, SHUT_WR);
        if (test.peer == kResets)
            (void)VYX_LingerOn(pair.server, 0);
        if (test.peer == kCloses || test.peer == kTalksAndCloses || test.peer == kResets)
            pair.server.Close();
        const Event event = Selected(pair.client, test.lAsked);
        EXPECT_TRUE(SeenSoon(event, test.lSeen));
        EXPECT_EQ(Seen(event, 0), test.lSeen) << "nothing is used up";
        char szData[8];
        while (VYX_Recv(pair.client, szData, 4) == 4) {
        }
        EXPECT_TRUE(SeenSoon(event, test.lSeenAfterReading));
    }
}

// A listening socket does not tell a number of bytes: that error is noted and outlives a failed connect, not a
// good one.
TEST(SocketEvent, ErrorCodes) {
    const Socket bad = Refused();
    const Event refused = Selected(bad, VYX_FD_CONNECT);
    EXPECT_EQ(Seen(refused, VYX_INFINITE), VYX_FD_CONNECT);
    EXPECT_EQ(Enumerate(refused).iErrorCode[4], -7) << "the error is dropped";
    int iError = -1;
    socklen_t nLength = sizeof iError;
    ASSERT_EQ(getsockopt(bad, SOL_SOCKET, SO_ERROR, &iError, &nLength), 0);
    EXPECT_EQ(iError, 0) << "and taken off the socket";

    const Socket listener = Bound(AF_INET);
    int iBytes = 0;
    if (ioctl(listener, FIONREAD, &iBytes) == 0)
        GTEST_SKIP() << "here a listening socket tells a number of bytes";
    iError = errno;
    const Socket client(AF_INET, SOCK_STREAM);
    const VYX_ADDR_T address = nettest::LocalOf(listener);
    ASSERT_EQ(connect(client, &address.sa, sizeof address.in4), 0);
    const Event event = Selected(listener, VYX_FD_ACCEPT | VYX_FD_READ);
    EXPECT_EQ(Seen(event, VYX_INFINITE), 0);
    EXPECT_EQ(Enumerate(event).iErrorCode[4], -7) << "no connect was asked for";
    const Socket again = Refused();
    ASSERT_EQ(VYX_EventSelect(again, event.get(), VYX_FD_CONNECT), VYX_OK);
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_CONNECT);
    const VYX_NETWORKEVENTS_T found = Enumerate(event);
    for (int i = 0; i < VYX_FD_MAX_EVENTS; ++i)
        EXPECT_EQ(found.iErrorCode[i], i == 4 ? iError : -7);
    ASSERT_EQ(VYX_EventSelect(client, event.get(), VYX_FD_CONNECT), VYX_OK);
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_CONNECT);
    EXPECT_EQ(Enumerate(event).iErrorCode[4], -7);
}

TEST(SocketEvent, OtherCallsRefuse) {
    const Pair pair;
    const Event event = Selected(pair.client, VYX_FD_READ);
    const VYX_EVENT hEvent = event.get();
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_WaitForSingleObject(hEvent, 9), 0x7FFFFFFDU); }), kNoPipe);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ResetEvent(hEvent), VYX_FALSE); }),
              "quelby !!! VYX_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n\n");
    errno = 7;
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_SetEvent(hEvent), VYX_FALSE); }),
              "quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = 7\n"
              "quelby !!! VYX_SetEvent write pipe return error 7 2\n\n");
    VYX_NETWORKEVENTS_T found = {};
    EXPECT_EQ(VYX_EventSelect(-1, hEvent, VYX_FD_READ), VYX_ERROR);
    EXPECT_EQ(VYX_EventSelect(pair.client, hEvent, 0), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(-1, hEvent, &found), VYX_ERROR);
    EXPECT_EQ(VYX_EnumNetworkEvents(pair.client, hEvent, nullptr), VYX_ERROR);
}

TEST(SocketEvent, LifeOfTheSocket) {
    Pair first;
    const Pair second;
    const long nBefore = support::OpenDescriptors();
    Event event = Make(true);
    ASSERT_EQ(VYX_EventSelect(first.client, event.get(), VYX_FD_READ), VYX_OK);
    EXPECT_EQ(support::OpenDescriptors(), nBefore) << "the pipe is closed";
    EXPECT_EQ(Seen(event, 0), kNothing) << "and its signal is gone";
    EXPECT_EQ(Enumerate(event).lNetworkEvents, 0) << "nothing noted yet";
    EXPECT_NE(fcntl(first.client, F_GETFL) & O_NONBLOCK, 0);

    EXPECT_EQ(VYX_Send(first.server, "a", 1), 1);
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_READ);
    ASSERT_EQ(VYX_EventSelect(second.client, event.get(), VYX_FD_WRITE | VYX_FD_READ), VYX_OK);
    EXPECT_EQ(Enumerate(event).lNetworkEvents, VYX_FD_READ) << "an old note stays";
    EXPECT_EQ(Seen(event, 0), VYX_FD_WRITE) << "the new socket counts";

    event.reset();
    char c = 0;
    EXPECT_EQ(VYX_Recv(first.client, &c, 1), 1) << "sockets are the caller's";
    const Event signalled = Make(true);
    const int iClosed = first.client;
    first.client.Close();
    for (const int32_t lAsked : {VYX_FD_READ, VYX_FD_CONNECT})
        EXPECT_EQ(Seen(Selected(iClosed, lAsked), VYX_INFINITE), kNothing) << "at once";
    event = Selected(iClosed, VYX_FD_READ);
    const VYX_EVENT hEvents[] = {event.get(), signalled.get()};
    const uint32_t nOfTwo = VYX_WaitForMultipleObjects(2, hEvents, 0, 0);
    const uint32_t nOfOne = VYX_WaitForMultipleObjects(1, hEvents, 0, 0); // nothing in between uses the stack
    EXPECT_EQ(nOfTwo, VYX_WAIT_OBJECT_0 + 1);
    EXPECT_EQ(nOfOne, VYX_WAIT_TIMEOUT) << "only the descriptors of this wait count";
}

} // namespace
