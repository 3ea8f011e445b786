// Fixed pool: items are handed over, some from inside an item, some by callers that wait; destruction waits for all.
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
    if (VYX_ThreadPool_Work(s_pool, Inner, nullptr) == VYX_OK)
        s_accepted++;
    return nullptr;
}

int main() {
    CHECK(VYX_Init() == VYX_OK);
    s_pool = VYX_ThreadPool_Create(1, 2);
    CHECK(s_pool != nullptr);
    {
        const auto submit = [] {
            for (int i = 0; i < 2; i++)
                if (VYX_ThreadPool_WorkEx(s_pool, i == 0 ? Outer : Inner, nullptr, i) == VYX_OK)
                    s_accepted++;
        };
        Runner first(submit);
        Runner second(submit);
    }
    CHECK(VYX_ThreadPool_Destroy(s_pool) == VYX_OK);
    CHECK(s_accepted == s_run && s_run >= 2);
    CHECK(VYX_Fini() == VYX_OK);
}
