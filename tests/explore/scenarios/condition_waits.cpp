// Bounded waits for a condition meet signals, their own time-outs and the condition's end.
#include "scenario.h"

int main() {
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    CHECK(VYX_Init() == VYX_OK && VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK);
    CHECK(VYX_CondCreate(&cond) == VYX_OK);
    int tokens = 0;
    int taken = 0;
    {
        const auto wait = [&] {
            CHECK(VYX_MutexLock(&mutex) == VYX_OK);
            while (tokens == 0)
                (void)VYX_CondTimedWait(&cond, &mutex, 5);
            tokens--, taken++;
            CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
        };
        Runner first(wait);
        Runner second(wait);
        Runner signaller([&] {
            for (int i = 0; i < 2; i++) {
                CHECK(VYX_MutexLock(&mutex) == VYX_OK);
                tokens++;
                CHECK(VYX_CondSignal(&cond) == VYX_OK);
                CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
                Pass(5); // the first time-out
            }
        });
    }
    CHECK(tokens == 0 && taken == 2);
    CHECK(VYX_CondDestroy(&cond) == VYX_OK && VYX_MutexDestroy(&mutex) == VYX_OK && VYX_Fini() == VYX_OK);
}
