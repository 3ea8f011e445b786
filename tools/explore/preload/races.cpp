#include "races.h"

namespace explore {

void RaceStart() {}
void RaceAcquire(Thread *, const void *) {}
void RaceRelease(Thread *, const void *) {}
void RaceCreate(Thread *, Thread *) {}
void RaceJoin(Thread *, const Thread *) {}

} // namespace explore
