// The record behind an event, and what the event files share.
//
// A plain event is a pipe: signalled while one byte lies in it. A socket event is one whose pipe
// VYX_EventSelect has closed for good; it carries the socket and what a multiple wait found on it.
#ifndef VYX_MSG_EVENT_INTER_H
#define VYX_MSG_EVENT_INTER_H

#include <atomic>

#include <poll.h>
#include <vyx/msg.h>

#include "base/fork.h"
#include "base/list.h"

// Bits of iPollEvents.
constexpr int32_t VYX_POLL_READ = 1;
constexpr int32_t VYX_POLL_WRITE = 2;

// Guards the list of all events. Only a fork takes other locks of the library while it holds this one.
extern vyx_inter::Lock s_hEventListLock;

// A wait takes no lock, but for a thread's first one with a limit, which registers the thread. A set takes hMutex only to
// remove surplus bytes from the pipe, and in a forked child its first use takes a lock to make hMutex anew. So every field
// is read and written as a whole.
struct VYX_EVENT_T {
    std::atomic<int32_t> iPipeFd[2];                // read end and write end; both -1 once the pipe is closed
    std::atomic<int32_t> iSocket;                   // the bound socket, the caller's; -1 = none
    std::atomic<int32_t> iPollEvents;               // what to poll the socket for
    std::atomic<int32_t> lNetworkEvents;            // VYX_FD_ bits that VYX_EventSelect was asked for
    std::atomic<int32_t> iTriggered;                // the VYX_FD_ bit that the last multiple wait found
    std::atomic<int32_t> iErrorCode;                // an errno, with iTriggered
    std::atomic<uint32_t> nInside;                  // threads in a set; closing waits for them
    std::atomic<uint32_t> nWrites;                  // sets that have put a byte into the pipe
    std::atomic<uint32_t> nForks;                   // of the process, when nInside and hMutex were made
    vyx_inter::Lock hMutex{vyx_inter::Rank::Event}; // held by who takes bytes out of the pipe
    vyx_inter::Links<VYX_EVENT_T> all VYX_GUARDED_BY(s_hEventListLock){}; // of those that are open
};

namespace vyx_inter {

struct EventWaiter;

// A wait for events, while it lasts; for tools. Only those with a limit are noted. A thread's first one registers the thread,
// under a lock; the others store a few words of the thread's own.
class NotedWait {
  public:
    // pEvents has iEvents entries, null ones among them, and stays as long as the note. A deadline that is never: no note.
    NotedWait(const VYX_EVENT *pEvents, int32_t iEvents, const Deadline &deadline) : m_deadline(deadline) {
        if (!deadline.IsNever())
            Begin(pEvents, iEvents);
    }
    ~NotedWait() {
        if (m_pWaiter != nullptr)
            End();
    }
    NotedWait(const NotedWait &) = delete;
    NotedWait &operator=(const NotedWait &) = delete;

  private:
    friend struct EventWaitRows;
    void Begin(const VYX_EVENT *pEvents, int32_t iEvents);
    void End();
    const VYX_EVENT *m_pEvents = nullptr;
    int32_t m_iEvents = 0;
    Deadline m_deadline;
    EventWaiter *m_pWaiter = nullptr; // the thread's; null: no note
};

// In a forked child: the waits of the parent's other threads are none.
void ForgetOtherEventWaits();

} // namespace vyx_inter

VYX_BEGIN_DECLS

extern const vyx_inter::ForkRow g_struEventForkRow;

// Puts the signal byte into the pipe, which is empty and therefore does not block.
// Result: VYX_TRUE; VYX_FALSE with a message.
int32_t VYX_WritePipe_Inter(VYX_EVENT_T *pEvent);

// Empties the pipe. VYX_TRUE; VYX_FALSE if it cannot be read or its write end is gone.
int32_t VYX_ReadPipe_Inter(VYX_EVENT_T *pEvent) VYX_REQUIRES(pEvent->hMutex);

// Closes both ends, if the pipe is open, once no set or reset is under way.
void VYX_ClearEventPipe_Inter(VYX_EVENT_T *pEvent);

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
