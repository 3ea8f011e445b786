// Fixed pool: destruction meets items that submit others, one of them waiting for the worker that it keeps itself, and
// callers from elsewhere.
#include "pool.h"

static void *Outer(void *) {
    g_run++;
    Submit(Count, 0);
    Submit(Count, 1);
    return nullptr;
}

int main() {
    CHECK(VYX_Init() == VYX_OK);
    g_pool = VYX_ThreadPool_CreateFlex(0, 2, 0, 1);
    CHECK(g_pool != nullptr);
    Submit(Outer, 0);
    Submit(Outer, 1);
    {
        Runner waiting([] { Submit(Count, 1); });
        Runner late([] {
            for (int i = 0; i < 4; i++)
                Submit(Count, 0);
        });
        CHECK(VYX_ThreadPool_Destroy(g_pool) == VYX_OK);
    }
    CHECK(g_accepted == g_run && g_run >= 1);
    CHECK(VYX_Fini() == VYX_OK);
}
