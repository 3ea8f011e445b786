// Bounded waits for a semaphore meet posts and their own time-outs: every unit goes to one waiter or stays.
#include "scenario.h"

int main() {
    VYX_SEM_T sem;
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&sem, 0) == VYX_OK);
    int taken[3] = {};
    {
        const auto wait = [&](int i, uint32_t limit) {
            taken[i] = VYX_SemTimedWait(&sem, limit) == VYX_OK ? 1 : 0;
        };
        Runner first([&] { wait(0, 10); });
        Runner second([&] { wait(1, 10); });
        Runner forever([&] { wait(2, VYX_INFINITE); });
        Runner poster([&] {
            CHECK(VYX_SemPost(&sem) == VYX_OK);
            Pass(10); // the two time-outs
            CHECK(VYX_SemPost(&sem) == VYX_OK && VYX_SemPost(&sem) == VYX_OK);
        });
    }
    int left = 0;
    while (VYX_SemTimedWait(&sem, 0) == VYX_OK)
        left++;
    CHECK(taken[2] == 1 && taken[0] + taken[1] + taken[2] + left == 3);
    CHECK(VYX_SemDestroy(&sem) == VYX_OK && VYX_Fini() == VYX_OK);
}
