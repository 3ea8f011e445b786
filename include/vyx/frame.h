/*
 * Start and stop of the library, its version, the switch of the log service, and the last-error functions.
 *
 * VYX_Init starts the library's services: SIGPIPE is set to be ignored, the message-queue and thread-pool
 * registries come up, then the service behind bounded waits (one thread, "timer_svc"), then the lock behind
 * the atomic operations. Mutexes, semaphores, conditions, threads, time and the system utilities need no
 * start; bounded semaphore and condition waits and the atomic operations do.
 */
#ifndef VYX_FRAME_H
#define VYX_FRAME_H

#include <vyx/types.h>

#define VYX_VERSION 0x01000001u /* what VYX_GetVYXVersion returns */

VYX_BEGIN_DECLS

/*
 * Starts the library. Calls are counted: only the first one does work, later ones raise the counter, and
 * each needs a VYX_Fini of its own.
 *
 * Result:  VYX_OK started (or already running); VYX_ERROR if a service could not start: those that had come
 *          up are stopped again, the counter is unchanged, and a later call tries anew. No message is printed.
 * Threads: any thread, also before main (from static constructors). Not from within a service's own start or
 *          stop, which would deadlock. Not from a signal handler.
 * Effect:  SIGPIPE is ignored from the first start on, process-wide, also after VYX_Fini.
 * Fork:    the services' threads do not exist in a forked child; see the table at the end of vyx/frame.h.
 */
VYX_API int32_t VYX_Init(void);

/*
 * Starts the library: VYX_Init under a second name, with the same counter.
 *
 * Result:  as VYX_Init: VYX_OK, or VYX_ERROR with nothing started.
 * Threads: as VYX_Init.
 */
VYX_API int32_t VYX_InitEx(void);

/*
 * Undoes one VYX_Init; the call that brings the counter to 0 switches the log service off and stops every
 * service, in the order in which they were started.
 * Bounded waits still pending then return VYX_ERROR. The library may be started again afterwards.
 *
 * Calls must be paired. An unmatched VYX_Fini is counted all the same: the counter becomes -1 and nothing
 * stops, the next VYX_Init then only brings the counter back to 0 without starting anything (and returns
 * VYX_OK), and only the one after that starts the library.
 *
 * Result:  VYX_OK; failures to stop are not reported.
 * Threads: as VYX_Init. No other thread may be inside an atomic operation then.
 */
VYX_API int32_t VYX_Fini(void);

/*
 * Undoes one VYX_Init: VYX_Fini under a second name, with the same counter.
 *
 * Result:  VYX_OK; failures to stop are not reported.
 * Threads: as VYX_Fini.
 */
VYX_API int32_t VYX_FiniEx(void);

/*
 * Tells the version of the library that the program runs with.
 *
 * Result:  one opaque number, VYX_VERSION of the headers that the library was built with.
 * Threads: any.
 */
VYX_API uint32_t VYX_GetVYXVersion(void);

/*
 * Switches the log service (vyx/log.h) on or off in one call.
 *   nFlags      0: off. Otherwise on: lines of every level pass; bit 0 adds standard output, bit 1 the rotating files,
 *               of 2097152 bytes and numbered without end; other bits are ignored. Nothing is switched off
 *   pFileParam  directory of the files, as in EnableTarget: a path, borrowed for the call; null = "./vyxlog/"
 *
 * Lines to standard output go through stdio and are not flushed: in a pipe, a file or a container's log they appear
 * late. The cure is one call before the first line: setvbuf(stdout, NULL, _IOLBF, 0).
 *
 * Off writes what is queued, switches standard output and the files off, leaves standard error as it is, and stops the
 * service: WriteLog answers -2 (or -5 with no target) until it is switched on again.
 *
 * Result:  always VYX_OK.
 * Threads: any. Off blocks until the lines are written.
 */
VYX_API int32_t VYX_Log(uint32_t nFlags, const void *pFileParam);

/*
 * Tells nothing: the library keeps no error code of its own. VYX_GetSystemLastError has the platform's.
 *
 * Result:  always 0.
 * Threads: any.
 */
VYX_API uint32_t VYX_GetLastError(void);

/*
 * Does nothing: the library keeps no error code of its own. VYX_SetSystemLastError sets the platform's.
 *   nCode  ignored
 *
 * Result:  always 0.
 * Threads: any.
 */
VYX_API int32_t VYX_SetLastError(uint32_t nCode);

/*
 * Reads errno. Most functions of the library that fail leave it as the failing platform call set it.
 *
 * Result:  the calling thread's errno.
 * Threads: any; each has a value of its own.
 */
VYX_API uint32_t VYX_GetSystemLastError(void);

/*
 * Sets errno.
 *   nCode  the calling thread's errno from now on
 *
 * Threads: any; each has a value of its own.
 */
VYX_API void VYX_SetSystemLastError(uint32_t nCode);

/*
 * What a forked child may do
 *
 * A fork waits until no other thread is changing the library's state, as a rule for microseconds. It gives up after about
 * a second; after ten for the atomic operations, bounded waits, semaphores, local times, random numbers and character
 * sets, which other threads may be using all the time, and for a fork of another thread that is under way. What a
 * fork gave up on may be half changed in the child, and a call of it may not return there. Else the child finds all locks
 * of the library free, in whatever calls other threads of the parent were. It has one thread, and of the library's none. A child that
 * wants bounded waits or the library's threads calls VYX_Fini, as often as the parent had called VYX_Init, and VYX_Init.
 * A fork in a signal handler does not block either; as everywhere, the child may then call only what a signal handler may
 * until it ends or starts another program.
 *
 * | subsystem                | in the child at once                                 | after VYX_Fini and VYX_Init |
 * |--------------------------|------------------------------------------------------|-----------------------------|
 * | start and stop           | VYX_Fini, VYX_Init: the counter is the parent's      |                             |
 * | mutexes, conditions      | as after any fork: those that a thread of the parent | the same                    |
 * |                          | held stay held. VYX_CondDestroy of any condition     |                             |
 * | semaphores               | all but bounded waits; those made before the fork    | all                         |
 * |                          | are shared with the parent, and their names are its  |                             |
 * |                          | to remove: destroying one removes the name           |                             |
 * | bounded waits            | as in a library that is not started                  | all                         |
 * | atomic operations        | all                                                  | all                         |
 * | fixed pools              | new ones without an idle time-out; the parent's      | new ones; the parent's are  |
 * |                          | refuse work and can be destroyed, which does not     | gone                        |
 * |                          | wait                                                 |                             |
 * | flexible pools           | new ones; the parent's refuse work and can be        | the same                    |
 * |                          | destroyed, which does not wait                       |                             |
 * | message queues           | the parent's with a copy of their messages           | new ones                    |
 * | events                   | all; the parent's are shared with it                 | the same                    |
 * | timers                   | VYX_SetTimer; no timer of the parent exists          | all                         |
 * | log                      | WriteLog: the queue is empty and the file target off | the same                    |
 * | sockets, files, times,   | all                                                  | all                         |
 * | strings, containers,     |                                                      |                             |
 * | random numbers           |                                                      |                             |
 * | names of hosts           | VYX_GetAddressInfo and VYX_GetAddressByName may wait | the same                    |
 * |                          | for ever if a thread of the parent was in one of     |                             |
 * |                          | them; addresses in digits are fine                   |                             |
 */

VYX_END_DECLS

#endif
