// Two items, the second about when the worker's idle time is over: both run.
#include "../scenarios/pool.h"

int main() {
    CHECK(VYX_Init() == VYX_OK);
    g_pool = VYX_ThreadPool_CreateFlex(0, 1, 0, 5);
    CHECK(g_pool != nullptr);
    Submit(Count, 1);
    Pass(5); // the idle time-out
    Submit(Count, 1);
    CHECK(VYX_ThreadPool_Destroy(g_pool) == VYX_OK);
    CHECK(g_run == 2);
    CHECK(VYX_Fini() == VYX_OK);
}
