// Fixed pool: items are handed over, some from inside an item that ends its thread, some by callers that wait; destruction
// waits for all. Then destruction meets items that submit others, one of them waiting for the worker that it keeps itself,
// and callers from elsewhere.
#include "pool.h"

static void *Outer(void *) {
    g_run++;
    Submit(Count, 0);
    VYX_Thread_Exit();
}

static void *Waiting(void *) {
    g_run++;
    Submit(Count, 0);
    Submit(Count, 1);
    return nullptr;
}

int main(int argc, char ** /*argv*/) { // with an argument: one worker instead of two
    CHECK(VYX_Init() == VYX_OK);
    g_pool = VYX_ThreadPool_Create(1, argc > 1 ? 1 : 2);
    CHECK(g_pool != nullptr);
    {
        const auto submit = [] {
            Submit(Outer, 0);
            Submit(Count, 1);
        };
        Runner first(submit);
        Runner second(submit);
    }
    CHECK(VYX_ThreadPool_Destroy(g_pool) == VYX_OK);
    CHECK(g_accepted == g_run && g_run >= 2);
    g_pool = VYX_ThreadPool_CreateFlex(0, 2, 0, 1);
    CHECK(g_pool != nullptr);
    Submit(Waiting, 0);
    Submit(Waiting, 1);
    {
        Runner waiting([] { Submit(Count, 1); });
        Runner late([] {
            for (int i = 0; i < 4; i++)
                Submit(Count, 0);
        });
        CHECK(VYX_ThreadPool_Destroy(g_pool) == VYX_OK);
    }
    CHECK(g_accepted == g_run && g_run >= 3);
    CHECK(VYX_Fini() == VYX_OK);
}
