// Event objects: waits for several at once, and events that stand for a socket's state.
//
// A multiple wait polls pipes and sockets together. What it finds on a socket it notes in the event's record,
// from where VYX_EnumNetworkEvents takes it.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vyx/net.h>
#include <vyx/sys.h>

#include "base/deadline.h"
#include "base/probes.h"
#include "base/uncancelled.h"
#include "msg/event_inter.h"

using vyx_inter::Deadline;

namespace {

constexpr int32_t kTriggered = 0;
constexpr int32_t kNotTriggered = -1;
constexpr size_t kConnectError = 4; // bit number of VYX_FD_CONNECT
static_assert(VYX_FD_CONNECT == 1 << kConnectError && kConnectError < VYX_FD_MAX_EVENTS);

// The descriptors of one multiple wait, and the index of the event that each belongs to.
struct WaitSet {
    struct pollfd fds[VYX_WAIT_MAX_FDS];
    int32_t iIndex[VYX_WAIT_MAX_FDS];
    int32_t iCount;
};

struct Target {
    int32_t *pIndexMap;
    struct pollfd *pFds;
    int32_t *pCount;
};

void Append_Local(const Target &target, int32_t iFd, short sEvents, int32_t iEventIndex) {
    if (*target.pCount >= VYX_WAIT_MAX_FDS)
        return;
    target.pFds[*target.pCount] = {iFd, sEvents, 0};
    target.pIndexMap[*target.pCount] = iEventIndex;
    ++*target.pCount;
}

int32_t Note_Local(VYX_EVENT_T *pEvent, int32_t iTriggered) {
    pEvent->iTriggered = iTriggered;
    return kTriggered;
}

int32_t Note_Local(VYX_EVENT_T *pEvent, int32_t iTriggered, int32_t iErrorCode) {
    pEvent->iErrorCode = iErrorCode;
    return Note_Local(pEvent, iTriggered);
}

int32_t NoteConnect_Local(VYX_EVENT_T *pEvent, int iSocket) {
    int iError = 0;
    socklen_t nLength = sizeof iError;
    // Deliberate: the error of a failed connect is read, which clears it in the socket, but not kept. Callers
    // learn that the attempt is over, not how it went. Pinned by SocketEvent.ErrorCodes.
    if (getsockopt(iSocket, SOL_SOCKET, SO_ERROR, &iError, &nLength) == 0 && iError == 0)
        return Note_Local(pEvent, VYX_FD_CONNECT, 0);
    return Note_Local(pEvent, VYX_FD_CONNECT);
}

int32_t NoteReadable_Local(VYX_EVENT_T *pEvent, int iSocket) {
    int iPending = 0;
    if (ioctl(iSocket, FIONREAD, &iPending) == -1)
        return Note_Local(pEvent, 0, errno);
    // Deliberate: whether VYX_FD_READ or VYX_FD_CLOSE was asked for does not matter. Pinned by
    // SocketEvent.Streams.
    return Note_Local(pEvent, iPending > 0 ? VYX_FD_READ : VYX_FD_CLOSE, 0);
}

// With VYX_INFINITE and an empty set this never returns, as nothing can happen that it waits for.
int PollSet_Local(WaitSet &set, const VYX_EVENT *pEvents, int32_t iEvents, uint32_t nTimeOut) {
    // What does not fit into poll's time-out, above all VYX_INFINITE, is no limit.
    const Deadline deadline =
        nTimeOut > INT32_MAX ? Deadline::Never() : Deadline::In(nTimeOut, vyx_inter::Clock::Monotonic);
    const vyx_inter::NotedWait note(pEvents, iEvents, nTimeOut == 0 ? Deadline::Never() : deadline);
    for (int iLeft = deadline.IsNever() ? -1 : static_cast<int>(nTimeOut);; iLeft = deadline.LeftForPoll()) {
        const int iReady = poll(set.fds, static_cast<nfds_t>(set.iCount), iLeft);
        if (iReady != -1 || errno != EINTR)
            return iReady;
    }
}

int32_t PollEvents_Local(int32_t lNetworkEvents) {
    if ((lNetworkEvents & VYX_FD_CONNECT) != 0)
        return VYX_POLL_READ | VYX_POLL_WRITE;
    int32_t iPollEvents = 0;
    if ((lNetworkEvents & (VYX_FD_ACCEPT | VYX_FD_READ | VYX_FD_CLOSE)) != 0)
        iPollEvents |= VYX_POLL_READ;
    if ((lNetworkEvents & VYX_FD_WRITE) != 0)
        iPollEvents |= VYX_POLL_WRITE;
    return iPollEvents;
}

} // namespace

int32_t VYX_AddFdsToPoll_Inter(VYX_EVENT_T *pEvent, int32_t *pIndexMap, struct pollfd *pFds,
                               int32_t iEventIndex, int32_t *pCount) {
    const Target target = {pIndexMap, pFds, pCount};
    const int32_t iPipe = pEvent->iPipeFd[0];
    if (iPipe != -1) {
        Append_Local(target, iPipe, POLLRDNORM, iEventIndex);
        return 1;
    }
    const int32_t iPollEvents = pEvent->iPollEvents;
    if ((iPollEvents & VYX_POLL_READ) != 0)
        Append_Local(target, pEvent->iSocket, POLLRDNORM, iEventIndex);
    if ((iPollEvents & VYX_POLL_WRITE) != 0)
        Append_Local(target, pEvent->iSocket, POLLOUT, iEventIndex);
    return 1;
}

