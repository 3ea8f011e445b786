// Results of WriteLog, the text of a line, the targets' switches.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <thread>

#include <vyx/vyx.h>

#include "log/log_support.h"
#include "support/support.h"
#include "time/zone.h"

using namespace log_support;

namespace {

const char *s_szNull = nullptr; // not a constant, so that the compiler does not warn of it

using Log = LogTest;
using LogHeader = LogTest;
using LogLine = LogTest;
using LogRing = LogTest;
using LogSwitch = LogTest;

bool ThreadExists(const char *szName) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task", error))
        if (support::ReadFile(entry.path() / "comm") == std::string(szName) + "\n")
            return true;
    return false;
}

TEST_F(Log, ResultsAndTheirOrder) {
    EXPECT_EQ(WriteLog(kInf, s_szNull, 1, "x"), -6);
    EXPECT_EQ(WriteLog(log_level(9), "f", 1, s_szNull, 0), -6) << "before the level";
    EXPECT_EQ(WriteLog(log_level(4), "f", 1, "x"), -3) << "before the targets";
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5);
    EXPECT_EQ(StopLogService(true), 0);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5) << "before the service";
    EXPECT_FALSE(ThreadExists("WriteLogProc"));
    EXPECT_EQ(EnableTarget(log_services(3), nullptr, 0, 0), -6);
    EXPECT_EQ(DisableTarget(log_services(3)), -6);
    const std::string path = dir / "logs";
    EXPECT_EQ(EnableTarget(kFile, path.c_str(), 0, 0), 0);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -2);
    EXPECT_EQ(StartLogService(), 0);
    EXPECT_FALSE(ThreadExists("WriteLogProc")) << "it starts with the first line";
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), 0);
    const wchar_t invalid[] = {0x7FFFFFFF, 0};
    EXPECT_EQ(WriteLog(kInf, "f", 1, "%ls", invalid), -7);
    EXPECT_EQ(StopLogService(false), 0);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5) << "a stop switches the files off";
    EXPECT_EQ(EnableTarget(kFile, path.c_str(), 0, 0), 0);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "y"), 0) << "not blocked";
    EXPECT_EQ(StopLogService(true), 0);
    EXPECT_EQ(Lines(AllLogText(path)).size(), 1U);
}

TEST_F(Log, ThresholdLetsThroughWhatIsNotAbove) {
    ASSERT_EQ(EnableTarget(kFile, dir.Path().c_str(), 0, 0), 0);
    for (const int iThreshold : {-1, 3, 100}) {
        EXPECT_EQ(AdjustLogLevel(log_level(iThreshold)), 0);
        for (const int iLevel : {INT_MIN, -1, 0, 3, 4, INT_MAX})
            EXPECT_EQ(WriteLog(log_level(iLevel), "f", 1, "x"), iLevel <= iThreshold ? 0 : -3) << iThreshold;
    }
    StopLogService(true);
}

TEST_F(LogHeader, IsThatOfTheMoment) {
    struct Case {
        int iLevel;
        const char *szFile;
        int32_t iLine;
        const char *szExpected;
    };
    for (const Case &test : {Case{0, "a.c", 7, "[DISABLE][FILE:a.c][LINE:7] "},
                             Case{1, "/x\\y/a.c", 0, "[ERR][FILE:a.c][LINE:0] "},
                             Case{2, "x/z\\y\\a.c", -5, "[DBG][FILE:a.c][LINE:-5] "},
                             Case{3, "x/", INT32_MAX, "[INF][FILE:][LINE:2147483647] "},
                             Case{4, "", INT32_MIN, "[?][FILE:][LINE:-2147483648] "},
                             Case{-1, "%s", 1, "[?][FILE:%s][LINE:1] "}}) {
        SCOPED_TRACE(test.szExpected);
        char text[200];
        char stamp[40];
        int32_t iPrinted = 0;
        for (time_t iBefore = 0; iBefore != std::time(nullptr);) { // until it falls into one second
            iBefore = std::time(nullptr);
            (void)std::strftime(stamp, sizeof stamp, "[%Y-%m-%d %H:%M:%S.", std::localtime(&iBefore));
            iPrinted = FormatTimeAndName(text, sizeof text, log_level(test.iLevel), test.szFile, test.iLine);
        }
        const std::string actual = text;
        EXPECT_EQ(iPrinted, static_cast<int32_t>(actual.size()));
        EXPECT_EQ(actual.substr(0, 21), stamp);
        EXPECT_EQ(actual.substr(21, 3).find_first_not_of("0123456789"), std::string::npos);
        EXPECT_EQ(actual.substr(24), "]" + std::string(test.szExpected));
    }
}

