// Socket events as an application sees them: what a multiple wait and the enumeration after it tell about a
// socket.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <vyx/net.h>

#include "msg/event_support.h"
#include "support/support.h"
#include "support/temp_dir.h"

using eventtest::ErrorsOf;
using eventtest::Event;
using eventtest::kNoPipe;
using eventtest::Make;

namespace {

// A socket that closes itself.
class Socket {
  public:
    explicit Socket(int iFd) : m_iFd(iFd) { EXPECT_NE(iFd, -1); }
    ~Socket() { Close(); }
    Socket(Socket &&other) noexcept : m_iFd(std::exchange(other.m_iFd, -1)) {}
    Socket &operator=(Socket &&) = delete;
    operator int() const { return m_iFd; }
    void Close() {
        if (m_iFd != -1)
            (void)close(std::exchange(m_iFd, -1));
    }
    void Reset() { // closes with a reset of the connection
        EXPECT_EQ(VYX_LingerOn(m_iFd, 0), 0);
        Close();
    }

  private:
    int m_iFd;
};

// A TCP socket or UDP socket bound to the loopback address, and that address.
struct Bound {
    explicit Bound(int iType) : socket(VYX_CreateSocket(AF_INET, iType, 0)) {
        address.in4.sin_family = AF_INET;
        address.in4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nLength = sizeof address.in4;
        EXPECT_EQ(bind(socket, &address.sa, nLength), 0);
        EXPECT_EQ(getsockname(socket, &address.sa, &nLength), 0);
    }
    Socket socket;
    VYX_ADDR_T address = {};
};

struct Listener : Bound {
    Listener() : Bound(SOCK_STREAM) { EXPECT_EQ(VYX_Listen(socket, 4), 0); }
};

// Starts a connection without waiting for it.
Socket Connecting(const VYX_ADDR_T &to) {
    Socket socket(VYX_CreateSocket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(VYX_SetNonBlock(socket, 1), 0);
    EXPECT_TRUE(connect(socket, &to.sa, sizeof to.in4) == 0 || errno == EINPROGRESS || errno == ECONNREFUSED);
    return socket;
}

struct Pair {
    explicit Pair(Listener listener = Listener())
        : ours(Connecting(listener.address)), peer(VYX_Accept(listener.socket, nullptr, VYX_INFINITE)) {}
    Socket ours;
    Socket peer;
};

Event Selected(int iSocket, int32_t lAsked) {
    Event event = Make();
    EXPECT_EQ(VYX_EventSelect(iSocket, event.get(), lAsked), VYX_OK);
    return event;
}

constexpr int32_t kNothing = -1; // the wait ran out

VYX_NETWORKEVENTS_T Enumerate(const Event &event) {
    VYX_NETWORKEVENTS_T found = {-7, {-7, -7, -7, -7, -7, -7, -7, -7, -7, -7}};
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_EnumNetworkEvents(0, event.get(), &found), VYX_OK); }), kNoPipe);
    return found;
}

// What the enumeration tells after a wait, or kNothing.
int32_t Seen(const Event &event, uint32_t nTimeOut) {
    const VYX_EVENT hEvent = event.get();
    const uint32_t nResult = VYX_WaitForMultipleObjects(1, &hEvent, 0, nTimeOut);
    if (nResult == VYX_WAIT_TIMEOUT)
        return kNothing;
    EXPECT_EQ(nResult, VYX_WAIT_OBJECT_0);
    return Enumerate(event).lNetworkEvents;
}

// Whether something is seen soon that is not there yet.
bool SeenSoon(const Event &event, int32_t lExpected) {
    return support::WaitUntil([&] { return Seen(event, 0) == lExpected; });
}

