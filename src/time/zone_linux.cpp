#include "time/time_inter.h"

// The C library leaves the zone record of gettimeofday empty and keeps the standard offset in a variable,
// which tzset brings up to date. Other threads may do the same meanwhile, hence the atomic look.
int32_t VYX_MinutesWest_Inter(int32_t *pMinutes) {
    tzset();
    constexpr long kSecondsPerMinute = 60;
    *pMinutes = static_cast<int32_t>(__atomic_load_n(&timezone, __ATOMIC_RELAXED) / kSecondsPerMinute);
    return VYX_OK;
}
