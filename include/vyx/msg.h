/*
 * Messaging and timers: priority-ordered message queues that copy, a first-in first-out queue of pointers as
 * a class, events that can be waited for together with sockets, and periodic timers.
 *
 * Queues and timers need the started library (VYX_Init), events and vyx::vyx_msgq do not. VYX_MsgQReceiveEx,
 * the two VYX_WaitFor functions, VYX_KillTimer and vyx_msgq::getq block. Of all these only events print. All
 * times are milliseconds, of the wall clock except for events.
 */
#ifndef VYX_MSG_H
#define VYX_MSG_H

#include <vyx/sync.h>
#include <vyx/types.h>

#define VYX_MAX_MSGQ 100       /* message queues that can be live at a time */
#define VYX_MSG_DATA_SIZE 8096 /* data bytes that a message can hold */
#define VYX_MAX_TIMERS 256     /* timers that can run at a time */

/* A message in the caller's memory. */
typedef struct VYX_MSG_BLOCK_T {
    int32_t iMsgType;  /* the caller's own; copied, never interpreted */
    int32_t iPriority; /* any value; higher ones are received first */
    int32_t iDataLen;  /* sending: bytes in szData. Receiving: in, the room there; out, the bytes delivered */
    char szData[VYX_MSG_DATA_SIZE];
} VYX_MSG_BLOCK_T;

/* Network events, as bits of lNetworkEvents. */
#define VYX_FD_READ 1        /* data can be read */
#define VYX_FD_WRITE 2       /* data can be written */
#define VYX_FD_ACCEPT 8      /* a connection can be accepted */
#define VYX_FD_CONNECT 16    /* an attempt to connect is over */
#define VYX_FD_CLOSE 32      /* the peer closed, and all that it sent has been read */
#define VYX_FD_MAX_EVENTS 10 /* entries of iErrorCode */

/* What has happened on a socket. */
typedef struct VYX_NETWORKEVENTS_T {
    int32_t lNetworkEvents;                /* a VYX_FD_ bit, or 0 */
    int32_t iErrorCode[VYX_FD_MAX_EVENTS]; /* by bit number; only [4], for VYX_FD_CONNECT, is ever written */
} VYX_NETWORKEVENTS_T;

/* Results of waits for events: VYX_WAIT_OBJECT_0 + an index, or one of the others. */
#define VYX_WAIT_OBJECT_0 0u
#define VYX_WAIT_TIMEOUT 0x7FFFFFFFu
#define VYX_WAIT_INVALID_HANDLE 0x7FFFFFFEu
#define VYX_WAIT_NO_PIPE 0x7FFFFFFDu
#define VYX_WAIT_FAILED 0x7FFFFFFCu
#define VYX_WAIT_MAX_FDS 128 /* descriptors that one wait can watch */

/*
 * A timer's routine, called on the timer's own thread.
 *   nTimerId   the timer's id
 *   pUserData  as given to VYX_SetTimer
 */
typedef void (*VYX_TIMER_PROC)(uint32_t nTimerId, void *pUserData);

VYX_BEGIN_DECLS

/* ---- Message queues ------------------------------------------------------------------------------------- */

/*
 * A forked child has a copy of every queue with its messages, and none of the threads that wait.
 */

/*
 * Takes a queue from the registry of VYX_MAX_MSGQ: the free one with the lowest index, empty.
 *   phQueue  receives the handle, which is valid until VYX_MsgQDestroyEx or the library's stop
 *
 * Result:  VYX_OK; VYX_ERROR if the pointer is null, all queues are taken or the library is not started, and
 *          then nothing is written.
 * Threads: any.
 */
VYX_API int32_t VYX_MsgQCreateEx(VYX_HANDLE_MSGQ *phQueue);

/*
 * Gives the queue back; messages still in it are discarded. The library's stop does this for every live queue.
 *
 * Result:  VYX_OK, also for a queue that is not live; VYX_ERROR for a null handle and without the started
 *          library.
 * Threads: any. Nobody should be inside a send or receive on the queue; a call that is ends with VYX_ERROR,
 *          a waiting receive promptly so. The handle may be given out again and then names another queue.
 */
