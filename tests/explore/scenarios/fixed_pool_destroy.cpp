// Fixed pool: destruction meets items that submit others, one of them waiting for the worker that it keeps itself.
#include <atomic>

#include "scenario.h"

static VYX_HANDLE_THREADPOOL s_pool;
static std::atomic<int> s_accepted;
static std::atomic<int> s_run;

static void *Inner(void *) {
    s_run++;
    return nullptr;
}

static void *Outer(void *) {
    s_run++;
    for (int wait = 0; wait < 2; wait++)
        if (VYX_ThreadPool_WorkEx(s_pool, Inner, nullptr, wait) == VYX_OK)
            s_accepted++;
    return nullptr;
}

int main() {
    CHECK(VYX_Init() == VYX_OK);
    s_pool = VYX_ThreadPool_CreateFlex(0, 2, 0, 1);
    CHECK(s_pool != nullptr);
    for (int i = 0; i < 2; i++)
        if (VYX_ThreadPool_WorkEx(s_pool, Outer, nullptr, i) == VYX_OK)
            s_accepted++;
    CHECK(VYX_ThreadPool_Destroy(s_pool) == VYX_OK);
    CHECK(s_accepted == s_run && s_run >= 1);
    CHECK(VYX_Fini() == VYX_OK);
}
