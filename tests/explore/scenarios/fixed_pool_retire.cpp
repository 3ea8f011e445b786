// Fixed pool with idle time-out: a worker retires at the moment it is given work, and while the pool is destroyed.
#include <atomic>

#include "scenario.h"

static std::atomic<int> s_run;

static void *Count(void *) {
    s_run++;
    return nullptr;
}

int main() {
    CHECK(VYX_Init() == VYX_OK);
    VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_CreateFlex(0, 2, 0, 5);
    CHECK(pool != nullptr);
    int accepted[2] = {};
    {
        const auto submit = [&](int i) {
            for (int round = 0; round < 2; round++) {
                accepted[i] += VYX_ThreadPool_WorkEx(pool, Count, nullptr, 1) == VYX_OK ? 1 : 0;
                Pass(5); // the idle time-out
            }
        };
        Runner first([&] { submit(0); });
        Runner second([&] { submit(1); });
    }
    CHECK(VYX_ThreadPool_Destroy(pool) == VYX_OK);
    CHECK(accepted[0] + accepted[1] == 4 && s_run == 4);
    CHECK(VYX_Fini() == VYX_OK);
}
