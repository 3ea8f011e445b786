// All that the library needs of a platform beyond POSIX and the C and C++ standard libraries.
//
// Each function is defined once for each platform, in the files NAME_PLATFORM.cpp that cmake/Platform.cmake lists, and
// nowhere else. docs/porting.md says in which order a new platform is brought up. Unless a comment says otherwise, a
// function may be called by several threads at once, and no exception leaves it.
#ifndef VYX_BASE_PLATFORM_H
#define VYX_BASE_PLATFORM_H

#include <pthread.h>
#include <semaphore.h>
#include <sys/types.h>
#include <vyx/types.h>

struct stat;

namespace vyx_inter {

class AdapterList; // net/adapter_inter.h
class Deadline;    // base/deadline.h

// ---- Waiting: base/deadline, sync/sem_sleep

enum class Clock : uint8_t {
    Wall,      // microseconds since 1970; can be set, which shortens or prolongs waits
    Monotonic, // microseconds since some moment; only ever goes on
};

// The clock's time in microseconds. Right beyond the year 2038 also where time_t has 32 bits.
int64_t Now(Clock eClock);

// Waits on a condition that was made with default attributes. The deadline may be of either clock, or never. Result: false
// if the time is out; true otherwise, which need not mean that the condition was signalled. No signal that comes before
// the deadline is lost. A cancellation point, after which the mutex is held.
bool CondWaitUntil(pthread_cond_t *pCond, pthread_mutex_t *pMutex, const Deadline &deadline);

// Takes a mutex. Result: false if it could not be had before the deadline. Whoever holds it gives it back soon, but may take
// it again at once: the call sleeps where it can, and is woken by whoever gives it back. A wall clock that is set back may
// prolong the wait. Also called in signal handlers.
bool LockUntil(pthread_mutex_t *pMutex, const Deadline &deadline);

// ---- Mutexes: base/mutex. What a platform can tell of them besides is rows of the description (base/describe.h).

// The number by which the system knows the thread that holds a mutex; 0 if nobody does, or the platform does not tell.
uint32_t OwnerOf(const pthread_mutex_t &hMutex);

// Who holds a locked mutex, as far as the platform tells.
enum class Holder : uint8_t {
    Self,  // the calling thread
    Other, // another one
    AtEdge, // somebody who has not changed anything yet, or no longer will: right after taking, or before giving back
    Unknown, // the platform does not tell
};
// Also called in signal handlers.
Holder HolderOf(const pthread_mutex_t &hMutex);

} // namespace vyx_inter

VYX_BEGIN_DECLS

// Takes a count of a semaphore, sleeping until the deadline, which is of the wall clock, if need be. Signals do not end
// the sleep; a cancellation does. Result: whether a count was taken.
bool VYX_SemSleep_Inter(sem_t *pSem, const vyx_inter::Deadline &deadline);

// Whether that sleep ends at the deadline. If not, it lasts until there is a count, and timer_svc posts one.
bool VYX_SemSleepKeepsTime_Inter(void);

// ---- Named semaphores: sync/sem_open

// What the platform wants in front of a semaphore's name: "" or "/". At most 8 characters.
const char *VYX_SemNamePrefix_Inter(void);

// Whether a semaphore of that name is known to exist. Cheaper than trying to open it. False where the platform does not
// tell.
bool VYX_SemNameIsTaken_Inter(const char *szName);

// Calls pfnName for the name of each semaphore that exists, without the prefix; may leave some out. For many names cheaper
// than to ask for each.
void VYX_EachSemName_Inter(void (*pfnName)(const char *szName, void *pContext), void *pContext);

// Gives a semaphore that was opened just now, and that nobody else uses, the count nInitial, whatever count it has.
void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial);

// ---- Threads: thread/service_thread

// Bytes that the platform takes from every thread's stack for thread-local variables; 0 if they lie elsewhere.
uint64_t VYX_StackTaken_Inter(void);

