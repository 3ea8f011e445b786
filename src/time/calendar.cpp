// The platform's calendar, asked with 64-bit seconds. This file alone is compiled with the platform's wide time_t
// (_TIME_BITS=64), which 32-bit Linux has beside its narrow one: elsewhere time_t is part of the interface.
#include <ctime>

#include "time/time_inter.h"

namespace {

using Convert = struct tm *(*)(const time_t *, struct tm *);

struct tm *Convert_Local(Convert convert, int64_t iSeconds, struct tm *pOut) {
    const auto tSeconds = static_cast<time_t>(iSeconds);
    struct tm fields = {};
    if (tSeconds != iSeconds || convert(&tSeconds, &fields) == nullptr) // which leaves some fields changed
        return nullptr;
    *pOut = fields;
    return pOut;
}

} // namespace

struct tm *VYX_LocalTime_Inter(int64_t iSeconds, struct tm *pOut) {
    tzset(); // localtime does this, its reentrant form need not
    return Convert_Local(localtime_r, iSeconds, pOut);
}

struct tm *VYX_UtcTime_Inter(int64_t iSeconds, struct tm *pOut) {
    return Convert_Local(gmtime_r, iSeconds, pOut);
}
