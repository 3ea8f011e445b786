// Results of WriteLog, the text of a line, the targets' switches.
#include <climits>
#include <cstring>
#include <ctime>
#include <set>
#include <thread>

#include <vyx/vyx.h>

#include "log/log_support.h"
#include "support/calls.h"
#include "time/zone.h"

using namespace log_support;

namespace {

using Log = LogTest;
using LogHeader = LogTest;
using LogLine = LogTest;
using LogSwitch = LogTest;

const char *s_szNull = nullptr; // not a constant, so that the compiler does not warn of it

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
    EXPECT_EQ(Write("x"), -5);
    EXPECT_EQ(StopLogService(true), 0);
    EXPECT_EQ(Write("x"), -5) << "before the service";
    EXPECT_EQ(EnableTarget(log_services(3), nullptr, 0, 0), -6);
    EXPECT_EQ(DisableTarget(log_services(3)), -6);
    EXPECT_EQ(On(kFile), 0);
    EXPECT_EQ(Write("x"), -2);
    EXPECT_EQ(StartLogService(), 0);
    EXPECT_FALSE(ThreadExists("WriteLogProc")) << "it starts with the first line";
    EXPECT_EQ(Write("x"), 0);
    const wchar_t invalid[] = {0x7FFFFFFF, 0};
    EXPECT_EQ(WriteLog(kInf, "f", 1, "%ls", invalid), -7);
    EXPECT_EQ(StopLogService(false), 0);
    EXPECT_EQ(Write("x"), -5) << "a stop switches the files off";
    EXPECT_EQ(On(kFile), 0);
    EXPECT_EQ(Write("y"), 0) << "not blocked";
    EXPECT_EQ(Logged(), Strings{"y"});
    EXPECT_EQ(On(kFile), 0);
    for (const int iThreshold : {-1, 3, 100}) {
        EXPECT_EQ(AdjustLogLevel(log_level(iThreshold)), 0);
        for (const int iLevel : {INT_MIN, -1, 0, 3, 4, INT_MAX})
            EXPECT_EQ(WriteLog(log_level(iLevel), "f", 1, "x"), iLevel <= iThreshold ? 0 : -3) << iThreshold;
    }
}

