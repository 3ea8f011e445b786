// The zone record of gettimeofday would tell the offset, but the C library fills it in once for the life of the process:
// a change of the zone never shows there. So what it is made of is asked anew.
#include <ctime>
#include <sys/time.h>

#include "base/platform.h"
#include "base/units.h"

namespace {

template <class T>
T Look_Local(T &variable) {
    return __atomic_load_n(&variable, __ATOMIC_RELAXED); // other threads may have tzset change it meanwhile
}

} // namespace

uint32_t VYX_CoarseSecond_Inter(void) {
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr); // no system call there
    return static_cast<uint32_t>(now.tv_sec);
}

int32_t VYX_MinutesWest_Inter(int32_t *pMinutes) {
    const time_t tNow = time(nullptr);
    struct tm fields = {};
    if (localtime_r(&tNow, &fields) == nullptr)
        return VYX_ERROR;
    constexpr int32_t kSaving = 60; // as that zone record has it
    *pMinutes = static_cast<int32_t>(-fields.tm_gmtoff / vyx_inter::kSecondsPerMinute) +
                (fields.tm_isdst > 0 ? kSaving : 0);
    return VYX_OK;
}

struct VYX_ZONE_MARK_S VYX_ZoneMark_Inter(void) {
    return {{Look_Local(tzname[0]), Look_Local(tzname[1])}, Look_Local(timezone), Look_Local(daylight)};
}
