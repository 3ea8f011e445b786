// Start and stop from several threads, beside a pool, a queue, a timer, the log and bounded waits. Calls that need the
// library may be refused, but all come back.
#include "scenario.h"

static void *Nothing(void *) {
    return nullptr;
}
static void Tick(uint32_t, void *) {}

static void UseAll() {
    CHECK(VYX_Init() == VYX_OK);
    VYX_HANDLE_MSGQ queue = nullptr;
    CHECK(VYX_MsgQCreateEx(&queue) == VYX_OK);
    static thread_local VYX_MSG_BLOCK_T block;
    CHECK(VYX_MsgQSendEx(queue, &block) == VYX_OK);
    VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_Create(1, 1);
    CHECK(pool != nullptr);
    (void)VYX_ThreadPool_Work(pool, Nothing, nullptr);
    uint32_t id = 0;
    CHECK(VYX_SetTimer(Tick, nullptr, 3, &id) == VYX_OK);
    VYX_SEM_T sem;
    CHECK(VYX_SemCreate(&sem, 0) == VYX_OK && VYX_SemTimedWait(&sem, 3) == VYX_ERROR);
    CHECK(VYX_SemDestroy(&sem) == VYX_OK);
    (void)VYX_KillTimer(static_cast<int32_t>(id));
    CHECK(VYX_ThreadPool_Destroy(pool) == VYX_OK);
    CHECK(VYX_MsgQDestroyEx(queue) == VYX_OK);
    CHECK(VYX_Fini() == VYX_OK);
}

int main() {
    {
        Runner first(UseAll);
        Runner second([] {
            for (int i = 0; i < 2; i++)
                CHECK(VYX_Init() == VYX_OK && VYX_Fini() == VYX_OK);
        });
        Runner third([] {
            CHECK(VYX_InitEx() == VYX_OK);
            Pass(2);
            CHECK(VYX_FiniEx() == VYX_OK);
        });
    }
    UseAll();
}
