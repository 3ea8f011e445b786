// Time values and fields: all of int64, many zones, and the ways back.
#include <cstring>
#include <ctime>

#include "time_model.h"

namespace {

constexpr int64_t kSecond = 1000000;

void Local(VYX_TIME_T t) {
    const int32_t iOffset = fuzz::SetZone(t);
    VYX_TIME_EXP_T fields = {};
    struct tm theirs = {};
    const auto tSeconds = static_cast<time_t>(t / kSecond);
    if (tSeconds != t / kSecond) // a time_t of 32 bits
        return;
    REQUIRE(VYX_ExpTimeFromTimeLocal(t, &fields) == VYX_OK); // before the platform is told of the zone
    tzset();
    REQUIRE(localtime_r(&tSeconds, &theirs) != nullptr);
    fuzz::RequireFields(fields, t / kSecond + theirs.tm_gmtoff, static_cast<int32_t>(t % kSecond), iOffset);
    REQUIRE(fields.tm_isdst == theirs.tm_isdst);
    VYX_TIME_T back = t;
    REQUIRE(VYX_TimeFromExpTimeGMT(&fields, &back) == VYX_OK);
    const auto nLate = static_cast<uint64_t>((theirs.tm_gmtoff - iOffset) * kSecond); // daylight saving
    REQUIRE(t < 86400 * kSecond || static_cast<uint64_t>(back) == static_cast<uint64_t>(t) + nLate);
    char szText[25] = "";
    char szExpected[64] = "";
    REQUIRE(strftime(szExpected, sizeof szExpected, "%a %b %d %H:%M:%S ", &theirs) == 20);
    REQUIRE(VYX_CTime(szText, t) == VYX_OK && std::strlen(szText) == 24);
    REQUIRE(std::string(szText, 20) == szExpected);
    REQUIRE(std::atoi(szText + 20) == std::abs(fields.tm_year + 1900) % 10000);
}

// Days and hours carry over, and what is too much for a time value wraps.
void FromFields(VYX_TIME_EXP_T fields) {
    const int64_t iSeconds = fuzz::SecondsOf(fields);
    const bool bTaken = iSeconds >= 0;
    VYX_TIME_T t = 4711;
    REQUIRE(VYX_TimeFromExpTime(&fields, &t) == (bTaken ? VYX_OK : VYX_ERROR));
    const uint64_t nExpected =
        static_cast<uint64_t>(iSeconds) * kSecond + static_cast<uint64_t>(int64_t{fields.tm_usec});
    REQUIRE(t == (bTaken ? static_cast<VYX_TIME_T>(nExpected) : 4711));
    REQUIRE(VYX_TimeFromExpTimeGMT(&fields, &(t = 4711)) == VYX_OK); // a failure shows in the time only
    const uint64_t nShifted = nExpected - static_cast<uint64_t>(fields.tm_gmtoff * kSecond);
    REQUIRE(t == (bTaken ? static_cast<VYX_TIME_T>(nShifted) : 4711));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const auto t = input.Number<VYX_TIME_T>();
    const auto iOffset = input.Number<int32_t>();
    VYX_TIME_EXP_T fields = {};
    if (sizeof(time_t) > 4 || t / kSecond / 2 == static_cast<int32_t>(t / kSecond / 2)) {
        if (VYX_ExpTimeFromTime(t, iOffset, &fields) == VYX_OK)
            fuzz::RequireFields(fields, t / kSecond + iOffset, static_cast<int32_t>(t % kSecond), iOffset);
        else
            REQUIRE(sizeof(time_t) == 4);
    }
    Local(t);
    FromFields(fuzz::OddFields(&input));
    return 0;
}
