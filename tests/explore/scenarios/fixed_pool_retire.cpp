// Fixed pool with idle time-out: a worker retires at the moment it is given work, and while the pool is destroyed.
#include "pool.h"

int main() {
    CHECK(VYX_Init() == VYX_OK);
    g_pool = VYX_ThreadPool_CreateFlex(0, 2, 0, 5);
    CHECK(g_pool != nullptr);
    {
        const auto submit = [] {
            for (int round = 0; round < 2; round++) {
                Submit(Count, 1);
                Pass(5); // the idle time-out
            }
        };
        Runner first(submit);
        Runner second(submit);
    }
    CHECK(VYX_ThreadPool_Destroy(g_pool) == VYX_OK);
    CHECK(g_accepted == 4 && g_run == 4);
    CHECK(VYX_Fini() == VYX_OK);
}