VYX_API int32_t VYX_MsgQDestroyEx(VYX_HANDLE_MSGQ hQueue);

/*
 * Puts a copy of a message into the queue: behind all messages of the same or a higher priority, before those
 * of a lower one. Wakes all receivers that wait. Never waits for room: a queue has no limit but memory.
 *   pMsg  borrowed for the call; only the first iDataLen bytes of szData are read
 *
 * Result:  VYX_OK; VYX_ERROR with the queue unchanged: null pointer or handle, queue not live, iDataLen above
 *          VYX_MSG_DATA_SIZE or negative, memory short.
 * Threads: any number.
 * Cost:    depends neither on the number of messages nor on their priorities. The next receive puts what was
 *          sent meanwhile in order, in a fraction of a microsecond for each. Where many different priorities are
 *          queued, some of that is done by later receives. A queued message takes its data and less than 96 bytes.
 */
VYX_API int32_t VYX_MsgQSendEx(VYX_HANDLE_MSGQ hQueue, const VYX_MSG_BLOCK_T *pMsg);

/*
 * Takes the first message, the oldest of those with the highest priority, or waits for one (pthread_cond_timedwait).
 *   pMsg      the caller's block. In: iDataLen, the room in szData in bytes; offer VYX_MSG_DATA_SIZE.
 *             Out: type, priority, length and data of the message. Bytes past the length are not touched.
 *   iTimeOut  milliseconds to wait for a message, read as unsigned; VYX_INFINITE = -1 = no limit.
 *             0 is special: a message that is there is taken at once, but on an empty queue the call waits
 *             without limit for the next send and then returns VYX_ERROR, leaving that message queued.
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer or handle, a queue that is not live or is destroyed meanwhile,
 *          and when the time is used up. Time counts over all wake-ups, in whole milliseconds.
 *          VYX_ERROR also if the room is smaller than the message: that message is lost, its type and priority
 *          are in the block, iDataLen and szData are untouched.
 * Clock:   setting the wall clock while a receiver waits lengthens or shortens its time-out. With VYX_INFINITE,
 *          the wait gives up only when another receiver has taken the message it was woken for and more than
 *          0xFFFFFFFF milliseconds (49.7 days) have passed or the clock was set back.
 * Threads: any number; each message goes to exactly one receiver.
 */
VYX_API int32_t VYX_MsgQReceiveEx(VYX_HANDLE_MSGQ hQueue, VYX_MSG_BLOCK_T *pMsg, int32_t iTimeOut);

/* ---- Events --------------------------------------------------------------------------------------------- */

/*
 * An event is signalled or not. A plain event is set and reset by hand: a wait that finds it signalled leaves
 * it so, and everybody who waits sees it. VYX_EventSelect makes it a socket event for good: whether that is
 * signalled is up to the socket, and only VYX_WaitForMultipleObjects can tell.
 *
 * Everything here may be called from any number of threads at once on the same event, with two exceptions:
 * when VYX_CloseEvent or VYX_EventSelect is called, nobody may be inside another call on that event or wait
 * for it; such a wait would not end. Who waited for an event may close it at once, though: the VYX_SetEvent that
 * ended the wait is given the time to return. Nothing here is for signal handlers. Failures are explained on standard
 * error.
 *
 * A thread that is cancelled (pthread_cancel) in one of the two waits ends there. All other calls finish first;
 * VYX_SetEvent and VYX_ResetEvent are cancellation points when they have.
 *
 * What lies in the event's pipe decides, also where a forked child or a caller that knows the descriptors puts
 * bytes in or takes them out.
 */

/*
 * Makes a plain event (pipe).
 *   bInitialState  0 = not signalled, anything else = signalled
 *
 * Result:  the event, to be given to VYX_CloseEvent; null if memory (without a message) or descriptors are
 *          short, the latter with errno of pipe.
 * Threads: any.
 * Costs two descriptors, which started programs inherit. A forked child shares the signal: it is the same pipe in
 * both. Only one of the two processes may set and reset at a time.
 */
