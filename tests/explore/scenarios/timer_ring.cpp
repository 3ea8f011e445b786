// Timers that kill each other in their routines, and a stop of the library beside them: nobody waits for ever.
#include <atomic>

#include "scenario.h"

static std::atomic<uint32_t> s_ids[2];

static void KillOther(uint32_t, void *data) {
    (void)VYX_KillTimer(static_cast<int32_t>(s_ids[data == nullptr ? 1 : 0].load()));
}

int main() {
    uint32_t ids[2] = {};
    CHECK(VYX_Init() == VYX_OK);
    CHECK(VYX_SetTimer(KillOther, nullptr, 5, &ids[0]) == VYX_OK);
    s_ids[0] = ids[0];
    CHECK(VYX_SetTimer(KillOther, &ids, 5, &ids[1]) == VYX_OK);
    s_ids[1] = ids[1];
    Pass(7);
    for (const uint32_t id : ids)
        (void)VYX_KillTimer(static_cast<int32_t>(id));
    CHECK(VYX_Fini() == VYX_OK);
}
