// Bounded waits meet the library's stop, which ends them, and its next start, which those need that begin in between.
#include "scenario.h"

int main() {
    VYX_SEM_T sem;
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&sem, 0) == VYX_OK && VYX_CondCreate(&cond) == VYX_OK);
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK);
    int taken[2] = {};
    {
        const auto wait = [&](int i, uint32_t limit) {
            return [&, i, limit] { taken[i] = VYX_SemTimedWait(&sem, limit) == VYX_OK ? 1 : 0; };
        };
        Runner semaphore(wait(0, 20));
        Runner late(wait(1, 0)); // its time-out may meet the stop
        Runner condition([&] {
            CHECK(VYX_MutexLock(&mutex) == VYX_OK);
            CHECK(VYX_CondTimedWait(&cond, &mutex, 20) == VYX_ERROR);
            CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
        });
        Runner poster([&] { CHECK(VYX_SemPost(&sem) == VYX_OK); });
        CHECK(VYX_Fini() == VYX_OK);
        CHECK(VYX_Init() == VYX_OK);
    }
    CHECK(taken[0] + taken[1] + (VYX_SemTimedWait(&sem, 0) == VYX_OK ? 1 : 0) == 1);
    CHECK(VYX_MutexDestroy(&mutex) == VYX_OK && VYX_CondDestroy(&cond) == VYX_OK &&
          VYX_SemDestroy(&sem) == VYX_OK);
    CHECK(VYX_Fini() == VYX_OK);
}
