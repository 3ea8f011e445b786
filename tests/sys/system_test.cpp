// Debug output, sleeping, random numbers, UUIDs and the queries that no platform here has.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>
#include <vyx/time.h>

#include "support/support.h"

static bool s_bRandomRefused = false;

// Takes the place of the platform's in this program.
extern "C" ssize_t getrandom(void *pOut, size_t nLength, unsigned nFlags) {
    if (!s_bRandomRefused)
        return syscall(SYS_getrandom, pOut, nLength, nFlags);
    errno = ENOSYS;
    return -1;
}

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string Printed(const std::string &text) {
    CaptureStderr();
    EXPECT_GE(VYX_OutputDebug("%s", text.c_str()), 0);
    return GetCapturedStderr();
}

TEST(DebugOutput, EndsInALineFeedOfItsOwn) {
    EXPECT_EQ(Printed(""), "\n");
    EXPECT_EQ(Printed("abc\n"), "abc\n\n");
    CaptureStderr();
    VYX_OutputDebug("%s %d %5.2f%%", "x", -7, 1.5);
    VYX_OutputDebugString("as %s it is");
    VYX_Debug("never %d", 1);
    EXPECT_EQ(GetCapturedStderr(), "x -7  1.50%\nas %s it is");
}

TEST(DebugOutput, LongTextIsCut) {
    for (const size_t nLength : {5116U, 5118U, 100000U}) {
        const std::string text(nLength, 'x');
        EXPECT_EQ(Printed(text), text.substr(0, 5117) + "\n") << nLength;
    }
}

TEST(DebugOutput, OddTexts) {
    CaptureStderr();
    VYX_OutputDebug("a%cb", 0);
    EXPECT_EQ(GetCapturedStderr(), "a") << "a zero byte ends it, line feed included";
    const wchar_t szNotInTheCLocale[] = {0x4E2D, 0};
    CaptureStderr();
    VYX_OutputDebug("ab%ls", szNotInTheCLocale); // the formatter refuses
    const std::string printed = GetCapturedStderr();
    EXPECT_TRUE(printed == "ab\n" || printed == "\n") << printed; // what was formatted so far, or nothing
}

TEST(System, SleepsAtLeastAsLongAsAsked) {
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_USleep(15000), 0); }), 15.0);
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_Sleep(15), 0); }), 15.0);
    // 4294968000 microseconds are 704 modulo 2^32. Unwrapped this would take more than an hour.
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_Sleep(4294968), 0); }), 0.704);
}

TEST(System, SignalEndsTheSleepAndTheRead) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const struct itimerval every20ms = {{0, 20000},
                                        {0, 20000}}; // again and again, in case the first comes early
    ASSERT_EQ(setitimer(ITIMER_REAL, &every20ms, nullptr), 0);
    errno = 0;
    EXPECT_EQ(VYX_Sleep(60000), -1);
    EXPECT_EQ(errno, EINTR);
    int aPipe[2];
    ASSERT_EQ(pipe(aPipe), 0);
    char c = 0;
    int32_t iCount = 0;
    EXPECT_EQ(VYX_ReadFile(aPipe[0], &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(iCount, -1);
    (void)alarm(0); // no more signals
}

TEST(System, RandRepeatsWithinAMillisecond) {
    EXPECT_TRUE(support::WaitUntil([] {
        srandom(1); // undone by the call
        const uint32_t nBefore = VYX_GetTimeTick();
        const int32_t iFirst = VYX_Rand();
        const int32_t iSecond = VYX_Rand();
        if (VYX_GetTimeTick() != nBefore)
            return false; // the millisecond ended in between: once more
        srandom(nBefore);
        return iFirst == iSecond && iFirst == static_cast<int32_t>(random());
    }));
}

TEST(System, QueriesThatThisPlatformLacks) {
    VYX_MEMORY_STATUS_T memory;
    const VYX_MEMORY_STATUS_T none = {};
    std::memset(&memory, 0x5A, sizeof memory);
    EXPECT_EQ(VYX_GetMemoryStatus(&memory), VYX_NOT_AVAILABLE);
    EXPECT_EQ(std::memcmp(&memory, &none, sizeof none), 0);
    EXPECT_EQ(VYX_GetMemoryStatus(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_GetNetWorkFlowData(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_GetNetWorkFlowData(&memory), VYX_NOT_AVAILABLE);
    const auto nNeeded = static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)) * 56;
    VYX_CPU_PERFORMANCE_T record;
    uint32_t nSize = nNeeded - 1;
    EXPECT_EQ(VYX_GetCPUPerformance(&record, &nSize), VYX_ERROR);
    EXPECT_EQ(nSize, nNeeded);
    EXPECT_EQ(VYX_GetCPUPerformance(&record, &nSize), VYX_NOT_AVAILABLE);
    EXPECT_EQ(VYX_GetCPUPerformance(nullptr, &nSize), VYX_ERROR);
    EXPECT_EQ(VYX_GetCPUPerformance(&record, nullptr), VYX_ERROR);
}

// From the kernel's call, and from the device where that is refused.
TEST(Uuid, RandomWithVersionAndVariant) {
    for (const bool bRefused : {false, true}) {
        SCOPED_TRACE(bRefused);
        s_bRandomRefused = bRefused;
        uint8_t ever[16 + 1] = {}; // bits that some UUID had set
        uint8_t always[16 + 1];    // and that all had
        std::memset(always, 0xFF, sizeof always);
        for (int i = 0; i < 1000; ++i) {
            uint8_t uuid[16 + 1] = {};
            uuid[16] = 0x5A;
            EXPECT_EQ(VYX_GetUUID(uuid), 0);
            for (size_t k = 0; k <= 16; ++k) {
                ever[k] |= uuid[k];
                always[k] &= uuid[k];
            }
        }
        for (size_t k = 0; k <= 16; ++k) {
            EXPECT_EQ(always[k], k == 6 ? 0x40 : k == 8 ? 0x80 : k == 16 ? 0x5A : 0) << "byte " << k;
            EXPECT_EQ(ever[k], k == 6 ? 0x4F : k == 8 ? 0xBF : k == 16 ? 0x5A : 0xFF) << "byte " << k;
        }
    }
}

TEST(Uuid, FirstGroupsFollowTheByteOrder) {
    const uint8_t kUuid[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFE, 0xFF};
    const uint16_t nProbe = 1;
    const bool bLittleEndian = *reinterpret_cast<const uint8_t *>(&nProbe) == 1;
    const std::string text =
        bLittleEndian ? "04030201-0605-0807-090A-0B0C0D0EFEFF" : "01020304-0506-0708-090A-0B0C0D0EFEFF";
    for (const int32_t iSize : {INT32_MIN, 35, 36, 37, INT32_MAX}) {
        std::string buffer(40, '#');
        EXPECT_EQ(VYX_StringFromUUID(kUuid, &buffer[0], iSize), iSize < 36 ? -1 : 0);
        const std::string written = iSize < 36 ? "" : text.substr(0, iSize == 36 ? 35 : 36) + '\0';
        EXPECT_EQ(buffer, written + std::string(40 - written.size(), '#')) << iSize;
    }
}

} // namespace
