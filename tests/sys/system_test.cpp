// Debug output, sleeping, random numbers, UUIDs and the queries that no platform here has.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <string>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>
#include <vyx/time.h>

#include "support/support.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string Printed(const std::string &text) {
    CaptureStderr();
    EXPECT_GE(VYX_OutputDebug("%s", text.c_str()), 0);
    return GetCapturedStderr();
}

TEST(DebugOutput, EndsInALineFeedOfItsOwn) {
    EXPECT_EQ(Printed("abc"), "abc\n");
    EXPECT_EQ(Printed(""), "\n");
    EXPECT_EQ(Printed("abc\n"), "abc\n\n");
    CaptureStderr();
    VYX_OutputDebug("%s %d %5.2f%%", "x", -7, 1.5);
    VYX_OutputDebugString("as %s it is");
    VYX_OutputDebugString("");
    VYX_Debug("never %d", 1);
    EXPECT_EQ(GetCapturedStderr(), "x -7  1.50%\nas %s it is");
}

TEST(DebugOutput, LongTextIsCut) {
    for (const size_t nLength : {5116U, 5117U, 5118U, 5119U, 5120U, 100000U}) {
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

TEST(DebugOutput, ReportsAFullDevice) {
    const int iFull = open("/dev/full", O_WRONLY);
    if (iFull == -1)
        GTEST_SKIP() << "no /dev/full here";
    const int iSaved = dup(STDERR_FILENO);
    dup2(iFull, STDERR_FILENO);
    const int32_t iResult = VYX_OutputDebug("lost");
    dup2(iSaved, STDERR_FILENO);
    close(iSaved);
    close(iFull);
    clearerr(stderr);
    EXPECT_EQ(iResult, EOF);
}

TEST(System, SleepsAtLeastAsLongAsAsked) {
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_USleep(15000), 0); }), 15.0);
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_Sleep(15), 0); }), 15.0);
    EXPECT_EQ(VYX_Sleep(0), 0);
    // 4294968000 microseconds are 704 modulo 2^32. Unwrapped this would take more than an hour.
    EXPECT_GE(support::MillisecondsOf([] { EXPECT_EQ(VYX_Sleep(4294968), 0); }), 0.704);
}

TEST(System, SignalEndsTheSleep) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const struct itimerval every20ms = {{0, 20000},
                                        {0, 20000}}; // again and again, in case the first comes early
    ASSERT_EQ(setitimer(ITIMER_REAL, &every20ms, nullptr), 0);
    errno = 0;
    EXPECT_EQ(VYX_Sleep(60000), -1);
    EXPECT_EQ(errno, EINTR);
    const struct itimerval off = {};
    (void)setitimer(ITIMER_REAL, &off, nullptr);
}

TEST(System, RandRepeatsWithinAMillisecond) {
    std::set<int32_t> seen;
    EXPECT_TRUE(support::WaitUntil([&seen] {
        srandom(1); // undone by the call
        const uint32_t nBefore = VYX_GetTimeTick();
        const int32_t iFirst = VYX_Rand();
        const int32_t iSecond = VYX_Rand();
        if (VYX_GetTimeTick() != nBefore)
            return false; // the millisecond ended in between: once more
        EXPECT_EQ(iFirst, iSecond);
        srandom(nBefore);
        EXPECT_EQ(iFirst, static_cast<int32_t>(random()));
        EXPECT_GE(iFirst, 0);
        seen.insert(iFirst);
        return seen.size() >= 10; // and other milliseconds give others
    }));
}

TEST(System, ZeroMemory) {
    char szText[] = "abcdef";
    EXPECT_EQ(VYX_ZeroMemory(szText + 1, 3), szText + 1);
    EXPECT_EQ(std::memcmp(szText, "a\0\0\0ef", sizeof szText), 0);
    EXPECT_EQ(VYX_ZeroMemory(szText, 0), szText);
    EXPECT_EQ(szText[0], 'a');
}

