// Socket events as an application sees them: what a multiple wait and the enumeration after it tell about a
// socket.
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <vyx/net.h>

#include "msg/event_support.h"
#include "net/net_support.h"
#include "support/calls.h"
#include "support/support.h"
#include "support/temp_dir.h"

using eventtest::Event;
using eventtest::kNoPipe;
using eventtest::Make;
using nettest::Bound;
using nettest::Pair;
using nettest::Socket;
using support::ErrorsOf;

namespace {

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
    EXPECT_EQ(support::ErrnoOf([&] { errno = 7, VYX_SetEvent(hEvent); }), 7);
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

TEST(SocketEvent, EnumerationLeavesAPlainEventAlone) {
    const Event plain = Make(true);
    VYX_NETWORKEVENTS_T found = {-7, {}};
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_EnumNetworkEvents(0, plain.get(), &found), VYX_OK); }), "");
    EXPECT_EQ(found.lNetworkEvents, 0);
    EXPECT_EQ(VYX_SetEvent(plain.get()), VYX_TRUE);
    EXPECT_TRUE(eventtest::Signalled(plain));
}

} // namespace
