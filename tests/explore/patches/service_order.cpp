// A bounded wait that runs out about when the library stops.
#include "../scenarios/scenario.h"

int main() {
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    CHECK(VYX_Init() == VYX_OK);
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK && VYX_CondCreate(&cond) == VYX_OK);
    {
        Runner waiter([&] {
            CHECK(VYX_MutexLock(&mutex) == VYX_OK);
            CHECK(VYX_CondTimedWait(&cond, &mutex, 1) == VYX_ERROR);
            CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
        });
        Pass(1);
        CHECK(VYX_Fini() == VYX_OK);
        CHECK(VYX_Init() == VYX_OK); // for a wait that begins after the stop
    }
    CHECK(VYX_Fini() == VYX_OK);
}