// Gives the calling thread the name, of at most 15 characters, that debuggers and process listings show.
void VYX_NameThread_Inter(const char *szName);

// ---- Memory: log/log_memory

// Has the kernel give the memory its pages, without a change of what is in it, so that nobody who writes there waits for
// them. Does nothing where the platform cannot.
void VYX_PopulateMemory_Inter(void *pMemory, size_t nSize);

// ---- Time: time/calendar. All but the clock is called with the lock of the calendar held.

// Seconds of a clock that is cheap to read and not behind by more than a small part of a second. It may start and jump
// anywhere: two readings are only ever compared for being the same.
uint32_t VYX_CoarseSecond_Inter(void);

// Minutes that local standard time, without daylight saving, lies west of Greenwich at present, in the zone that the C
// library has. Result: 0, or -1 if the platform cannot tell.
int32_t VYX_MinutesWest_Inter(int32_t *pMinutes);

// What can be told of the zone that the C library has, from its variables tzname, timezone and daylight or what the platform
// has in their place. The application may have the C library take another zone at any time, and change them meanwhile.
struct VYX_ZONE_MARK_S {
    const char *pNames[2];
    long lWest; // seconds
    int iDaylight;
};
struct VYX_ZONE_MARK_S VYX_ZoneMark_Inter(void);

// ---- Strings: string/fold

// What toupper and tolower give for each byte, 0 to 255, in the calling thread's locale at this moment. Null where the
// platform does not tell; then each byte costs a call.
const int32_t *VYX_UpperTable_Inter(void);
const int32_t *VYX_LowerTable_Inter(void);

// ---- Network: net/send_now, net/adapter

// Sends what the socket takes at once, as send answers: -1 with EAGAIN if it takes nothing. Never blocks, whatever the
// socket's mode is, which is the same afterwards; meanwhile it may be non-blocking for other threads, too.
ssize_t VYX_SendNow_Inter(VYX_SOCK_T hSocket, const void *pBuf, size_t nLen);

// Puts the interfaces of this system and their addresses, in the kernel's order, into the list. Result: 0; -1 with errno if
// they cannot be read or memory is short. Where the kernel lists them in routing messages, net/route_walk.h reads these:
// the platform's file asserts that the offsets and numbers there are those of its own headers.
int32_t VYX_ReadInterfaces_Inter(vyx_inter::AdapterList *pList);

// ---- System: sys/system, sys/charset

// Processors online; 0 or less if that cannot be told.
int32_t VYX_CountProcessors_Inter(void);

// Fills the 16 bytes with a new random UUID (version 4). Result: 0; -1 if the platform gives no random bytes.
int32_t VYX_GenerateUuid_Inter(uint8_t *pUuid16);

// Whether iconv may put another character in the place of one that the target set lacks, and count that as success.
bool VYX_IconvReplaces_Inter(void);

// ---- Files: sys/exe_path, sys/file_copy

// Writes the path that the running program was started by, zero-terminated, into szBuf of nSize bytes. It may hold links.
// Result: 0; -1 if it cannot be told or does not fit.
int32_t VYX_ExecutablePath_Inter(char *szBuf, uint32_t nSize);

// What a file's holes are known by.
enum VYX_HOLES {
    VYX_HOLES_NONE,  // there are none
    VYX_HOLES_TOLD,  // lseek tells where they are (SEEK_DATA, SEEK_HOLE)
    VYX_HOLES_HIDDEN // there may be some; what lseek says may be wrong, so that only the content tells
};
enum VYX_HOLES VYX_HolesOf_Inter(const struct stat *pFile);

// Copies up to nLength bytes within the kernel, from iOffset of one file to the same place of the other, and returns how
// many; 0 at the end of the source; -1 if that failed or cannot be done for these files.
ssize_t VYX_CopyInKernel_Inter(int iSource, int iTarget, off_t iOffset, size_t nLength);

VYX_END_DECLS

#endif