VYX_API VYX_EVENT VYX_CreateEvent(int32_t bInitialState);

/*
 * Frees the event and closes its pipe. A bound socket stays open and non-blocking.
 *
 * Result:  VYX_TRUE; VYX_FALSE for null.
 * Threads: one, when nobody is inside another call on the event, as said above.
 */
VYX_API int32_t VYX_CloseEvent(VYX_EVENT hEvent);

/*
 * Makes a plain event signalled until it is reset, however often it is set meanwhile: one byte lies in its pipe (poll,
 * write). All who wait for it wake up. No lock is held across the write, so nobody who wakes up finds one taken.
 *
 * Result:  VYX_TRUE; VYX_FALSE for null, for a socket event and when the pipe fails.
 * Threads: any.
 */
VYX_API int32_t VYX_SetEvent(VYX_EVENT hEvent);

/*
 * Makes a plain event not signalled: empties its pipe (poll, read).
 *
 * Result:  VYX_TRUE, also if it was not signalled; VYX_FALSE for null, for a socket event and when the pipe fails.
 * Threads: any.
 */
VYX_API int32_t VYX_ResetEvent(VYX_EVENT hEvent);

/*
 * Waits until a plain event is signalled (poll), and leaves it so.
 *   nTimeOut  milliseconds; 0 = only look; VYX_INFINITE, and everything from 0x80000000 on, = no limit. The wall
 *             clock does not matter
 *
 * Result:  VYX_WAIT_OBJECT_0        signalled
 *          VYX_WAIT_TIMEOUT         not within the time
 *          VYX_WAIT_INVALID_HANDLE  null
 *          VYX_WAIT_NO_PIPE         a socket event
 *          VYX_WAIT_FAILED          poll failed, with its errno: EINTR if a signal handler ran, as this wait is
 *                                   not taken up again
 * Threads: any.
 */
VYX_API uint32_t VYX_WaitForSingleObject(VYX_EVENT hEvent, uint32_t nTimeOut);

/*
 * Waits until one of several events is signalled (poll). If there are more, the first one in the array counts.
 *   nEventCount  entries of hEvents; 0 and less = none, and the call only lets the time pass
 *   hEvents      borrowed for the call; null entries are skipped
 *   bWaitAll     has no effect: the first event always ends the wait
 *   nTimeOut     milliseconds, as in VYX_WaitForSingleObject. A signal handler that runs does not end the wait, which
 *                goes on with the time that is left. With no event and no limit the call never returns.
 *
 * One wait watches VYX_WAIT_MAX_FDS descriptors: one for a plain event, one for a socket event with
 * VYX_FD_READ, VYX_FD_ACCEPT or VYX_FD_CLOSE, one with VYX_FD_WRITE, hence two with both or with
 * VYX_FD_CONNECT. In the order of the array, those beyond that number are left out: events there are never
 * found signalled. Descriptors may have any number.
 *
 * A socket event is signalled by the first of these that holds. It is noted for VYX_EnumNetworkEvents when
 * the event is the one that is returned.
 *   VYX_FD_CONNECT asked for        the socket is readable or writable: VYX_FD_CONNECT. A failed attempt
 *                                   counts as well; its error is taken off the socket (SO_ERROR) and dropped.
 *   VYX_FD_READ or VYX_FD_CLOSE     it is readable: VYX_FD_READ if there is data, otherwise VYX_FD_CLOSE, no
 *                                   matter which was asked for. So a peer that closes is reported when all
 *                                   it sent has been received; an empty datagram also reads as VYX_FD_CLOSE.
 *                                   0 and an error code if the number of bytes cannot be told.
 *   VYX_FD_WRITE                    it is writable: VYX_FD_WRITE
 *   VYX_FD_ACCEPT                   it is ready: VYX_FD_ACCEPT
 *
 * Result:  VYX_WAIT_OBJECT_0 + the index of the event; VYX_WAIT_INVALID_HANDLE if hEvents is null;
 *          VYX_WAIT_TIMEOUT when the time is over, and also at once when poll fails or a descriptor reports
 *          nothing but an error, as a closed socket does.
 * Threads: any.
 */
