// Flexible pool: it grows, its workers retire, and every item is handled once before the pool goes. A second one, whose
// workers stay, has items that need both of them, whether these look for work or sleep.
#include <atomic>

#include "scenario.h"

static std::atomic<int> s_handled[4];
static VYX_SEM_T s_done;
static VYX_SEM_T s_met[2];

static void Handle(void *item) {
    static_cast<std::atomic<int> *>(item)->fetch_add(1);
    CHECK(VYX_SemPost(&s_done) == VYX_OK);
}

static void Meet(void *second) {
    CHECK(VYX_SemPost(&s_done) == VYX_OK && VYX_SemPost(&s_met[second == nullptr ? 0 : 1]) == VYX_OK);
    CHECK(VYX_SemWait(&s_met[second == nullptr ? 1 : 0]) == VYX_OK);
}

int main() {
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&s_done, 0) == VYX_OK);
    VYX_HANDLE_THREADPOOLFLEX pool = VYX_ThreadPoolFlex_Create(2, 5, Handle, 0);
    CHECK(pool != nullptr);
    {
        const auto submit = [&](int i) {
            CHECK(VYX_ThreadPoolFlex_Work(pool, &s_handled[i]) == VYX_OK);
            Pass(5); // the idle time-out
            CHECK(VYX_ThreadPoolFlex_Work(pool, &s_handled[i + 1]) == VYX_OK);
        };
        Runner first([&] { submit(0); });
        Runner second([&] { submit(2); });
    }
    for (int i = 0; i < 4; i++)
        CHECK(VYX_SemWait(&s_done) == VYX_OK);
    CHECK(VYX_ThreadPoolFlex_Destroy(pool) == VYX_OK);
    for (const std::atomic<int> &handled : s_handled)
        CHECK(handled == 1);
    CHECK(VYX_SemCreate(&s_met[0], 0) == VYX_OK && VYX_SemCreate(&s_met[1], 0) == VYX_OK);
    pool = VYX_ThreadPoolFlex_Create(2, -1, Meet, 0);
    for (int round = 0; round < 6; round++) {
        Pass(round % 2 == 0 ? 0 : 5); // they look for work, or sleep
        for (void *second : {static_cast<void *>(nullptr), static_cast<void *>(&pool)}) {
            CHECK(VYX_ThreadPoolFlex_Work(pool, second) == VYX_OK);
            if (round == 0) // each item starts a worker
                CHECK(VYX_SemWait(&s_done) == VYX_OK);
        }
        if (round != 0)
            CHECK(VYX_SemWait(&s_done) == VYX_OK && VYX_SemWait(&s_done) == VYX_OK);
    }
    CHECK(VYX_ThreadPoolFlex_Destroy(pool) == VYX_OK);
    for (VYX_SEM_T *sem : {&s_done, &s_met[0], &s_met[1]})
        CHECK(VYX_SemDestroy(sem) == VYX_OK);
    CHECK(VYX_Fini() == VYX_OK);
}
