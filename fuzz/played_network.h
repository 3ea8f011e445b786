// A network and a clock that the input plays, in place of the platform's: waits that end early, late or with a signal, transfers
// that take a part, nothing, or fail. They look at how they are called: no wait is longer than what is left of the limit, no
// call with a limit may block in a transfer, and a wait that was ended for nothing is followed by a pause. A program includes
// this once and wraps the calls.
#ifndef VYX_FUZZ_PLAYED_NETWORK_H_
#define VYX_FUZZ_PLAYED_NETWORK_H_

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <vyx/net.h>

#include "input.h"

namespace fuzz {

constexpr int kMostLate = 3; // milliseconds
constexpr uint32_t kHuge =
    0x80000000; // which ends with the first wait, and that only with a signal or readiness

enum class Kind : uint8_t { Send, Receive, ReceiveSome, Poll };

struct Network {
    Input *pInput;
    uint64_t nNow;             // milliseconds
    Kind eBefore = Kind::Poll; // the last call that sent or received all
    Kind eKind = Kind::Poll;
    uint32_t nLimit = 0;
    uint64_t nStart = 0;
    bool bFailed = false;      // a transfer, or a wait that ends the call
    int iPolled = 0;           // the last wait's result
    bool bInterrupted = false; // the last wait
    bool bIdle = false;        // it was ended without readiness, and nothing was transferred since
    char cFirst = ' ';         // t: a transfer, w: a wait
    std::string sSent = {};
    int iReceived = 0; // bytes 0, 1, ...
    int iLast = 0;     // of these, in the last transfer
};
static Network *s_pNetwork = nullptr; // null: the clock is the platform's

inline void Note(char cEvent) {
    REQUIRE(!s_pNetwork->bFailed);
    if (s_pNetwork->cFirst == ' ')
        s_pNetwork->cFirst = cEvent;
}

inline int Fail(int iError) {
    errno = iError;
    return -1;
}

// What the next transfer of so many bytes does: a count, 0 for the peer's end, or -1 with errno.
inline int Transferred(size_t nLen, int iFlags) {
    Network &net = *s_pNetwork;
    const unsigned nChoice = net.pInput->Byte();
    Note('t');
    REQUIRE(iFlags == (net.nLimit == VYX_INFINITE ? 0 : MSG_DONTWAIT));
    if (nChoice % 8 == 7 && nChoice < 64) {
        net.bFailed = true;
        return nChoice < 32 && net.eKind != Kind::Send ? 0 : Fail(ECONNRESET);
    }
    if (nChoice % 4 == 2)
        return Fail(nChoice / 4 % 3 == 0 ? EINTR : EAGAIN);
    net.bIdle = false;
    return static_cast<int>(nChoice % 4 == 1 ? nLen : 1 + nChoice / 4 % nLen);
}

// What the next wait does.
inline int Polled(struct pollfd *pFds, nfds_t nFds, int iTimeOut) {
    Network &net = *s_pNetwork;
    const auto nLeft = std::max<int64_t>(0, static_cast<int64_t>(net.nStart + net.nLimit - net.nNow));
    Note('w');
    REQUIRE((nFds == 0) == net.bIdle && (nFds != 0 || iTimeOut <= 1));
    REQUIRE(net.nLimit == VYX_INFINITE ? iTimeOut == -1 || nFds == 0
            : net.nLimit == kHuge      ? iTimeOut < 0
                                       : iTimeOut >= 0 && iTimeOut <= nLeft);
    const int iChoice = net.pInput->Byte();
    const bool bOut = nFds == 0 || (iChoice % 8 == 1 && iTimeOut >= 0);
    const int iTakes =
        bOut ? iTimeOut + iChoice / 8 % (kMostLate + 1) : std::min(iChoice / 8, iTimeOut < 0 ? 99 : iTimeOut);
    net.nNow += static_cast<uint64_t>(iTakes);
    if (net.eKind == Kind::Poll && iChoice > 240)
        net.nNow -= 50; // the clock was set back
    net.bInterrupted = iChoice % 8 == 2;
    if (net.bInterrupted)
        return Fail(EINTR);
    net.bIdle = false;
    if (bOut)
        return 0;
    net.bIdle = iChoice % 32 == 3 || iChoice % 8 == 4;
    if (iChoice % 32 == 3) {
        net.bFailed = net.bFailed || net.eKind != Kind::Send || net.nLimit == VYX_INFINITE;
        net.nNow += 1; // or a caller that goes on would do so for ever
        return Fail(ENOMEM);
    }
    pFds->revents = iChoice % 8 == 4 ? POLLERR : pFds->events;
    return 1;
}

} // namespace fuzz

extern "C" {
// The library's clock; on 32-bit systems it is the call with 64-bit time, as in this file.
#if __SIZEOF_POINTER__ == 4
int __wrap_gettimeofday(struct timeval *pNow, void *pZone) __asm__("__wrap___gettimeofday64");
int __real_gettimeofday(struct timeval *pNow, void *pZone) __asm__("__real___gettimeofday64");
#else
int __real_gettimeofday(struct timeval *pNow, void *pZone);
#endif

ssize_t __wrap_send(int /*iSocket*/, const void *pBytes, size_t nLen, int iFlags) {
    const int iCount = fuzz::Transferred(nLen, iFlags);
    fuzz::s_pNetwork->sSent.append(static_cast<const char *>(pBytes),
                                   static_cast<size_t>(std::max(iCount, 0)));
    return iCount;
}

ssize_t __wrap_recv(int /*iSocket*/, void *pBytes, size_t nLen, int iFlags) {
    fuzz::Network &net = *fuzz::s_pNetwork;
    net.iLast = fuzz::Transferred(nLen, iFlags);
    for (int i = 0; i < net.iLast; ++i)
        static_cast<uint8_t *>(pBytes)[i] = static_cast<uint8_t>(net.iReceived++);
    return net.iLast;
}

int __wrap_poll(struct pollfd *pFds, nfds_t nFds, int iTimeOut) {
    fuzz::s_pNetwork->iPolled = fuzz::Polled(pFds, nFds, iTimeOut);
    return fuzz::s_pNetwork->iPolled;
}

int __wrap_gettimeofday(struct timeval *pNow, void *pZone) {
    if (fuzz::s_pNetwork == nullptr)
        return __real_gettimeofday(pNow, pZone);
    *pNow = {static_cast<time_t>(fuzz::s_pNetwork->nNow / 1000),
             static_cast<suseconds_t>(fuzz::s_pNetwork->nNow % 1000 * 1000)};
    return 0;
}
}

#endif
