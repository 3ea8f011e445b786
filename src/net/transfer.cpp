// Connecting, accepting, sending and receiving within a time.
//
// VYX_Sendn and VYX_Recvn try to transfer before they wait: mostly there is room to send, and often the data are there
// already. Only a thread that has just sent on the socket waits for the answer first, which takes a while to come.
//
// Readiness is only a hint: another thread may be quicker, or the data may turn out damaged. Calls with a limit
// therefore never block in the transfer itself. What a transfer answers decides, also where the wait was ended by
// something else than readiness; where there was nothing to do, the wait goes on.
#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <vyx/sys.h>

#include "base/errno_keeper.h"
#include "base/platform.h"
#include "base/uncancelled.h"
#include "net/net_inter.h"
#include "net/poll_limit.h"

namespace {

using vyx_inter::ErrnoKeeper;
using vyx_inter::PollLimit;

// Where this thread has sent last, until it receives there.
thread_local VYX_SOCK_T t_hAsked = VYX_INVALID_SOCKET;

struct Sending {
    using Bytes = const char *;
    static constexpr short kEvent = POLLOUT;
    static constexpr bool kEndsWithThePoll = false; // a failed poll ends the call
    static ssize_t Once(VYX_SOCK_T hSocket, Bytes pBytes, size_t nLen, bool bMayBlock) {
        return bMayBlock ? send(hSocket, pBytes, nLen, 0) : VYX_SendNow_Inter(hSocket, pBytes, nLen);
    }
    static bool IsWorthATry(VYX_SOCK_T hSocket) {
        t_hAsked = hSocket;
        return true;
    }
};

struct Receiving {
    using Bytes = char *;
    static constexpr short kEvent = POLLRDNORM;
    static constexpr bool kEndsWithThePoll = true;
    static ssize_t Once(VYX_SOCK_T hSocket, Bytes pBytes, size_t nLen, bool bMayBlock) {
        return recv(hSocket, pBytes, nLen, bMayBlock ? 0 : MSG_DONTWAIT);
    }
    static bool IsWorthATry(VYX_SOCK_T hSocket) {
        if (t_hAsked != hSocket)
            return true;
        t_hAsked = VYX_INVALID_SOCKET;
        return false;
    }
};

enum class Outcome : uint8_t {
    Complete,
    Some,    // some bytes went, and some are left
    Nothing, // nothing went, and nothing is wrong
    Failed,
};

// A buffer on its way in one direction.
template <class Direction>
class Transfer {
  public:
    using Bytes = typename Direction::Bytes;
    Transfer(VYX_SOCK_T hSocket, Bytes pBytes, int32_t iLen, uint32_t nTimeOut)
        : m_hSocket(hSocket), m_pBytes(pBytes), m_iLen(iLen), m_nTimeOut(nTimeOut) {}
    [[nodiscard]] int32_t Done() const { return m_iDone; }

    // Transfers all of it. Result: false after a failure; true if it is complete or the time is out.
    bool All() {
        Outcome eOutcome = First();
        if (eOutcome == Outcome::Complete || eOutcome == Outcome::Failed)
            return eOutcome == Outcome::Complete;
        PollLimit limit(m_nTimeOut);
        if (eOutcome == Outcome::Some && limit.Left() == 0)
            return true;
        do
            eOutcome = WaitAndTransfer(&limit);
        while (eOutcome != Outcome::Complete && eOutcome != Outcome::Failed && limit.Left() != 0);
        return eOutcome != Outcome::Failed;
    }

    // Waits until something can be transferred, and transfers that. Result: as All.
    bool Some() {
        PollLimit limit(m_nTimeOut);
        Outcome eOutcome = Outcome::Nothing;
        do
            eOutcome = WaitAndTransfer(&limit);
        while (eOutcome == Outcome::Nothing && limit.Left() != 0);
        return eOutcome != Outcome::Failed;
    }

  private:
    // Transfers what goes at once or, without a limit, blocks for it.
    Outcome Once() {
        const auto nRest = static_cast<size_t>(m_iLen - m_iDone);
        const ssize_t nResult =
            Direction::Once(m_hSocket, m_pBytes + m_iDone, nRest, m_nTimeOut == VYX_INFINITE);
        if (nResult > 0) {
            m_iDone += static_cast<int32_t>(nResult);
            return m_iDone == m_iLen ? Outcome::Complete : Outcome::Some;
        }
        const bool bEmpty = nResult == -1 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
        return bEmpty ? Outcome::Nothing : Outcome::Failed;
    }

    // The transfer before any wait. An invalid socket is left to the wait, as poll ignores VYX_INVALID_SOCKET; a length of
    // 0 is, too, as the platforms answer it in different ways.
    Outcome First() {
        const bool bMayBlock = m_nTimeOut == VYX_INFINITE;
        if (m_iLen == 0 || (!Direction::IsWorthATry(m_hSocket) && !bMayBlock))
            return Outcome::Nothing;
        const Outcome eOutcome = Once();
        const bool bNoSocket = eOutcome == Outcome::Failed && (errno == EBADF || errno == ENOTSOCK);
        return bNoSocket ? Outcome::Nothing : eOutcome;
    }

    // Something else than readiness, such as a message in the socket's error queue, may end every wait at once. So the
    // next look comes a millisecond later; otherwise the loop would keep a processor busy.
    Outcome WaitAndTransfer(PollLimit *pLimit) {
        struct pollfd fd = {m_hSocket, Direction::kEvent, 0};
        const int32_t iPolled = pLimit->Poll(&fd, 1);
        if (iPolled == 0)
            return Outcome::Nothing;
        if (iPolled < 0 && (Direction::kEndsWithThePoll || pLimit->IsInfinite()))
            return Outcome::Failed;
        const Outcome eOutcome = iPolled < 0 ? Outcome::Nothing : Once();
        if (eOutcome == Outcome::Nothing && (fd.revents & Direction::kEvent) == 0 && pLimit->Left() != 0)
            (void)pLimit->Poll(nullptr, 0, 1);
        return eOutcome;
    }

