// Bounded waits meet the library's stop, which ends them, and its next start, which those need that begin in between.
#include "scenario.h"

int main() {
    VYX_SEM_T sem;
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&sem, 0) == VYX_OK && VYX_CondCreate(&cond) == VYX_OK);
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK);
    int taken = 0;
    {
        Runner semaphore([&] { taken = VYX_SemTimedWait(&sem, 20) == VYX_OK ? 1 : 0; });
        Runner condition([&] {
            CHECK(VYX_MutexLock(&mutex) == VYX_OK);
            CHECK(VYX_CondTimedWait(&cond, &mutex, 20) == VYX_ERROR);
            CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
        });
        Runner poster([&] { CHECK(VYX_SemPost(&sem) == VYX_OK); });
        CHECK(VYX_Fini() == VYX_OK);
        CHECK(VYX_Init() == VYX_OK);
    }
    CHECK((taken == 1) != (VYX_SemTimedWait(&sem, 0) == VYX_OK));
    CHECK(VYX_MutexDestroy(&mutex) == VYX_OK && VYX_CondDestroy(&cond) == VYX_OK &&
          VYX_SemDestroy(&sem) == VYX_OK);
    CHECK(VYX_Fini() == VYX_OK);
}
