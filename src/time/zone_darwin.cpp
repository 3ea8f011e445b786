#include "time/time_inter.h"

int32_t VYX_MinutesWest_Inter(int32_t *pMinutes) {
    struct timeval now;
    struct timezone zone;
    if (gettimeofday(&now, &zone) == -1)
        return VYX_ERROR;
    *pMinutes = zone.tz_minuteswest;
    return VYX_OK;
}