void Say(int iSocket, const char *szText) {
    const auto iLength = static_cast<int32_t>(std::string(szText).size());
    ASSERT_EQ(VYX_Send(iSocket, szText, iLength), iLength);
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
        {"read, data", VYX_FD_READ, kTalks, VYX_FD_READ, kNothing},
        {"read, data and close", VYX_FD_READ, kTalksAndCloses, VYX_FD_READ, VYX_FD_CLOSE},
        {"read, close", VYX_FD_READ, kCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"read, half-close", VYX_FD_READ, kHalfCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"read, reset", VYX_FD_READ, kResets, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"close, data", VYX_FD_CLOSE, kTalks, VYX_FD_READ, kNothing},
        {"close, close", VYX_FD_CLOSE, kCloses, VYX_FD_CLOSE, VYX_FD_CLOSE},
        {"write, nothing", VYX_FD_WRITE, kQuiet, VYX_FD_WRITE, VYX_FD_WRITE},
        {"write, data", VYX_FD_WRITE, kTalks, VYX_FD_WRITE, VYX_FD_WRITE},
        {"both, nothing", VYX_FD_READ | VYX_FD_WRITE, kQuiet, VYX_FD_WRITE, VYX_FD_WRITE},
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
            Say(pair.peer, "data");
        if (test.peer == kCloses || test.peer == kTalksAndCloses)
            pair.peer.Close();
        if (test.peer == kHalfCloses) {
            ASSERT_EQ(VYX_ShutDown(pair.peer, SHUT_WR), 0);
        }
        if (test.peer == kResets)
            pair.peer.Reset();
        const Event event = Selected(pair.ours, test.lAsked);
        EXPECT_TRUE(SeenSoon(event, test.lSeen));
        EXPECT_EQ(Seen(event, 0), test.lSeen) << "nothing is used up";
        char szData[8];
        while (VYX_Recv(pair.ours, szData, 4) == 4) {
        }
        EXPECT_TRUE(SeenSoon(event, test.lSeenAfterReading));
    }
}

TEST(SocketEvent, WritableAgainWhenThePeerReads) {
    Pair pair;
    const Event event = Selected(pair.ours, VYX_FD_WRITE);
    const std::vector<char> block(65536, 'x');
    const auto iBlock = static_cast<int32_t>(block.size());
    EXPECT_TRUE(support::WaitUntil([&] { // what is sent moves on to the peer for a moment
        while (VYX_Send(pair.ours, block.data(), iBlock) > 0) {
        }
        return Seen(event, 20) == kNothing;
    }));
    ASSERT_EQ(VYX_SetNonBlock(pair.peer, 1), 0);
    std::vector<char> sink(block.size());
    EXPECT_TRUE(support::WaitUntil([&] {
        while (VYX_Recv(pair.peer, sink.data(), iBlock) > 0) {
        }
        return Seen(event, 0) == VYX_FD_WRITE;
    }));
}

TEST(SocketEvent, Datagrams) {
    Bound receiver(SOCK_DGRAM);
    const Bound sender(SOCK_DGRAM);
    const Event event = Selected(receiver.socket, VYX_FD_READ);
    EXPECT_EQ(Seen(event, 0), kNothing);
    char szData[8];
    const struct {
        int32_t iLength;
        int32_t lSeen;
    } cases[] = {{3, VYX_FD_READ}, {0, VYX_FD_CLOSE}};
    for (const auto &test : cases) {
        ASSERT_EQ(VYX_SendTo(sender.socket, "abc", test.iLength, &receiver.address), test.iLength);
        EXPECT_EQ(Seen(event, VYX_INFINITE), test.lSeen);
        EXPECT_EQ(VYX_Recv(receiver.socket, szData, sizeof szData), test.iLength);
    }
}

TEST(SocketEvent, Accept) {
    Listener listener;
    const Event event = Selected(listener.socket, VYX_FD_ACCEPT);
    EXPECT_EQ(Seen(event, 0), kNothing);
    for (int i = 0; i < 2; ++i) {
        const Socket client = Connecting(listener.address);
        EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_ACCEPT);
        const Socket accepted(VYX_Accept(listener.socket, nullptr, VYX_INFINITE));
        EXPECT_EQ(Seen(event, 0), kNothing);
    }
    EXPECT_EQ(VYX_Accept(listener.socket, nullptr, VYX_INFINITE), -1) << "the socket does not block";
}

