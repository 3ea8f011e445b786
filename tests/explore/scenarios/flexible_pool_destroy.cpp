// Flexible pool: it is destroyed with items queued, handlers at work and workers about to retire; a handler that asks
// for more is refused or served.
#include <atomic>

#include "scenario.h"

static std::atomic<int> s_handled;
static VYX_HANDLE_THREADPOOLFLEX s_pool;
static std::atomic<int> s_taken;

static void Handle(void *item) {
    s_handled++;
    if (item != nullptr && VYX_ThreadPoolFlex_Work(s_pool, nullptr) == VYX_OK)
        s_taken++;
}

int main() {
    int item = 0;
    CHECK(VYX_Init() == VYX_OK);
    s_pool = VYX_ThreadPoolFlex_Create(2, 2, Handle, 0);
    CHECK(s_pool != nullptr);
    for (int i = 0; i < 3; i++) {
        CHECK(VYX_ThreadPoolFlex_Work(s_pool, &item) == VYX_OK);
        s_taken++;
        if (i == 1)
            Pass(2); // the idle time-out
    }
    CHECK(VYX_ThreadPoolFlex_Destroy(s_pool) == VYX_OK);
    CHECK(s_handled <= s_taken);
    CHECK(VYX_Fini() == VYX_OK);
}