TEST_F(LogHeader, IsThatOfTheMoment) {
    struct Case {
        int iLevel;
        const char *szFile;
        int32_t iLine;
        const char *szZone; // a change counts at once, also without tzset
        const char *szExpected;
    };
    for (const Case &test : {Case{0, "a.c", 7, "UTC0", "[DISABLE][FILE:a.c][LINE:7] "},
                             Case{1, "/x\\y/a.c", 0, "BBB-5:30", "[ERR][FILE:a.c][LINE:0] "},
                             Case{2, "x/z\\y\\a.c", -5, "AAA-11", "[DBG][FILE:a.c][LINE:-5] "},
                             Case{3, "x/", INT32_MAX, "AAA12", "[INF][FILE:][LINE:2147483647] "},
                             Case{4, "", INT32_MIN, "AAA12", "[?][FILE:][LINE:-2147483648] "},
                             Case{-1, "%s", 1, "UTC0", "[?][FILE:%s][LINE:1] "}}) {
        SCOPED_TRACE(test.szExpected);
        const support::Zone zone(test.szZone);
        char text[200];
        char stamp[40] = "";
        char after[40] = "#";
        int32_t iPrinted = 0;
        while (std::strcmp(stamp, after) != 0) { // until it falls into one second
            const auto stampNow = [](char(&szStamp)[40]) {
                const time_t tNow = std::time(nullptr);
                (void)std::strftime(szStamp, sizeof szStamp, "[%Y-%m-%d %H:%M:%S.", std::localtime(&tNow));
            };
            stampNow(stamp);
            iPrinted = FormatTimeAndName(text, sizeof text, log_level(test.iLevel), test.szFile, test.iLine);
            stampNow(after);
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

TEST_F(LogLine, IsCutButKeepsItsEnd) {
    ASSERT_EQ(On(kFile), 0);
    for (const size_t nLength : {49U, 2047U, 2048U, 2049U, 5000U})
        EXPECT_EQ(WriteLength(nLength), 0);
    EXPECT_EQ(WriteLog(kInf, std::string(3000, 'n').c_str(), 1, "text"), 0);
    EXPECT_EQ(WriteLog(kInf, std::string(2046 - 46, 'n').c_str(), 1, "text"), 0) << "no room for any text";
    StopLogService(true);
    const std::string text = AllLogText(logs);
    std::vector<size_t> lengths;
    for (size_t nBegin = 0, nEnd = 0; (nEnd = text.find("\r\n", nBegin)) != std::string::npos;
         nBegin = nEnd + 2)
        lengths.push_back(nEnd + 2 - nBegin);
    EXPECT_EQ(lengths, (std::vector<size_t>{49, 2047, 2048, 2048, 2048, 2048, 2048}));
}

TEST_F(LogLine, KeepsErrno) {
    ASSERT_EQ(On(kFile), 0);
    const char *szFormat = "%m"; // of the C library here; not a constant, as it is not C++'s
    for (const int iError : {ENOENT, ENOSPC}) {
        errno = iError;
        EXPECT_EQ(WriteLog(kInf, "f", 1, szFormat, 0), 0);
        EXPECT_EQ(errno, iError);
    }
    EXPECT_EQ(Logged(), (Strings{std::strerror(ENOENT), std::strerror(ENOSPC)}));
}

Strings Numbers(int iEnd) {
    Strings numbers;
    for (int n = 0; n < iEnd; ++n)
        numbers.push_back(std::to_string(n));
    return numbers;
}

// Each target alone, while another one stays on so that the service is not stopped: what was taken is there
// when it has been switched off, and nothing later.
TEST_F(LogSwitch, OffFirstWritesWhatIsQueued) {
    const Strings numbers = Numbers(3000);
    for (const log_services eTarget : {kConsole, kDebug, kFile}) {
        SCOPED_TRACE(eTarget);
        const log_services eOther = eTarget == kConsole ? kDebug : kConsole;
        const Capture out(stdout, dir / "out");
        const Capture err(stderr, dir / "err");
        On(eOther);
        On(eTarget);
        for (const std::string &number : numbers)
            ASSERT_EQ(Write(number), 0);
        EXPECT_TRUE(support::EndsThoughCancelled([&] { EXPECT_EQ(DisableTarget(eTarget), 0); }));
        const auto read = [&](log_services e) {
            return Lines(e == kConsole ? out.Text() : e == kDebug ? err.Text() : AllLogText(logs));
        };
        ASSERT_EQ(read(eTarget), numbers);
        EXPECT_EQ(Write("late"), 0);
        EXPECT_EQ(DisableTarget(eOther), 0) << "the last one: stops the service";
        EXPECT_TRUE(support::WaitUntil([] { return !ThreadExists("WriteLogProc"); }))
            << "ended, it goes soon";
        EXPECT_EQ(read(eTarget), numbers);
        EXPECT_EQ(read(eOther).size(), numbers.size() + 1);
        EXPECT_EQ(Write("x"), -5);
    }
}

// Whoever sees both standard streams in one place sees a line twice before the next one.
TEST_F(LogSwitch, LineGoesToItsTargetsBeforeTheNextOne) {
    const Capture out(stdout, dir / "both");
    const Capture err(stderr, dup(STDOUT_FILENO));
    (void)setvbuf(stdout, nullptr, _IONBF, 0);
    On(kDebug);
    On(kConsole);
    for (const char *szText : {"1", "2", "3"})
        EXPECT_EQ(Write(szText), 0);
    StopLogService(true);
    EXPECT_EQ(Lines(out.Text()), (Strings{"1", "1", "2", "2", "3", "3"}));
    (void)setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
}

TEST_F(LogSwitch, OneCall) {
    const auto write = [] {
        for (const std::string &number : Numbers(500))
            EXPECT_EQ(Write(number), 0);
    };
    const Capture out(stdout, dir / "out");
    ASSERT_EQ(VYX_Init(), VYX_OK);
    AdjustLogLevel(log_level(0));
    EXPECT_EQ(VYX_Log(3, logs.c_str()), VYX_OK);
    write();
    EXPECT_EQ(VYX_Log(0, nullptr), VYX_OK);
    EXPECT_EQ(Lines(out.Text()), Numbers(500));
    EXPECT_EQ(Lines(AllLogText(logs)), Numbers(500));
    EXPECT_EQ(VYX_Log(4, logs.c_str()), VYX_OK);
    EXPECT_EQ(Write("x"), -5) << "only bits 0 and 1 are targets";
    EXPECT_EQ(VYX_Log(1, logs.c_str()), VYX_OK);
    write();
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(Lines(out.Text()).size(), 1000U) << "the last stop writes what is queued";
    On(kDebug);
    EXPECT_EQ(Write("x"), -2) << "the service is blocked";
}

// Standard output is a pipe that nobody reads: the writer is stuck, the ring fills. Then somebody reads, and the ring
// stays almost full while it goes round many times.
TEST_F(Log, FullRingDropsLinesAndKeepsThoseTaken) {
    constexpr size_t kEven =
        200000; // lines of 64 bytes, of which the ring holds a whole number; then of any length
    const auto textOf = [](size_t n) {
        const std::string number = std::to_string(n);
        return n < kEven ? number + std::string(14 - number.size(), 'x')
                         : number + std::string(n % 1900, static_cast<char>('a' + n % 26));
    };
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string text;
    std::set<int32_t> results; // nothing may be reported while standard output is stuck
    size_t nTaken = 0;
    size_t nStuck = 0;
    std::thread reader;
    {
        const Capture out(stdout, fds[1]);
        On(kConsole);
        const auto write = [&] {
            const int32_t iResult = Write(textOf(nTaken));
            results.insert(iResult);
            nTaken += iResult == 0 ? 1 : 0;
            return iResult == 0;
        };
        for (size_t nFull = 0; nFull < 100;)
            nFull += write() ? 0U : 1U;
        nStuck = nTaken;
        reader = std::thread([&] {
            char buffer[5000];
            for (ssize_t iRead = 0; (iRead = read(fds[0], buffer, sizeof buffer)) > 0;)
                text.append(buffer, static_cast<size_t>(iRead));
        });
        while (nTaken < kEven + 40000)
            if (!write())
                std::this_thread::yield();
        StopLogService(true);
    }
    reader.join();
    (void)close(fds[0]);
    EXPECT_EQ(results, (std::set<int32_t>{-4, 0}));
    EXPECT_GE(nStuck, 2097152U / 64U);
    const Strings lines = Lines(text);
    ASSERT_EQ(lines.size(), nTaken);
    for (size_t n = 0; n < nTaken; ++n)
        ASSERT_EQ(lines[n], textOf(n));
}

} // namespace
