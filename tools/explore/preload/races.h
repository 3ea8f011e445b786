// Vector clocks: what is ordered before what. Nothing is kept unless the front end asks for it.
#ifndef VYX_EXPLORE_RACES_H_
#define VYX_EXPLORE_RACES_H_

#include "scheduler.h"

namespace explore {

void RaceStart();
void RaceAcquire(Thread *me,
                 const void *object); // what was released to the object is before all that follows
void RaceRelease(Thread *me, const void *object); // all so far is before what acquires the object later
void RaceCreate(Thread *me, Thread *created);
void RaceJoin(Thread *me, const Thread *joined);

} // namespace explore

#endif
