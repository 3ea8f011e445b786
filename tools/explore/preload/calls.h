// What the files of stand-ins share.
#ifndef VYX_EXPLORE_CALLS_H_
#define VYX_EXPLORE_CALLS_H_

#include <cerrno>

#include "races.h"
#include "real.h"
#include "scheduler.h"

// The address that the program's call returns to.
#define EXPLORE_SITE __builtin_return_address(0)

namespace explore {

// Deadlines of the calls, as moments of the schedule's clock.
int64_t ClockValue(clockid_t clock); // what the program sees on that clock, nanoseconds
bool Valid(const timespec *time);
int64_t Deadline(clockid_t clock, const timespec *at); // kNever if null
int64_t After(const timespec *time);                   // from now; kNever if null
// For a call that passes through in a forked child, whose clock is not the platform's: the same moment there.
timespec ToPlatform(clockid_t clock, const timespec *at);

// A call of a thread that was cancelled ends the thread here, if it may.
void CancelPoint(Thread *me);

// Takes a mutex that is known to be usable; waits if need be. The result is the platform's. Inside.
int TakeMutex(Thread *me, pthread_mutex_t *mutex, const Point &point, int64_t deadline);
int ReleaseMutex(Thread *me, pthread_mutex_t *mutex);

// The semaphore's name space is the process's own (semaphores.cpp). The number of open ones, for the leak check.
uint32_t OpenSemaphores();
uint32_t OpenDescriptors();
void CheckLeaks();

// Whether a call comes from the library that unwinds stacks. Its locks are no points: they order nothing of the
// program's, and a record of a point unwinds the stack and so takes them itself.
bool InUnwinder(const void *site);
void FindUnwinder(); // first

inline const void *DescriptorObject(int descriptor) {
    return reinterpret_cast<const void *>(static_cast<uintptr_t>(static_cast<unsigned>(descriptor)) + 1);
}

} // namespace explore

#endif