TEST_F(LogHeader, PrintsAsSnprintfDoes) {
    char text[100] = "";
    ASSERT_EQ(FormatTimeAndName(nullptr, 0, kErr, "f.c", 12), 50);
    EXPECT_EQ(FormatTimeAndName(text, 49, kErr, "f.c", 12), 50);
    EXPECT_EQ(std::strlen(text), 48U);
    EXPECT_EQ(FormatTimeAndName(nullptr, 5, kErr, "f.c", 12), -1);
    EXPECT_EQ(FormatTimeAndName(text, sizeof text, kErr, nullptr, 12), -1);
    EXPECT_EQ(FindLastSlash(nullptr), nullptr);
}

TEST_F(LogLine, FollowsAChangeOfTheZoneAtOnce) {
    ASSERT_EQ(EnableTarget(kFile, dir.Path().c_str(), 0, 0), 0);
    const std::pair<const char *, int> zones[] = {
        {"AAA0", 0}, {"BBB-5:30", 19800}, {"AAA-11", 39600}, {"AAA12", -43200}, {"AAA0", 0}};
    for (const auto &zone : zones) {
        const support::Zone set(zone.first);
        EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), 0);
    }
    const support::Zone last("AAA-3");
    char header[100];
    EXPECT_GT(FormatTimeAndName(header, sizeof header, kInf, "f", 1), 0);
    StopLogService(true);
    const auto lines = Lines(AllLogText(dir.Path()));
    ASSERT_EQ(lines.size(), std::size(zones));
    const auto seconds = [](const std::string &line) { // as if it were UTC
        struct tm time = {};
        EXPECT_NE(strptime(line.c_str(), "[%Y-%m-%d %H:%M:%S", &time), nullptr);
        return static_cast<double>(timegm(&time));
    };
    const double base = seconds(lines[0]);
    for (size_t n = 0; n < lines.size(); ++n)
        EXPECT_NEAR(seconds(lines[n]) - base, zones[n].second, 600) << zones[n].first;
    EXPECT_NEAR(seconds(header) - base, 10800, 600);
}

TEST_F(LogLine, IsCutButKeepsItsEnd) {
    ASSERT_EQ(EnableTarget(kFile, dir.Path().c_str(), 0, 0), 0);
    for (const size_t nLength : {49U, 2047U, 2048U, 2049U, 5000U})
        EXPECT_EQ(WriteLength(nLength), 0);
    EXPECT_EQ(WriteLog(kInf, std::string(3000, 'n').c_str(), 1, "text"), 0);
    EXPECT_EQ(WriteLog(kInf, std::string(2046 - 46, 'n').c_str(), 1, "text"), 0) << "no room for any text";
    EXPECT_EQ(WriteLog(kInf, "f", 1, "%s", ""), 0);
    StopLogService(true);
    const auto lines = Lines(AllLogText(dir.Path()));
    std::vector<size_t> lengths;
    for (const std::string &line : lines)
        lengths.push_back(line.size() + 2);
    EXPECT_EQ(lengths, (std::vector<size_t>{49, 2047, 2048, 2048, 2048, 2048, 2048, 49}));
}

TEST_F(LogLine, KeepsErrno) {
    ASSERT_EQ(EnableTarget(kFile, dir.Path().c_str(), 0, 0), 0);
    const char *szFormat = "%m"; // of the C library here; not a constant, as it is not C++'s
    errno = ENOENT;
    EXPECT_EQ(WriteLog(kInf, "f", 1, szFormat, 0), 0);
    EXPECT_EQ(errno, ENOENT);
    StopLogService(true);
    EXPECT_EQ(TextOf(Lines(AllLogText(dir.Path())).at(0)), std::strerror(ENOENT));
}