    const VYX_SOCK_T m_hSocket;
    const Bytes m_pBytes;
    const int32_t m_iLen;
    const uint32_t m_nTimeOut;
    int32_t m_iDone = 0;
};

// Tells of a failed connection attempt. errno stays, also where standard error does not take the line.
int32_t TellFailure_Local(const char *szWhat) {
    const ErrnoKeeper keeper;
    (void)VYX_OutputDebug("quelby !!! VYX_ConnectWithTimeOut %s return error, %d, Error\n", szWhat,
                          keeper.Get());
    return VYX_ERROR;
}

// What became of a connection attempt: 0, or -1, with the message if it was refused.
int32_t ConnectResult_Local(VYX_SOCK_T hSocket, uint32_t nTimeOut) {
    struct pollfd fd = {hSocket, POLLOUT, 0};
    const int32_t iPolled = VYX_PollEx(&fd, 1, &nTimeOut);
    if (iPolled < 0)
        return TellFailure_Local("select/poll");
    if (iPolled == 0)
        return VYX_ERROR;
    int iError = 0; // some platforms show a refused attempt as POLLHUP alone: it is in here all the same
    socklen_t nLength = sizeof iError;
    (void)getsockopt(hSocket, SOL_SOCKET, SO_ERROR, &iError, &nLength);
    if (iError != 0)
        return TellFailure_Local("getsockopt !iError");
    return (fd.revents & POLLOUT) != 0 ? VYX_OK : VYX_ERROR;
}

// Ends what a connection attempt did to the socket; also where its thread is cancelled.
void LeaveBlocking_Local(void *phSocket) {
    const ErrnoKeeper keeper;
    (void)VYX_SetNonBlock(*static_cast<VYX_SOCK_T *>(phSocket), 0);
}

VYX_SOCK_T AcceptNow_Local(VYX_SOCK_T hSocket, VYX_ADDR_T *pAddr) {
    if (pAddr == nullptr)
        return accept(hSocket, nullptr, nullptr);
    socklen_t nLength = sizeof *pAddr;
    return accept(hSocket, &pAddr->sa, &nLength);
}

} // namespace

VYX_SOCK_T VYX_Accept(VYX_SOCK_T hSocket, VYX_ADDR_T *pAddr, uint32_t nTimeOut) {
    if (nTimeOut != VYX_INFINITE) {
        struct pollfd fd = {hSocket, POLLRDNORM, 0};
        if (VYX_PollEx(&fd, 1, &nTimeOut) < 1 || (fd.revents & POLLRDNORM) == 0)
            return VYX_INVALID_SOCKET;
        // A thread that is cancelled just as accept returns may lose the new socket (glibc before 2.41), so it is not
        // cancelled where accept does not wait.
        if ((fcntl(hSocket, F_GETFL) & O_NONBLOCK) != 0) {
            const vyx_inter::Uncancelled uncancelled;
            return AcceptNow_Local(hSocket, pAddr);
        }
    }
    return AcceptNow_Local(hSocket, pAddr);
}

int32_t VYX_ConnectWithTimeOut(VYX_SOCK_T hSocket, const VYX_ADDR_T *pAddr, uint32_t nTimeOut) {
    if (pAddr == nullptr)
        return VYX_ERROR;
    // Deliberate: the length of an IPv4 address for either family.
    if (nTimeOut == VYX_INFINITE)
        return connect(hSocket, &pAddr->sa, sizeof pAddr->in4);
    int32_t iResult = VYX_ERROR;
    (void)VYX_SetNonBlock(hSocket, 1);
    pthread_cleanup_push(LeaveBlocking_Local, &hSocket);
    // Deliberate: the attempt is expected to be in progress, and SO_ERROR tells the rest, so what is refused at once
    // and leaves no SO_ERROR counts as connected. Pinned by Connect.RefusedAtOnceLooksConnected.
    (void)connect(hSocket, &pAddr->sa, VYX_AddrLength_Inter(pAddr));
    iResult = ConnectResult_Local(hSocket, nTimeOut);
    pthread_cleanup_pop(1);
    return iResult;
}

int32_t VYX_Sendn(VYX_SOCK_T hSocket, const void *pBuf, int32_t iLen, uint32_t nTimeOut) {
    if (iLen < 0)
        return 0;
    Transfer<Sending> transfer(hSocket, static_cast<const char *>(pBuf), iLen, nTimeOut);
    (void)transfer.All(); // the count tells
    return transfer.Done();
}

int32_t VYX_RecvWithTimeOut(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen, uint32_t nTimeOut) {
    if (iLen < 0)
        return VYX_ERROR;
    Transfer<Receiving> transfer(hSocket, static_cast<char *>(pBuf), iLen, nTimeOut);
    return transfer.Some() && transfer.Done() > 0 ? transfer.Done() : VYX_ERROR;
}

int32_t VYX_Recvn(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen, uint32_t nTimeOut) {
    if (iLen < 0)
        return VYX_ERROR;
    Transfer<Receiving> transfer(hSocket, static_cast<char *>(pBuf), iLen, nTimeOut);
    // Deliberate: what came before a failure or the end is dropped with it. Pinned by
    // Fuzz.transfers.
    return transfer.All() ? transfer.Done() : VYX_ERROR;
}
