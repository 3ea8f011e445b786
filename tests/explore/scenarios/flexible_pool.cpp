// Flexible pool: it grows, its workers retire, and every item is handled once before the pool goes. A second one, whose
// workers stay, wakes them for every item. A third is destroyed with items queued, handlers at work and workers about to
// retire; a handler that asks for more is refused or served.
#include <atomic>

#include "scenario.h"

static std::atomic<int> s_handled[4];
static VYX_SEM_T s_done;

static void Handle(void *item) {
    static_cast<std::atomic<int> *>(item)->fetch_add(1);
    CHECK(VYX_SemPost(&s_done) == VYX_OK);
}

static VYX_HANDLE_THREADPOOLFLEX s_pool;
static std::atomic<int> s_more_taken;
static std::atomic<int> s_more_handled;

static void HandleMore(void *item) {
    s_more_handled++;
    if (item != nullptr && VYX_ThreadPoolFlex_Work(s_pool, nullptr) == VYX_OK)
        s_more_taken++;
}

int main() {
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&s_done, 0) == VYX_OK);
    for (const int32_t idle : {5, -1}) {
        VYX_HANDLE_THREADPOOLFLEX pool = VYX_ThreadPoolFlex_Create(2, idle, Handle, 0);
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
        for (std::atomic<int> &handled : s_handled)
            CHECK(handled.exchange(0) == 1);
    }
    s_pool = VYX_ThreadPoolFlex_Create(2, 2, HandleMore, 0);
    CHECK(s_pool != nullptr);
    for (int i = 0; i < 3; i++) {
        CHECK(VYX_ThreadPoolFlex_Work(s_pool, &s_pool) == VYX_OK);
        s_more_taken++;
        if (i == 1)
            Pass(2); // the idle time-out
    }
    CHECK(VYX_ThreadPoolFlex_Destroy(s_pool) == VYX_OK);
    CHECK(s_more_handled <= s_more_taken);
    CHECK(VYX_SemDestroy(&s_done) == VYX_OK && VYX_Fini() == VYX_OK);
}