TEST(SocketEvent, Connect) {
    Listener listener;
    const Socket good = Connecting(listener.address);
    const Event connected = Selected(good, VYX_FD_CONNECT);
    EXPECT_EQ(Seen(connected, VYX_INFINITE), VYX_FD_CONNECT);

    listener.socket.Close();
    const Socket bad = Connecting(listener.address);
    const Event refused = Selected(bad, VYX_FD_CONNECT);
    EXPECT_EQ(Seen(refused, VYX_INFINITE), VYX_FD_CONNECT);
    EXPECT_EQ(Enumerate(refused).iErrorCode[4], -7) << "the error is dropped";
    int iError = -1;
    socklen_t nLength = sizeof iError;
    ASSERT_EQ(getsockopt(bad, SOL_SOCKET, SO_ERROR, &iError, &nLength), 0);
    EXPECT_EQ(iError, 0) << "and taken off the socket";
}

// A listening socket does not tell a number of bytes: the error is noted and outlives a failed connect, not a
// good one.
TEST(SocketEvent, ErrorCodes) {
    Listener listener;
    const Socket client = Connecting(listener.address);
    int iBytes = 0;
    if (ioctl(listener.socket, FIONREAD, &iBytes) == 0)
        GTEST_SKIP() << "here a listening socket tells a number of bytes";
    const int iError = errno;
    const Event event = Selected(listener.socket, VYX_FD_ACCEPT | VYX_FD_READ);
    EXPECT_EQ(Seen(event, VYX_INFINITE), 0);
    EXPECT_EQ(Enumerate(event).iErrorCode[4], -7) << "no connect was asked for";

    const Bound nobody(SOCK_STREAM); // bound but not listening: refuses
    const Socket bad = Connecting(nobody.address);
    ASSERT_EQ(VYX_EventSelect(bad, event.get(), VYX_FD_CONNECT), VYX_OK);
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_CONNECT);
    VYX_NETWORKEVENTS_T found = Enumerate(event);
    for (int i = 0; i < VYX_FD_MAX_EVENTS; ++i)
        EXPECT_EQ(found.iErrorCode[i], i == 4 ? iError : -7);

    ASSERT_EQ(VYX_EventSelect(client, event.get(), VYX_FD_CONNECT), VYX_OK);
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_CONNECT);
    EXPECT_EQ(Enumerate(event).iErrorCode[4], -7);
}

TEST(SocketEvent, OtherCallsRefuse) {
    const Pair pair;
    const Event event = Selected(pair.ours, VYX_FD_READ);
    uint32_t nResult = 0;
    EXPECT_EQ(ErrorsOf([&] { nResult = VYX_WaitForSingleObject(event.get(), VYX_INFINITE); }), kNoPipe);
    EXPECT_EQ(nResult, 0x7FFFFFFDU);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ResetEvent(event.get()), VYX_FALSE); }),
              "quelby !!! VYX_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n\n");
    const std::string errors = ErrorsOf([&] {
        errno = ENOENT;
        EXPECT_EQ(VYX_SetEvent(event.get()), VYX_FALSE);
    });
    const std::string number = std::to_string(ENOENT);
    EXPECT_EQ(errors, "quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = " + number +
                          "\nquelby !!! VYX_SetEvent write pipe return error " + number + " 2\n\n");

    const int iStderr = dup(STDERR_FILENO); // messages that cannot be written leave errno alone, too
    ASSERT_EQ(close(STDERR_FILENO), 0);
    errno = ENOENT;
    const int32_t bSet = VYX_SetEvent(event.get());
    const int iErrno = errno;
    ASSERT_EQ(dup2(iStderr, STDERR_FILENO), STDERR_FILENO);
    (void)close(iStderr);
    EXPECT_EQ(bSet, VYX_FALSE);
    EXPECT_EQ(iErrno, ENOENT);
}