int32_t VYX_GetEventTriggeredFlag_Inter(VYX_EVENT_T *pEvent, const struct pollfd *pFd) {
    const bool bReadable = (pFd->revents & POLLRDNORM) != 0;
    const bool bWritable = (pFd->revents & POLLOUT) != 0;
    if (bReadable && pEvent->iPipeFd[0] != -1)
        return kTriggered;
    if (!bReadable && !bWritable)
        return kNotTriggered;
    const int32_t lAsked = pEvent->lNetworkEvents;
    if ((lAsked & VYX_FD_CONNECT) != 0)
        return NoteConnect_Local(pEvent, pEvent->iSocket);
    if (bReadable && (lAsked & (VYX_FD_READ | VYX_FD_CLOSE)) != 0)
        return NoteReadable_Local(pEvent, pEvent->iSocket);
    if (bWritable && (lAsked & VYX_FD_WRITE) != 0)
        return Note_Local(pEvent, VYX_FD_WRITE, 0);
    return (lAsked & VYX_FD_ACCEPT) != 0 ? Note_Local(pEvent, VYX_FD_ACCEPT) : kNotTriggered;
}

// Deliberate: the wait-all flag is not looked at; every wait ends with the first event. Pinned by
// Event.WaitForSeveral.
uint32_t VYX_WaitForMultipleObjects(int32_t nEventCount, const VYX_EVENT *hEvents, int32_t /*bWaitAll*/,
                                    uint32_t nTimeOut) {
    if (hEvents == nullptr) {
        VYX_OutputDebug(
            "quelby !!! VYX_WaitForMultipleObjects ((nEventCount < 0) || !hEvents) return error 0\n");
        return VYX_WAIT_INVALID_HANDLE;
    }
    WaitSet set;
    set.iCount = 0;
    for (int32_t i = 0; i < nEventCount && set.iCount < VYX_WAIT_MAX_FDS; ++i) {
        if (hEvents[i] != nullptr)
            (void)VYX_AddFdsToPoll_Inter(hEvents[i], set.iIndex, set.fds, i, &set.iCount); // always 1
    }
    VYX_PROBE1(event_wait_begin, hEvents);
    const int iReady = PollSet_Local(set, hEvents, nEventCount, nTimeOut);
    VYX_PROBE2(event_wait_end, hEvents, iReady);
    if (iReady <= 0)
        return VYX_WAIT_TIMEOUT;
    for (int32_t i = 0; i < set.iCount; ++i) {
        VYX_EVENT_T *pEvent = hEvents[set.iIndex[i]];
        if (pEvent != nullptr && VYX_GetEventTriggeredFlag_Inter(pEvent, &set.fds[i]) == kTriggered)
            return VYX_WAIT_OBJECT_0 + static_cast<uint32_t>(set.iIndex[i]);
    }
    return VYX_WAIT_TIMEOUT;
}

int32_t VYX_EventSelect(VYX_SOCK_T hSocket, VYX_EVENT hEvent, int32_t lNetworkEvents) {
    if (hSocket == VYX_INVALID_SOCKET || hEvent == nullptr || lNetworkEvents == 0) {
        VYX_OutputDebug("quelby !!! VYX_EventSelect input param error return error 0\n");
        return VYX_ERROR;
    }
    const vyx_inter::Uncancelled uncancelled;
    VYX_ClearEventPipe_Inter(hEvent);
    hEvent->lNetworkEvents = lNetworkEvents;
    hEvent->iSocket = hSocket;
    // Deliberate: a socket that refuses is bound all the same; no wait ever finds it signalled. Pinned by
    // SocketEvent.LifeOfTheSocket.
    (void)VYX_SetNonBlock(hSocket, 1);
    hEvent->iPollEvents = PollEvents_Local(lNetworkEvents);
    return VYX_OK;
}

int32_t VYX_EnumNetworkEvents(VYX_SOCK_T hSocket, VYX_EVENT hEvent, VYX_NETWORKEVENTS_T *pEvents) {
    if (hSocket == VYX_INVALID_SOCKET || hEvent == nullptr || pEvents == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_EnumNetworkEvents input param error return error 0\n");
        return VYX_ERROR;
    }
    // Deliberate: a look whose result is not used. For a socket event it prints that there is no pipe. Pinned
    // by SocketEvent.LifeOfTheSocket.
    (void)VYX_WaitForSingleObject(hEvent, 0);
    const int32_t iError = hEvent->iErrorCode;
    if (iError != 0 && (hEvent->lNetworkEvents & VYX_FD_CONNECT) != 0)
        pEvents->iErrorCode[kConnectError] = iError;
    pEvents->lNetworkEvents = hEvent->iTriggered;
    return VYX_OK;
}
