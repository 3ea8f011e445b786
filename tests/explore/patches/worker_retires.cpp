// Two items, the second about when the worker's idle time is over: both run.
#include <atomic>

#include "../scenarios/scenario.h"

static std::atomic<int> s_run;

static void *Count(void *) {
    s_run++;
    return nullptr;
}

int main() {
    CHECK(VYX_Init() == VYX_OK);
    VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_CreateFlex(0, 1, 0, 5);
    CHECK(pool != nullptr && VYX_ThreadPool_WorkEx(pool, Count, nullptr, 1) == VYX_OK);
    Pass(5); // the idle time-out
    CHECK(VYX_ThreadPool_WorkEx(pool, Count, nullptr, 1) == VYX_OK);
    CHECK(VYX_ThreadPool_Destroy(pool) == VYX_OK);
    CHECK(s_run == 2);
    CHECK(VYX_Fini() == VYX_OK);
}