TEST(SocketEvent, LifeOfTheSocket) {
    Pair first;
    const Pair second;
    const long nBefore = support::OpenDescriptors();
    Event event = Make(true);
    EXPECT_EQ(support::OpenDescriptors(), nBefore + 2);
    ASSERT_EQ(VYX_EventSelect(first.ours, event.get(), VYX_FD_READ), VYX_OK);
    EXPECT_EQ(support::OpenDescriptors(), nBefore) << "the pipe is closed";
    EXPECT_EQ(Seen(event, 0), kNothing) << "and its signal is gone";
    EXPECT_NE(fcntl(first.ours, F_GETFL) & O_NONBLOCK, 0);

    Say(first.peer, "a");
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_READ);
    ASSERT_EQ(VYX_EventSelect(second.ours, event.get(), VYX_FD_WRITE | VYX_FD_READ), VYX_OK);
    EXPECT_EQ(Enumerate(event).lNetworkEvents, VYX_FD_READ) << "an old note stays";
    EXPECT_EQ(Seen(event, 0), VYX_FD_WRITE) << "the new socket counts";

    event.reset();
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
    char c = 0;
    EXPECT_EQ(VYX_Recv(first.ours, &c, 1), 1);
    Say(second.ours, "b");
    EXPECT_EQ(VYX_Recv(second.peer, &c, 1), 1);
}

TEST(SocketEvent, BadSocket) {
    Pair pair;
    const Event event = Selected(pair.ours, VYX_FD_READ);
    pair.ours.Close();
    EXPECT_EQ(Seen(event, VYX_INFINITE), kNothing) << "at once";
    const int iUnused = dup(STDERR_FILENO);
    ASSERT_EQ(close(iUnused), 0);
    const Event unbound = Selected(iUnused, VYX_FD_CONNECT);
    EXPECT_EQ(Seen(unbound, VYX_INFINITE), kNothing);
}

TEST(SocketEvent, EnumerationPrintsAndKeeps) {
    const Pair pair;
    const Event event = Selected(pair.ours, VYX_FD_WRITE);
    EXPECT_EQ(Enumerate(event).lNetworkEvents, 0) << "no wait yet";
    EXPECT_EQ(Seen(event, 0), VYX_FD_WRITE);
    for (int i = 0; i < 2; ++i) {
        const VYX_NETWORKEVENTS_T found = Enumerate(event);
        EXPECT_EQ(found.lNetworkEvents, VYX_FD_WRITE);
        for (int32_t iError : found.iErrorCode)
            EXPECT_EQ(iError, -7);
    }

    const Event plain = Make(true); // nothing to tell, nothing printed, and it works as before
    VYX_NETWORKEVENTS_T found = {-7, {}};
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_EnumNetworkEvents(0, plain.get(), &found), VYX_OK); }), "");
    EXPECT_EQ(found.lNetworkEvents, 0);
    EXPECT_TRUE(eventtest::Signalled(plain));
    EXPECT_EQ(VYX_ResetEvent(plain.get()), VYX_TRUE);
    EXPECT_EQ(VYX_SetEvent(plain.get()), VYX_TRUE);
}

TEST(SocketEvent, TogetherWithPlainOnes) {
    const Pair pair;
    const Event plain = Make();
    const Event socket = Selected(pair.ours, VYX_FD_READ);
    const Event last = Make(true);
    const VYX_EVENT events[] = {plain.get(), nullptr, socket.get(), last.get()};
    EXPECT_EQ(VYX_WaitForMultipleObjects(4, events, 0, VYX_INFINITE), 3U);
    EXPECT_EQ(Enumerate(socket).lNetworkEvents, 0);
    Say(pair.peer, "a");
    EXPECT_TRUE(support::WaitUntil([&] { return VYX_WaitForMultipleObjects(4, events, 0, 0) == 2U; }));
    EXPECT_EQ(Enumerate(socket).lNetworkEvents, VYX_FD_READ);
    ASSERT_EQ(VYX_SetEvent(plain.get()), VYX_TRUE);
    EXPECT_EQ(VYX_WaitForMultipleObjects(4, events, 1, 0), 0U);
}

TEST(SocketEvent, DescriptorsAbove1023) {
    const eventtest::DescriptorLimit limit(2048);
    Pair pair;
    const int iHigh = fcntl(pair.ours, F_DUPFD, 1500);
    if (iHigh == -1)
        GTEST_SKIP() << "this process may not have descriptors that high";
    const Socket high(iHigh);
    const Event event = Selected(high, VYX_FD_READ | VYX_FD_CLOSE);
    EXPECT_EQ(Seen(event, 0), kNothing);
    Say(pair.peer, "a");
    EXPECT_EQ(Seen(event, VYX_INFINITE), VYX_FD_READ);
}

} // namespace
