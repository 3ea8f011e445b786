// The record behind an event, and what the event files share.
//
// A plain event is a pipe: signalled while one byte lies in it. A socket event is one whose pipe
// VYX_EventSelect has closed for good; it carries the socket and what a multiple wait found on it.
#ifndef VYX_MSG_EVENT_INTER_H
#define VYX_MSG_EVENT_INTER_H

#include <poll.h>
#include <vyx/msg.h>

// Bits of iPollEvents.
constexpr int32_t VYX_POLL_READ = 1;
constexpr int32_t VYX_POLL_WRITE = 2;

// Waits take no lock. Every field that one of them reads or writes is therefore accessed with vyx_inter::Get
// and Put, except before the handle is given out.
struct VYX_EVENT_T {
    int32_t iPipeFd[2];     // read end and write end; both -1 once the pipe is closed. Closed under hMutex
    int32_t iSocket;        // the bound socket, the caller's; -1 = none
    int32_t iPollEvents;    // what to poll the socket for
    int32_t lNetworkEvents; // VYX_FD_ bits that VYX_EventSelect was asked for
    int32_t iTriggered;     // the VYX_FD_ bit that the last multiple wait found
    int32_t reserved;       // 0
    int32_t iErrorCode;     // an errno, with iTriggered
    VYX_MUTEX_T hMutex;     // normal; held while bytes go into the pipe or come out of it
};

namespace vyx_inter {

inline int32_t Get(const int32_t &iField) {
    return __atomic_load_n(&iField, __ATOMIC_RELAXED);
}
inline void Put(int32_t &iField, int32_t iValue) {
    __atomic_store_n(&iField, iValue, __ATOMIC_RELAXED);
}

// A time-out for poll. What does not fit into an int, above all VYX_INFINITE, is no limit.
inline int PollTimeOut(uint32_t nTimeOut) {
    return nTimeOut > INT32_MAX ? -1 : static_cast<int>(nTimeOut);
}

} // namespace vyx_inter

VYX_BEGIN_DECLS

// Puts the signal byte into the pipe, which never blocks. hMutex held. VYX_TRUE; VYX_FALSE with a message.
int32_t VYX_WritePipe_Inter(VYX_EVENT_T *pEvent);

// Empties the pipe. hMutex held. VYX_TRUE; VYX_FALSE if it cannot be read or its write end is gone.
int32_t VYX_ReadPipe_Inter(VYX_EVENT_T *pEvent);

// Closes both ends, if the pipe is open. Null does nothing. hMutex held once the handle is given out.
void VYX_ClearEventPipe_Inter(VYX_EVENT_T *pEvent);

// Destroys hMutex.
void VYX_ClearEventMutex_Inter(VYX_EVENT_T *pEvent);

// Appends what is to be polled for an event: the pipe, or the socket once for each of its two directions.
//   pIndexMap, pFds  VYX_WAIT_MAX_FDS entries each; what does not fit any more is left out
//   pCount           in and out: entries in use
// Result: 1.
int32_t VYX_AddFdsToPoll_Inter(VYX_EVENT_T *pEvent, int32_t *pIndexMap, struct pollfd *pFds,
                               int32_t iEventIndex, int32_t *pCount);

// Whether a polled entry makes its event signalled: 0 yes, -1 no. For a socket also notes what has happened.
int32_t VYX_GetEventTriggeredFlag_Inter(VYX_EVENT_T *pEvent, const struct pollfd *pFd);

VYX_END_DECLS

#endif