VYX_API uint32_t VYX_WaitForMultipleObjects(int32_t nEventCount, const VYX_EVENT *hEvents, int32_t bWaitAll,
                                            uint32_t nTimeOut);

/*
 * Makes the event a socket event, or binds a socket event to another socket. The pipe is closed.
 *   hSocket         is made non-blocking (VYX_SetNonBlock; a failure is ignored) and remains the caller's,
 *                   who keeps it open as long as the event takes part in waits
 *   lNetworkEvents  what to watch for: VYX_FD_ bits
 *
 * What an earlier wait noted stays until the next one that finds the event signalled.
 *
 * Result:  VYX_OK; VYX_ERROR, with nothing changed, for VYX_INVALID_SOCKET, a null event or no bits.
 * Threads: one, when nobody is inside another call on the event, as said above.
 */
VYX_API int32_t VYX_EventSelect(VYX_SOCK_T hSocket, VYX_EVENT hEvent, int32_t lNetworkEvents);

/*
 * Tells what the last VYX_WaitForMultipleObjects that returned this event noted. The socket is not looked at
 * and the note is not cleared.
 *   hSocket  must not be VYX_INVALID_SOCKET, but is not used otherwise: the event knows its socket
 *   pEvents  lNetworkEvents receives one VYX_FD_ bit or 0, always 0 for an event that never had a socket.
 *            iErrorCode[4] receives an errno if there is one and the event was asked for VYX_FD_CONNECT; all
 *            other entries are left alone, so clear them before.
 *
 * Result:  VYX_OK, although a socket event causes a message that it has no pipe, which means nothing here;
 *          VYX_ERROR for VYX_INVALID_SOCKET, a null event or a null pointer.
 * Threads: any; a wait that returns the event meanwhile may change the note between its two parts.
 */
VYX_API int32_t VYX_EnumNetworkEvents(VYX_SOCK_T hSocket, VYX_EVENT hEvent, VYX_NETWORKEVENTS_T *pEvents);

/* ---- Timers --------------------------------------------------------------------------------------------- */

/*
 * Starts a timer: a thread of its own that waits nPeriod and calls the routine, over and over.
 *   fnTimerProc  may be null: the timer then only takes up its id
 *   pUserData    handed to the routine; the library neither reads nor frees it
 *   nPeriod      milliseconds from the end of one call to the next one; the first call comes one period from
 *                now, and a slow routine stretches the interval. 0 = no pause between the calls,
 *                VYX_INFINITE = no call is ever due (a signal handler that runs on the timer's thread makes one).
 *   pTimerId     receives the id, the lowest that is free. May be null: the timer then runs until the process
 *                ends or somebody who knows the id kills it.
 *
 * Result:  VYX_OK; VYX_ERROR, and nothing is written, if VYX_MAX_TIMERS run. A thread that could not be started,
 *          or a semaphore that could not be created for it, is not reported: the timer has its id but never calls.
 * Routine: runs with no lock of the library held and never at the same time as itself. It may start timers and
 *          kill other ones. If it calls VYX_Thread_Exit the timer stays silent until it is killed. An exception
 *          that leaves it ends the program (std::terminate).
 * Threads: any; no cancellation point. The timer's thread (pthread_create) has the platform's default stack and its
 *          creator's signal mask.
 * Fork:    a forked child has no timers and all ids free; its parent's go on.
 * Clock:   setting the wall clock lengthens or shortens the period that is under way.
 * Needs:   the started library, except for a period of 0. Without it no call comes. Its stop calls nobody; periods
 *          begin anew with it, and go on with the next start.
 * Each timer takes a thread and, for as long as it runs, one semaphore (VYX_SemCreate); a call costs what waking a
 * thread costs, some microseconds.
 */