TEST(System, QueriesThatThisPlatformLacks) {
    struct {
        VYX_MEMORY_STATUS_T status;
        uint8_t guard[8];
    } memory;
    std::memset(&memory, 0x5A, sizeof memory);
    EXPECT_EQ(VYX_GetMemoryStatus(&memory.status), VYX_NOT_AVAILABLE);
    const std::string expected = std::string(48, '\0') + std::string(8, '\x5A');
    EXPECT_EQ(std::memcmp(&memory, expected.data(), expected.size()), 0);
    EXPECT_EQ(VYX_GetMemoryStatus(nullptr), VYX_ERROR);

    char cRecord = 'x';
    EXPECT_EQ(VYX_GetNetWorkFlowData(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_GetNetWorkFlowData(&cRecord), VYX_NOT_AVAILABLE);
    EXPECT_EQ(cRecord, 'x');
}

TEST(System, CpuPerformanceTellsTheSizeNeeded) {
    ASSERT_GE(VYX_GetCPUNumber(), 1);
    const auto nNeeded = static_cast<uint32_t>(VYX_GetCPUNumber()) * 56;
    VYX_CPU_PERFORMANCE_T record;
    std::memset(&record, 0x5A, sizeof record);
    const VYX_CPU_PERFORMANCE_T untouched = record;
    const struct {
        uint32_t nGiven;
        VYX_CPU_PERFORMANCE_T *pRecords;
        int32_t iExpected;
    } kTable[] = {{0, nullptr, VYX_ERROR},
                  {0, &record, VYX_ERROR},
                  {nNeeded - 1, &record, VYX_ERROR},
                  {nNeeded, nullptr, VYX_ERROR},
                  {nNeeded, &record, VYX_NOT_AVAILABLE},
                  {UINT32_MAX, &record, VYX_NOT_AVAILABLE}};
    for (const auto &row : kTable) {
        uint32_t nSize = row.nGiven;
        EXPECT_EQ(VYX_GetCPUPerformance(row.pRecords, &nSize), row.iExpected) << row.nGiven;
        EXPECT_EQ(nSize, nNeeded);
    }
    EXPECT_EQ(VYX_GetCPUPerformance(&record, nullptr), VYX_ERROR);
    EXPECT_EQ(std::memcmp(&record, &untouched, sizeof record), 0);
}

TEST(Uuid, RandomWithVersionAndVariant) {
    std::set<std::string> seen;
    std::string zeros(16, '\0'), ones(16, '\xFF'); // bits that some UUID had set, and that all had set
    for (int i = 0; i < 1000; ++i) {
        uint8_t uuid[16 + 4];
        std::memset(uuid, 0x5A, sizeof uuid);
        EXPECT_EQ(VYX_GetUUID(uuid), 0);
        EXPECT_EQ(uuid[6] & 0xF0, 0x40);
        EXPECT_EQ(uuid[8] & 0xC0, 0x80);
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(uuid[16 + k], 0x5A) << "guard";
        for (size_t k = 0; k < 16; ++k) {
            zeros[k] = static_cast<char>(zeros[k] | uuid[k]);
            ones[k] = static_cast<char>(ones[k] & uuid[k]);
        }
        seen.insert(std::string(uuid, uuid + 16));
    }
    EXPECT_EQ(seen.size(), 1000U);
    for (size_t k = 0; k < 16; ++k) { // every other bit varies
        const int iFixed = k == 6 ? 0xF0 : k == 8 ? 0xC0 : 0;
        EXPECT_EQ((zeros[k] & ~ones[k]) & 0xFF, 0xFF & ~iFixed) << "byte " << k;
    }
}

// The text of the bytes 01 02 .. 0D 0E FE FF on this processor.
std::string ExpectedUuidText() {
    const uint16_t nProbe = 1;
    uint8_t nFirst = 0;
    std::memcpy(&nFirst, &nProbe, 1);
    return nFirst == 1 ? "04030201-0605-0807-090A-0B0C0D0EFEFF" : "01020304-0506-0708-090A-0B0C0D0EFEFF";
}

TEST(Uuid, FirstGroupsFollowTheByteOrder) {
    const uint8_t kUuid[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFE, 0xFF};
    for (const int32_t iSize : {INT32_MIN, -1, 0, 35, 36, 37, 64, INT32_MAX}) {
        std::string buffer(64, '#');
        EXPECT_EQ(VYX_StringFromUUID(kUuid, &buffer[0], iSize), iSize < 36 ? -1 : 0) << iSize;
        std::string expected = ExpectedUuidText().substr(0, iSize == 36 ? 35 : 36);
        if (iSize < 36)
            expected = std::string(64, '#');
        else
            expected += std::string(1, '\0') + std::string(63 - expected.size(), '#');
        EXPECT_EQ(buffer, expected) << iSize;
    }
}

} // namespace
