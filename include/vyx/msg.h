/*
 * Messaging and timers: priority-ordered message queues that copy, a first-in first-out queue of pointers as a
 * class, and periodic timers. The constants and the record of network events stand here as well.
 *
 * Queues and timers need the started library (VYX_Init), vyx::vyx_msgq does not. VYX_MsgQReceiveEx,
 * VYX_KillTimer and vyx_msgq::getq block; nothing here prints. All times are milliseconds of the wall clock.
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
    int32_t iDataLen;  /* sending: bytes in szData. Receiving: in, the room in szData; out, the bytes delivered */
    char szData[VYX_MSG_DATA_SIZE];
} VYX_MSG_BLOCK_T;

/* Network events, as bits of lNetworkEvents. */
#define VYX_FD_READ 1
#define VYX_FD_WRITE 2
#define VYX_FD_ACCEPT 8
#define VYX_FD_CONNECT 16
#define VYX_FD_CLOSE 32
#define VYX_FD_MAX_EVENTS 10 /* entries of iErrorCode */

/* What has happened on a socket. */
typedef struct VYX_NETWORKEVENTS_T {
    int32_t lNetworkEvents; /* VYX_FD_ bits */
    int32_t iErrorCode[VYX_FD_MAX_EVENTS];
} VYX_NETWORKEVENTS_T;

/* Results of waits for event objects. */
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
 *          sent meanwhile in order, in a fraction of a microsecond for each. A queued message takes its data and
 *          less than 96 bytes.
 */
VYX_API int32_t VYX_MsgQSendEx(VYX_HANDLE_MSGQ hQueue, const VYX_MSG_BLOCK_T *pMsg);

/*
 * Takes the first message: the oldest of those with the highest priority.
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
 * Rests on VYX_CondTimedWait.
 */
VYX_API int32_t VYX_MsgQReceiveEx(VYX_HANDLE_MSGQ hQueue, VYX_MSG_BLOCK_T *pMsg, int32_t iTimeOut);

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
 * Result:  VYX_OK; VYX_ERROR, and nothing is written, if VYX_MAX_TIMERS run or memory is short. A thread that
 *          could not be started is not reported: the timer has its id but never calls.
 * Routine: runs with no lock of the library held and never at the same time as itself. It may start timers and
 *          kill other ones. If it calls VYX_Thread_Exit the timer stays silent until it is killed. An exception
 *          that leaves it ends the program (std::terminate).
 * Threads: any. The timer's thread has the platform's default stack and its creator's signal mask.
 * Fork:    a forked child has no timers and must not kill those of its parent.
 * Needs:   the started library. Without it no call comes; at its stop every timer calls once, early.
 */
VYX_API int32_t VYX_SetTimer(VYX_TIMER_PROC fnTimerProc, void *pUserData, uint32_t nPeriod,
                             uint32_t *pTimerId);

/*
 * Ends a timer and frees its id. Does not wait for the period to end; waits for a routine that is running.
 * Afterwards the routine is not called again.
 *
 * Result:  always VYX_ERROR, also on success: the result carries no information. An id that is out of range or
 *          free has no effect.
 * Threads: any; when several kill the same timer, all return after it has ended. Not to be called from the
 *          timer's own routine, which cannot wait for its own end: such a call frees the id at once and returns,
 *          and the thread ends with the routine.
 * Two routines that kill each other's timer do not wait for one another; longer rings never end.
 */
VYX_API int32_t VYX_KillTimer(int32_t iTimerId);

/*
 * Forget all timers once: the first VYX_InitTimer, and the first one after each VYX_FiniTimer, frees every id
 * without waiting for the timers that run; their routines are not called again, but one that is running
 * finishes. VYX_FiniTimer does nothing else than allow the next VYX_InitTimer to do so. Neither is needed; meant
 * to be called before any timer exists.
 *
 * Result:  VYX_OK.
 * Threads: any.
 */
VYX_API int32_t VYX_InitTimer(void);
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
    /* Calls init(). If memory is short the object has no queue, and putq and getq return -1. */
    vyx_msgq();
    virtual ~vyx_msgq();
    vyx_msgq(const vyx_msgq &) = delete;
    vyx_msgq &operator=(const vyx_msgq &) = delete;

    /* Makes a new, empty queue; what an earlier one held is forgotten. 0; -1 if memory is short, and an earlier
     * queue stays. */
    int init();
    /* reset(), then gives the queue itself up until the next init(). 0. */
    int destroy();
    /* Forgets every block in the queue. 0. */
    int reset();
    /* Appends the pointer. 0; -1 if it is null or there is no queue. If memory is short std::bad_alloc passes
     * on, with the object usable. */
    int putq(VYX_MSG_BLOCK_T *block);
    /*
     * Takes the oldest pointer, looking for one again and again, with pauses of at most a tenth of a millisecond
     * or so between the looks.
     *   out      receives the pointer; untouched on failure
     *   timeout  milliseconds; -1 = no limit; 0 and other negative values = one look
     *
     * 0; -1 if out is null, there is no queue, or the time-out is used up. It is used up by the looks alone, each
     * measured on the wall clock and rounded to the nearest millisecond, and not by the pauses: a look shorter
     * than half a millisecond, which almost every one is, takes nothing off. So a positive time-out bounds the
     * call only on a machine too busy to look quickly. A caller that must not wait uses 0.
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