// Each target alone, while another one stays on so that the service is not stopped: what was taken is there
// when it has been switched off, and nothing later.
TEST_F(LogSwitch, OffFirstWritesWhatIsQueued) {
    constexpr size_t kLines = 3000;
    for (const log_services eTarget : {kConsole, kDebug, kFile}) {
        SCOPED_TRACE(eTarget);
        const log_services eOther = eTarget == kConsole ? kDebug : kConsole;
        const std::string folder = dir / ("logs" + std::to_string(eTarget));
        const Capture out(stdout, dir / "out");
        const Capture err(stderr, dir / "err");
        EnableTarget(eOther, nullptr, 0, 0);
        EnableTarget(eTarget, folder.c_str(), 0, 0);
        for (size_t n = 0; n < kLines; ++n)
            ASSERT_EQ(WriteLog(kInf, "f", 1, "%zu", n), 0);
        std::thread([eTarget] {
            (void)pthread_cancel(pthread_self()); // has no effect in there
            EXPECT_EQ(DisableTarget(eTarget), 0);
        }).join();
        const auto read = [&](log_services e) {
            return e == kConsole ? out.Text() : e == kDebug ? err.Text() : AllLogText(folder);
        };
        const auto lines = Lines(read(eTarget));
        ASSERT_EQ(lines.size(), kLines);
        for (size_t n = 0; n < kLines; ++n)
            ASSERT_EQ(TextOf(lines[n]), std::to_string(n));
        EXPECT_EQ(WriteLog(kInf, "f", 1, "late"), 0);
        EXPECT_EQ(DisableTarget(eOther), 0) << "the last one: stops the service";
        EXPECT_TRUE(support::WaitUntil([] { return !ThreadExists("WriteLogProc"); }))
            << "ended, it goes soon";
        EXPECT_EQ(Lines(read(eTarget)).size(), kLines);
        EXPECT_EQ(Lines(read(eOther)).size(), kLines + 1);
        EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5);
    }
}

TEST_F(LogSwitch, OneCall) {
    const std::string folder = dir / "logs";
    const auto write = [] {
        for (int n = 0; n < 500; ++n)
            EXPECT_EQ(WriteLog(kInf, "f", 1, "%d", n), 0);
    };
    const Capture out(stdout, dir / "out");
    ASSERT_EQ(VYX_Init(), VYX_OK);
    AdjustLogLevel(log_level(0));
    EXPECT_EQ(VYX_Log(3, folder.c_str()), VYX_OK);
    write();
    EXPECT_EQ(VYX_Log(0, nullptr), VYX_OK);
    EXPECT_EQ(Lines(out.Text()).size(), 500U);
    EXPECT_EQ(Lines(LogText(folder + "/vyx_log_1_w.log")).size(), 500U);
    EXPECT_EQ(VYX_Log(4, folder.c_str()), VYX_OK);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5) << "only bits 0 and 1 are targets";
    EXPECT_EQ(VYX_Log(1, folder.c_str()), VYX_OK);
    write();
    EnableTarget(kDebug, nullptr, 0, 0);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(Lines(out.Text()).size(), 1000U) << "the last stop writes what is queued";
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -2) << "target 1 is left alone, the service is blocked";
    DisableTarget(kDebug);
}

// Standard output is a pipe that nobody reads: the writer is stuck, the ring fills. Then somebody reads, and the ring
// stays almost full while it goes round many times.
TEST_F(LogRing, FullDropsLinesAndKeepsThoseTaken) {
    constexpr size_t kEven =
        200000; // lines of 64 bytes, of which the ring holds a whole number; then of any length
    const auto textOf = [](size_t n) {
        const std::string number = std::to_string(n);
        return n < kEven ? number + std::string(14 - number.size(), 'x')
                         : number + std::string(n % 1900, static_cast<char>('a' + n % 26));
    };
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const Redirect redirect(stdout, fds[1]);
    EnableTarget(kConsole, nullptr, 0, 0);
    size_t nTaken = 0;
    std::set<int32_t> results; // nothing may be reported while standard output is stuck
    const auto write = [&] {
        const int32_t iResult = WriteLog(kInf, "f", 1, "%s", textOf(nTaken).c_str());
        results.insert(iResult);
        nTaken += iResult == 0 ? 1 : 0;
        return iResult == 0;
    };
    for (size_t nFull = 0; nFull < 100;)
        nFull += write() ? 0U : 1U;
    const size_t nStuck = nTaken;
    std::string text;
    std::thread reader([&] {
        char buffer[5000];
        for (ssize_t iRead = 0; (iRead = read(fds[0], buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(iRead));
    });
    while (nTaken < kEven + 40000)
        if (!write())
            std::this_thread::yield();
    StopLogService(true);
    (void)std::fflush(stdout);
    (void)dup2(STDERR_FILENO, STDOUT_FILENO); // closes the pipe's last end but one
    (void)close(fds[1]);
    reader.join();
    (void)close(fds[0]);
    EXPECT_EQ(results, (std::set<int32_t>{-4, 0}));
    EXPECT_GE(nStuck, 2097152U / 64U);
    const auto lines = Lines(text);
    ASSERT_EQ(lines.size(), nTaken);
    for (size_t n = 0; n < nTaken; ++n)
        ASSERT_EQ(TextOf(lines[n]), textOf(n));
}

} // namespace
