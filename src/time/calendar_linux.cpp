// The C library keeps the zone in variables, and leaves the zone record of gettimeofday empty. Other threads may have
// tzset change the variables meanwhile, hence the atomic looks.
#include <ctime>

#include "base/platform.h"
#include "base/units.h"

namespace {

template <class T>
T Look_Local(T &variable) {
    return __atomic_load_n(&variable, __ATOMIC_RELAXED);
}

} // namespace

uint32_t VYX_CoarseSecond_Inter(void) {
    struct timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now); // cannot fail
    return static_cast<uint32_t>(now.tv_sec);
}

int32_t VYX_MinutesWest_Inter(int32_t *pMinutes) {
    *pMinutes = static_cast<int32_t>(Look_Local(timezone) / vyx_inter::kSecondsPerMinute);
    return VYX_OK;
}

struct VYX_ZONE_MARK_S VYX_ZoneMark_Inter(void) {
    return {{Look_Local(tzname[0]), Look_Local(tzname[1])}, Look_Local(timezone), Look_Local(daylight)};
}
