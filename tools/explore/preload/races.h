// Vector clocks: what is ordered before what. Nothing is kept unless the front end asks for it.
#ifndef VYX_EXPLORE_RACES_H_
#define VYX_EXPLORE_RACES_H_

#include "scheduler.h"

namespace explore {

extern bool g_races;

void RaceStart();
void RaceAcquireSlow(Thread *me, const void *object);
void RaceReleaseSlow(Thread *me, const void *object);
void RaceCreate(Thread *me, const Thread *created);
void RaceStack(); // the calling thread's stack is new

// What was released to the object is before all that follows.
inline void RaceAcquire(Thread *me, const void *object) {
    if (g_races)
        RaceAcquireSlow(me, object);
}
// All so far is before what acquires the object later.
inline void RaceRelease(Thread *me, const void *object) {
    if (g_races)
        RaceReleaseSlow(me, object);
}

} // namespace explore

#endif
