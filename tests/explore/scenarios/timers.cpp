// Timers: set, killed by two at once, killed in their own routine. After a kill from outside the routine runs no more.
#include <atomic>

#include "scenario.h"

struct Timer {
    uint32_t id = 0;
    VYX_SEM_T called = nullptr;
    std::atomic<bool> killed{false};
    std::atomic<int> calls{0};
};

static void Tick(uint32_t, void *data) {
    auto *timer = static_cast<Timer *>(data);
    CHECK(!timer->killed);
    timer->calls++;
    Pass(1); // a kill waits for this call
    CHECK(!timer->killed);
}

static void Once(uint32_t id, void *data) {
    auto *timer = static_cast<Timer *>(data);
    timer->calls++;
    (void)VYX_KillTimer(static_cast<int32_t>(id));
    uint32_t next = 0;
    CHECK(VYX_SetTimer(nullptr, nullptr, 1, &next) == VYX_OK && next <= id); // free at once
    (void)VYX_KillTimer(static_cast<int32_t>(next));
    CHECK(VYX_SemPost(&timer->called) == VYX_OK);
}

int main() {
    Timer ticking;
    Timer once;
    CHECK(VYX_Init() == VYX_OK && VYX_SemCreate(&once.called, 0) == VYX_OK);
    CHECK(VYX_SetTimer(Tick, &ticking, 5, &ticking.id) == VYX_OK);
    CHECK(VYX_SetTimer(Once, &once, 5, &once.id) == VYX_OK);
    {
        const auto kill = [&] {
            Pass(5); // the period
            (void)VYX_KillTimer(static_cast<int32_t>(ticking.id));
            ticking.killed = true;
        };
        Runner first(kill);
        Runner second(kill);
    }
    CHECK(VYX_SemWait(&once.called) == VYX_OK);
    Pass(10); // time enough for a second call
    CHECK(once.calls == 1);
    CHECK(VYX_SemDestroy(&once.called) == VYX_OK && VYX_Fini() == VYX_OK);
}