VYX_API int32_t VYX_SetTimer(VYX_TIMER_PROC fnTimerProc, void *pUserData, uint32_t nPeriod,
                             uint32_t *pTimerId);

/*
 * Ends a timer and frees its id (pthread_join). Does not wait for the period to end; waits for a routine that is running.
 * Afterwards the routine is not called again.
 *   iTimerId  as VYX_SetTimer gave it
 *
 * Result:  always VYX_ERROR, also on success: the result carries no information. An id that is out of range or
 *          free has no effect.
 * Threads: any; when several kill the same timer, all return after it has ended. No cancellation point. Better not
 *          called from the timer's own routine, which cannot wait for its own end: such a call frees the id at once
 *          and returns, and the thread ends with the routine. The same goes for the kill that would close a ring of
 *          routines that wait for each other's timers to end.
 */
VYX_API int32_t VYX_KillTimer(int32_t iTimerId);

/*
 * Forgets all timers once: the first call, and the first one after each VYX_FiniTimer, frees every id without waiting
 * for the timers that run; their routines are not called again, but one that is running finishes. Not needed; meant
 * to be called before any timer exists.
 *
 * Result:  VYX_OK.
 * Threads: any; no cancellation point.
 */
VYX_API int32_t VYX_InitTimer(void);

/*
 * Allows the next VYX_InitTimer to forget all timers, and does nothing else: timers that run are not touched.
 *
 * Result:  VYX_OK.
 * Threads: any.
 */
VYX_API int32_t VYX_FiniTimer(void);

VYX_END_DECLS

#ifdef __cplusplus

#include <deque>
#include <queue>

namespace vyx {

/*
 * A first-in first-out queue of pointers to message blocks that stay the caller's: they are neither copied nor
 * freed. Needs no started library. Any number of threads may use one object; nobody may be inside a call when
 * it is destroyed.
 */
class VYX_API vyx_msgq {
  public:
    /* Calls init(). If memory is short the object has no queue, and putq and getq return -1. Threads: any. */
    vyx_msgq();
    /* destroy(). Nobody may be inside a call. Threads: the last one that has it. */
    virtual ~vyx_msgq();
    vyx_msgq(const vyx_msgq &) = delete;
    vyx_msgq &operator=(const vyx_msgq &) = delete;

    /* Makes a new, empty queue; what an earlier one held is forgotten. 0; -1 if memory is short, and an earlier
     * queue stays. Threads: any. */
    int init();
    /* reset(), then gives the queue itself up until the next init(). 0. Threads: any. */
    int destroy();
    /* Forgets every block in the queue. 0. Threads: any. */
    int reset();
    /* Appends the pointer. 0; -1 if it is null or there is no queue. If memory is short std::bad_alloc passes
     * on, with the object usable. Threads: any. */
    int putq(VYX_MSG_BLOCK_T *block);
    /*
     * Takes the oldest pointer, looking for one again and again, with pauses of at most a tenth of a millisecond
     * or so between the looks.
     *   out      receives the pointer; untouched on failure
     *   timeout  milliseconds; -1 = no limit; 0 and other negative values = one look
     * Result:  0; -1 if out is null, there is no queue, or the time-out is used up. Only the looks use it up, each
     *          measured on the wall clock and rounded to the nearest millisecond, not the pauses: a look under half a
     *          millisecond, as almost all are, takes nothing off. So a positive time-out bounds the call only on a
     *          machine too busy to look quickly. A caller that must not wait uses 0.
     * Threads: any.
     */
    int getq(VYX_MSG_BLOCK_T **out, int timeout);

  private:
    vyx_recursive_mutex m_mutex;
    vyx_sem m_sem;
    std::queue<VYX_MSG_BLOCK_T *, std::deque<VYX_MSG_BLOCK_T *>> *m_pQueue; /* guarded by m_mutex */
};

} // namespace vyx

#endif

#endif
