// Local time, and what all conversions refuse. Their results are compared with the platform's by the fuzz target.
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/time.h>

#include "time/zone.h"

namespace {

using support::Zone;

constexpr int64_t kSecond = 1000000;

TEST(Time, NullPointers) {
    VYX_TIME_EXP_T fields = {};
    VYX_TIME_T t = 0;
    char szOut[4] = "old";
    uint32_t nLength = 99;
    for (const int32_t iResult :
         {VYX_ExpTimeFromTime(0, 0, nullptr), VYX_ExpTimeFromTimeGMT(0, nullptr),
          VYX_ExpTimeFromTimeLocal(0, nullptr), VYX_CTime(nullptr, 0), VYX_TimeFromExpTime(nullptr, &t),
          VYX_TimeFromExpTime(&fields, nullptr), VYX_TimeFromExpTimeGMT(nullptr, &t),
          VYX_TimeFromExpTimeGMT(&fields, nullptr), VYX_StrFmtTime(nullptr, &nLength, 4, "%e", &fields),
          VYX_StrFmtTime(szOut, nullptr, 4, "%e", &fields),
          VYX_StrFmtTime(szOut, &nLength, 4, nullptr, &fields),
          VYX_StrFmtTime(szOut, &nLength, 4, "%e", nullptr)})
        EXPECT_EQ(iResult, VYX_ERROR);
    EXPECT_STREQ(szOut, "old");
}

TEST(LocalTime, OffsetLeavesDaylightSavingOut) {
    constexpr int64_t kWinter = 1768478400; // 2026-01-15 12:00:00 UTC
    constexpr int64_t kSummer = 1784116800; // 2026-07-15 12:00:00 UTC
    const struct {
        const char *szZone;
        int64_t iSeconds;
        const char *szExpected;
        int32_t iOffset;
        int64_t iSaving; // seconds that the way back is off
    } kTable[] = {
        {support::kBerlin, kWinter, "Thu Jan 15 13:00:00 2026", 3600, 0},
        {support::kBerlin, kSummer, "Wed Jul 15 14:00:00 2026", 3600, 3600},
        {support::kNewYork, kSummer, "Wed Jul 15 08:00:00 2026", -18000, 3600},
        {"NPT-5:45", kWinter, "Thu Jan 15 17:45:00 2026", 20700, 0},
        {"LMT0:53:28", kWinter, "Thu Jan 15 11:06:32 2026", -3180, -28},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(row.szZone);
        const Zone zone(row.szZone); // changed between calls: each call follows
        VYX_TIME_EXP_T fields;
        ASSERT_EQ(VYX_ExpTimeFromTimeLocal(row.iSeconds * kSecond + 7, &fields), VYX_OK);
        EXPECT_EQ(fields.tm_gmtoff, row.iOffset);
        EXPECT_EQ(fields.tm_isdst, row.iSaving > 0 ? 1 : 0);
        VYX_TIME_T back = 0;
        EXPECT_EQ(VYX_TimeFromExpTimeGMT(&fields, &back), VYX_OK);
        EXPECT_EQ(back, (row.iSeconds + row.iSaving) * kSecond + 7);
        char szText[25] = "";
        EXPECT_EQ(VYX_CTime(szText, row.iSeconds * kSecond + 7), VYX_OK);
        EXPECT_STREQ(szText, row.szExpected);
    }
}

// Each thread goes back and forth between two seconds, so that it remembers neither.
TEST(LocalTime, ExactWhileOthersConvert) {
    const Zone zone(support::kBerlin);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int k = 0; k < 2000; ++k) {
                const int64_t iHour = (i + k % 2) % 24;
                VYX_TIME_EXP_T local, utc;
                char szText[25] = "", szZone[8] = "";
                uint32_t nLength = 0;
                ASSERT_EQ(VYX_ExpTimeFromTimeLocal(iHour * 3600 * kSecond, &local), VYX_OK);
                ASSERT_EQ(VYX_ExpTimeFromTimeGMT(iHour * 3600 * kSecond, &utc), VYX_OK);
                ASSERT_TRUE(local.tm_hour == iHour + 1 && local.tm_gmtoff == 3600 && utc.tm_hour == iHour);
                ASSERT_EQ(VYX_CTime(szText, iHour * 3600 * kSecond), VYX_OK);
                ASSERT_EQ(std::string(szText, 14), "Thu Jan 01 0" + std::to_string(iHour + 1) + ":");
                ASSERT_EQ(VYX_StrFmtTime(szZone, &nLength, sizeof szZone, "%Z", &local), VYX_OK);
                ASSERT_STREQ(szZone, "CET");
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
