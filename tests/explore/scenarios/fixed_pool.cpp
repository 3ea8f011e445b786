// Fixed pool: items are handed over, some from inside an item that ends its thread, some by callers that wait; destruction
// waits for all.
#include "pool.h"

static void *Outer(void *) {
    g_run++;
    Submit(Count, 0);
    VYX_Thread_Exit();
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
    CHECK(VYX_Fini() == VYX_OK);
}
