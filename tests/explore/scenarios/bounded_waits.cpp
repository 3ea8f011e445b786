// Bounded waits for a semaphore and for a condition meet posts, signals, their own time-outs and the end of both: every
// unit goes to one waiter or stays.
#include "scenario.h"

int main() {
    VYX_SEM_T sem;
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&sem, 0) == VYX_OK && VYX_CondCreate(&cond) == VYX_OK);
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK);
    int tokens = 0;
    int taken[3] = {};
    {
        const auto wait = [&](int i, uint32_t limit) {
            taken[i] = VYX_SemTimedWait(&sem, limit) == VYX_OK ? 1 : 0;
            CHECK(VYX_MutexLock(&mutex) == VYX_OK);
            while (tokens == 0)
                (void)VYX_CondTimedWait(&cond, &mutex, 5);
            tokens--;
            CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
        };
        Runner first([&] { wait(0, 10); });
        Runner second([&] { wait(1, 10); });
        Runner forever([&] { wait(2, VYX_INFINITE); });
        Runner giver([&] {
            for (int i = 0; i < 3; i++) {
                CHECK(VYX_SemPost(&sem) == VYX_OK);
                CHECK(VYX_MutexLock(&mutex) == VYX_OK);
                tokens++;
                CHECK(VYX_CondSignal(&cond) == VYX_OK);
                CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
                Pass(5); // the first time-out
            }
        });
    }
    int left = 0;
    while (VYX_SemTimedWait(&sem, 0) == VYX_OK)
        left++;
    CHECK(tokens == 0 && taken[2] == 1 && taken[0] + taken[1] + taken[2] + left == 3);
    CHECK(VYX_CondDestroy(&cond) == VYX_OK && VYX_MutexDestroy(&mutex) == VYX_OK);
    CHECK(VYX_SemDestroy(&sem) == VYX_OK && VYX_Fini() == VYX_OK);
}
