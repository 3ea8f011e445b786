// VYX_Sendn, VYX_Recvn, VYX_RecvWithTimeOut and VYX_PollEx over a network and a clock that the input plays: waits that end early,
// late or with a signal, transfers that take a part, nothing, or fail. What has to hold: the bytes and their count are exact; no
// wait is longer than what is left of the limit, and no call with a limit may block in a transfer; a wait that was ended for
// nothing is followed by a pause; a call gives up only when its time is out, or after a failure; and it returns.
#include <cerrno>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <vyx/net.h>

#include "input.h"

namespace {

constexpr int kMostLate = 3; // milliseconds
constexpr uint32_t kHuge =
    0x80000000; // which ends with the first wait, and that only with a signal or readiness

enum class Kind : uint8_t { Send, Receive, ReceiveSome, Poll };

struct Network {
    fuzz::Input *pInput;
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
Network *s_pNetwork = nullptr;

void Note(char cEvent) {
    REQUIRE(!s_pNetwork->bFailed);
    if (s_pNetwork->cFirst == ' ')
        s_pNetwork->cFirst = cEvent;
}

int Fail(int iError) {
    errno = iError;
    return -1;
}

// What the next transfer of so many bytes does: a count, 0 for the peer's end, or -1 with errno.
int Transferred(size_t nLen, int iFlags) {
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
int Polled(struct pollfd *pFds, nfds_t nFds, int iTimeOut) {
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

} // namespace

extern "C" {
// The library's clock; on 32-bit systems it is the call with 64-bit time, as in this file.
#if __SIZEOF_POINTER__ == 4
int __wrap_gettimeofday(struct timeval *pNow, void *pZone) __asm__("__wrap___gettimeofday64");
int __real_gettimeofday(struct timeval *pNow, void *pZone) __asm__("__real___gettimeofday64");
#else
int __real_gettimeofday(struct timeval *pNow, void *pZone);
#endif

ssize_t __wrap_send(int /*iSocket*/, const void *pBytes, size_t nLen, int iFlags) {
    const int iCount = Transferred(nLen, iFlags);
    s_pNetwork->sSent.append(static_cast<const char *>(pBytes), static_cast<size_t>(std::max(iCount, 0)));
    return iCount;
}

ssize_t __wrap_recv(int /*iSocket*/, void *pBytes, size_t nLen, int iFlags) {
    Network &net = *s_pNetwork;
    net.iLast = Transferred(nLen, iFlags);
    for (int i = 0; i < net.iLast; ++i)
        static_cast<uint8_t *>(pBytes)[i] = static_cast<uint8_t>(net.iReceived++);
    return net.iLast;
}

int __wrap_poll(struct pollfd *pFds, nfds_t nFds, int iTimeOut) {
    s_pNetwork->iPolled = Polled(pFds, nFds, iTimeOut);
    return s_pNetwork->iPolled;
}

int __wrap_gettimeofday(struct timeval *pNow, void *pZone) {
    if (s_pNetwork == nullptr)
        return __real_gettimeofday(pNow, pZone);
    *pNow = {static_cast<time_t>(s_pNetwork->nNow / 1000),
             static_cast<suseconds_t>(s_pNetwork->nNow % 1000 * 1000)};
    return 0;
}
}

namespace {

// What is left of the limit is exact, also after the clock was set back.
void Poll(Network *pNet) {
    struct pollfd fd = {3, POLLIN, 0};
    uint32_t nLeft = pNet->nLimit;
    REQUIRE(VYX_PollEx(&fd, 1, &nLeft) == pNet->iPolled);
    const auto iTook = static_cast<int64_t>(pNet->nNow - pNet->nStart);
    const int64_t iLeft = pNet->nLimit == kHuge ? 0 : std::max<int64_t>(0, pNet->nLimit - iTook);
    REQUIRE(pNet->nLimit == VYX_INFINITE ? nLeft == VYX_INFINITE : nLeft == iLeft);
    REQUIRE(!pNet->bInterrupted || nLeft == 0);
}

void Transfer(Network *pNet) {
    const auto iLen = 1 + static_cast<int32_t>(pNet->pInput->Byte());
    const bool bSending = pNet->eKind == Kind::Send;
    std::string sBytes(static_cast<size_t>(iLen), '\xEE');
    for (size_t i = 0; i < sBytes.size() && bSending; ++i)
        sBytes[i] = static_cast<char>(i * 7);
    const std::unique_ptr<char[]> pBytes(
        new char[sBytes.size()]); // of exactly this size, so that a sanitizer sees its end
    std::copy(sBytes.begin(), sBytes.end(), pBytes.get());
    const auto fnReceive = pNet->eKind == Kind::Receive ? VYX_Recvn : VYX_RecvWithTimeOut;
    const int32_t iDone = bSending ? VYX_Sendn(3, pBytes.get(), iLen, pNet->nLimit)
                                   : fnReceive(3, pBytes.get(), iLen, pNet->nLimit);
    const uint64_t nTook = pNet->nNow - pNet->nStart;
    const bool bOut = pNet->nLimit == kHuge || (pNet->nLimit != VYX_INFINITE && nTook >= pNet->nLimit);
    REQUIRE(!bOut || nTook <= pNet->nLimit + kMostLate + 1U);
    for (int i = 0; i < pNet->iReceived; ++i)
        sBytes[static_cast<size_t>(i)] = static_cast<char>(i);
    REQUIRE(std::equal(sBytes.begin(), sBytes.end(), pBytes.get()));
    REQUIRE(bOut || pNet->bFailed || (pNet->eKind == Kind::ReceiveSome ? iDone > 0 : iDone == iLen));
    if (bSending)
        REQUIRE(pNet->sSent == sBytes.substr(0, static_cast<size_t>(iDone)));
    else if (pNet->eKind == Kind::Receive)
        REQUIRE(iDone == (pNet->bFailed ? -1 : pNet->iReceived) ||
                (iDone == -1 && bOut && pNet->bInterrupted));
    else
        REQUIRE(iDone == (pNet->iReceived > 0 ? pNet->iReceived : -1) &&
                pNet->iReceived == std::max(pNet->iLast, 0));
}

void Call(fuzz::Input *pInput, Network *pNet) {
    const Kind eBefore = pNet->eBefore;
    const auto eKind = static_cast<Kind>(pInput->Pick(4));
    const unsigned nLimit = pInput->Byte();
    const bool bAll = eKind == Kind::Send || eKind == Kind::Receive;
    *pNet = {pInput, pNet->nNow, bAll ? eKind : eBefore, eKind};
    pNet->nLimit = nLimit == 255 ? VYX_INFINITE : nLimit == 254 ? kHuge : nLimit;
    pNet->nStart = pNet->nNow;
    if (eKind == Kind::Poll)
        Poll(pNet);
    else
        Transfer(pNet);
    // An answer takes a while; otherwise what is to be sent or received all is tried first.
    if (eKind == Kind::Send || (eKind == Kind::Receive && eBefore == Kind::Receive))
        REQUIRE(pNet->cFirst == 't');
    else if (eKind != Kind::Receive || (eBefore == Kind::Send && pNet->nLimit != VYX_INFINITE))
        REQUIRE(pNet->cFirst == 'w');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const uint64_t kTickWraps = uint64_t{1} << 32;
    Network net{&input, input.Pick(2) == 0 ? kTickWraps * 400 - input.Byte() : kTickWraps * 400};
    s_pNetwork = &net;
    for (int i = 0; i < 8 && !input.AtEnd(); ++i) // the socket remembers what was asked last
        Call(&input, &net);
    s_pNetwork = nullptr;
    return 0;
}
