// Results of WriteLog, the ring, the targets' switches, the files' names. The log's fuzz target looks at the texts of lines, and at
// where files end.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include <vyx/vyx.h>

#include "log/log_service.h"
#include "log/log_support.h"
#include "support/calls.h"
#include "support/failing_memory.h"

using namespace log_support;

namespace {

constexpr size_t kShortest = sizeof "[2026-11-21 09:21:26.042][INF][FILE:f][LINE:1] \r\n" - 1;

// A standard stream into a file or a descriptor, for the length of a block.
class Capture {
  public:
    Capture(FILE *pStream, int iTarget) : m_pStream(pStream), m_iSaved(dup(fileno(pStream))) { Set(iTarget); }
    Capture(FILE *pStream, const std::string &path)
        : Capture(pStream, open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0600)) {
        m_path = path;
    }
    ~Capture() { Set(m_iSaved); }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    std::string Text() const {
        (void)std::fflush(m_pStream);
        return support::ReadFile(m_path);
    }

  private:
    // Takes the descriptor over.
    void Set(int iTarget) const {
        (void)std::fflush(m_pStream);
        (void)dup2(iTarget, fileno(m_pStream));
        (void)close(iTarget);
    }
    FILE *m_pStream;
    int m_iSaved;
    std::string m_path;
};

// Every test begins and ends with the service as a process has it at first, but for the number of the next file, which
// is kept.
class Log : public testing::Test {
  protected:
    ~Log() override {
        StopLogService(false);
        DisableTarget(kConsole);
        DisableTarget(kDebug);
        AdjustLogLevel(VYX_LOG_LEVEL_INF);
    }
    int32_t On(log_services eTarget, uint32_t nLimit = 0, uint32_t nWrap = 0) const {
        return EnableTarget(eTarget, logs.c_str(), nLimit, nWrap);
    }
    // What is in the files, once all is written.
    Strings Logged() const {
        StopLogService(false);
        return Lines(AllLogText(logs));
    }
    // The files of so many lines, which are gone afterwards.
    Strings NamesAfter(int iLines, uint32_t nLimit, uint32_t nWrap) {
        On(kFile, nLimit, nWrap);
        for (int n = 0; n < iLines; ++n)
            EXPECT_EQ(Write("x"), 0);
        DisableTarget(kFile);
        const Strings names = Names(logs);
        std::filesystem::remove_all(logs);
        return names;
    }
    support::TempDir dir;
    std::string logs = dir / "logs";
};
using LogFile = Log;
using LogHeader = Log;
using LogSwitch = Log;

TEST_F(Log, ResultsAndTheirOrder) {
    const char *szNull = nullptr; // not a constant, so that the compiler does not warn of it
    EXPECT_EQ(WriteLog(log_level(9), "f", 1, szNull, 0), -6) << "before the level";
    EXPECT_EQ(WriteLog(log_level(9), "f", 1, "x"), -3) << "before the targets";
    EXPECT_EQ(StopLogService(true), 0);
    EXPECT_EQ(Write("x"), -5) << "before the service";
    EXPECT_EQ(EnableTarget(log_services(3), nullptr, 0, 0), -6);
    EXPECT_EQ(DisableTarget(log_services(3)), -6);
    EXPECT_EQ(On(kFile), 0);
    EXPECT_EQ(Write("x"), -2);
    EXPECT_EQ(StartLogService(), 0);
    const long iBlocks = failing_memory::Alive();
    EXPECT_EQ(GetLogService().ServiceStart() + GetLogService().ServiceStop(true), 0);
    EXPECT_EQ(failing_memory::Alive(), iBlocks) << "no memory stays";
    EXPECT_EQ(On(kFile), 0);
    failing_memory::g_bNone = true;
    const int32_t iWithoutMemory = Write("x");
    failing_memory::g_bNone = false;
    EXPECT_EQ(iWithoutMemory, -1) << "and it is tried again";
    const wchar_t invalid[] = {0x7FFFFFFF, 0};
    EXPECT_EQ(WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "%ls", invalid), -7);
    const char *szFormat = "%m"; // of the C library here; not a constant, as it is not C++'s
    errno = ENOENT;
    EXPECT_EQ(WriteLog(VYX_LOG_LEVEL_INF, "f", 1, szFormat, 0), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(Logged(), Strings{std::strerror(ENOENT)});
    EXPECT_EQ(Write("x"), -5) << "a stop switches the files off";
    EXPECT_EQ(On(kFile), 0);
    EXPECT_EQ(Write("y"), 0) << "not blocked";
    EXPECT_EQ(Logged(), Strings{"y"}) << "the last file is emptied";
}

TEST_F(LogHeader, IsThatOfTheMoment) {
    const auto stamp = [](int64_t &iMillis) {
        char szStamp[40];
        timespec now; // not time(): its second may begin a tick later than that of the exact clock
        clock_gettime(CLOCK_REALTIME, &now);
        iMillis = now.tv_nsec / 1000000;
        (void)std::strftime(szStamp, sizeof szStamp, "[%Y-%m-%d %H:%M:%S.", std::localtime(&now.tv_sec));
        return std::string(szStamp);
    };
    char text[200];
    for (const char *szZone : {"AAA-11", "BBB12"}) { // a change counts at once, also without tzset
        setenv("TZ", szZone, 1);
        std::string before;
        int64_t iFrom = 0;
        int64_t iTo = 0;
        do { // until it falls into one second
            before = stamp(iFrom);
            EXPECT_EQ(FormatTimeAndName(text, sizeof text, VYX_LOG_LEVEL_ERR, "f.c", 12), 50);
        } while (before != stamp(iTo));
        EXPECT_EQ(std::string(text, before.size()), before);
        const int iMillis = std::stoi(std::string(text + before.size(), 3));
        EXPECT_TRUE(iFrom <= iMillis && iMillis <= iTo) << text;
        EXPECT_STREQ(text + before.size() + 3, "][ERR][FILE:f.c][LINE:12] ");
    }
    EXPECT_EQ(FormatTimeAndName(nullptr, 0, VYX_LOG_LEVEL_ERR, "f.c", 12), 50);
    EXPECT_EQ(FormatTimeAndName(text, 49, VYX_LOG_LEVEL_ERR, "f.c", 12), 50);
    EXPECT_EQ(std::strlen(text), 48U);
    EXPECT_EQ(FormatTimeAndName(nullptr, 5, VYX_LOG_LEVEL_ERR, "f.c", 12), -1);
    EXPECT_EQ(FormatTimeAndName(text, sizeof text, VYX_LOG_LEVEL_ERR, nullptr, 12), -1);
    EXPECT_EQ(FindLastSlash(nullptr), nullptr);
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
        EXPECT_EQ(DisableTarget(eOther), 0);
        EXPECT_FALSE(GetLogService().IsStarted()) << "that was the last one";
        EXPECT_EQ(read(eTarget), numbers);
        EXPECT_EQ(read(eOther).size(), numbers.size() + 1);
    }
}

TEST_F(LogSwitch, OneCall) {
    const Strings numbers = Numbers(500);
    const Capture out(stdout, dir / "out");
    ASSERT_EQ(VYX_Init(), VYX_OK);
    AdjustLogLevel(log_level(0));
    EXPECT_EQ(VYX_Log(4, logs.c_str()), VYX_OK);
    EXPECT_EQ(WriteLog(log_level(0), "f", 1, "x"), -5) << "only bits 0 and 1 are targets";
    EXPECT_EQ(VYX_Log(1, logs.c_str()), VYX_OK);
    EXPECT_EQ(Write("first"), 0);
    EXPECT_EQ(VYX_Log(2, logs.c_str()), VYX_OK);
    for (const std::string &number : numbers)
        EXPECT_EQ(Write(number), 0);
    EXPECT_EQ(VYX_Fini(), VYX_OK) << "writes what is queued";
    EXPECT_EQ(Lines(AllLogText(logs)), numbers);
    Strings both = numbers;
    both.insert(both.begin(), "first");
    EXPECT_EQ(Lines(out.Text()), both);
    On(kDebug);
    EXPECT_EQ(Write("x"), -2) << "the service is blocked";
}

// This thread both fills the ring and empties it. What the writer has in hand, and the bytes that a line leaves free at
// the ring's end, are not there for other lines.
TEST_F(Log, RingKeepsWhatIsInHandAndWhatWasSkipped) {
    LogRing ring;
    ASSERT_EQ(ring.Prepare(), 0);
    ASSERT_TRUE(ring.Open());
    const auto put = [&](uint32_t nLength) { return ring.Put(std::string(nLength, 'x').c_str(), nLength); };
    EXPECT_EQ(put(1), -5) << "without a target";
    (void)ring.Switch(0, true);
    constexpr uint32_t kStart = 2000 * LogRing::kBatchLines;
    for (uint32_t n = 0; n < LogRing::kBatchLines + 500; ++n)
        ASSERT_EQ(put(2000), 0);
    LogBatch batch;
    ASSERT_TRUE(ring.Next(batch));
    EXPECT_EQ(put(kRingSize - kStart - 2000 * 500 + 1), -4) << "the first ones are in hand";
    ASSERT_TRUE(ring.Next(batch)); // now they are given back
    EXPECT_EQ(put(kStart + 1), -4) << "there is room only together with what would be skipped";
    EXPECT_EQ(put(kStart - 1000), 0) << "at the ring's start";
    EXPECT_EQ(put(1001), -4) << "there is room at the ring's end only";
    EXPECT_EQ(put(1000), 0);
    EXPECT_EQ(put(1), -4);
}

// Standard output is a pipe that nobody reads: the writer is stuck, the ring fills. Then somebody reads, and the ring
// stays almost full while it goes round many times.
TEST_F(Log, FullRingDropsLinesAndKeepsThoseTaken) {
    constexpr size_t kLines = 70000; // more than the queue holds
    const auto textOf = [](size_t n) {
        return std::to_string(n) + std::string(n % 900, static_cast<char>('a' + n % 26));
    };
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string text;
    std::set<int32_t> results; // nothing may be reported while standard output is stuck
    std::thread reader;
    {
        const Capture out(stdout, fds[1]);
        On(kConsole);
        for (size_t nTaken = 0, nFull = 0; nTaken < kLines;) {
            const int32_t iResult = Write(textOf(nTaken));
            results.insert(iResult);
            nTaken += iResult == 0 ? 1 : 0;
            if (iResult == 0)
                continue;
            std::this_thread::yield();
            if (++nFull == 100)
                reader = std::thread([&] {
                    char buffer[5000];
                    for (ssize_t iRead = 0; (iRead = read(fds[0], buffer, sizeof buffer)) > 0;)
                        text.append(buffer, static_cast<size_t>(iRead));
                });
        }
        StopLogService(true);
    }
    reader.join();
    (void)close(fds[0]);
    EXPECT_EQ(results, (std::set<int32_t>{-4, 0}));
    const Strings lines = Lines(text);
    ASSERT_EQ(lines.size(), kLines);
    for (size_t n = 0; n < kLines; ++n)
        ASSERT_EQ(lines[n], textOf(n));
}

TEST_F(LogFile, NumbersWrapOrDoNot) {
    // Whatever number the process has come to, the next one is 1.
    const int iNumber = std::atoi(NamesAfter(1, 1, 1).at(0).c_str() + sizeof "vyx_log_" - 1);
    (void)NamesAfter(101 - (iNumber - 1) % 100, 1, 1);
    Strings names = NamesAfter(101, 1, 1);
    EXPECT_EQ(names.size(), 100U) << "the old first file was removed";
    EXPECT_EQ(names.front() + names.back(), "vyx_log_1_w.logvyx_log_100.log");
    names = NamesAfter(102, 1, 0);
    EXPECT_EQ(names.size(), 102U);
    EXPECT_EQ(names.back(), "vyx_log_102_w.log");
    EXPECT_EQ(NamesAfter(2, 1, 2), (Strings{"vyx_log_3_w.log", "vyx_log_102.log"}));
    On(kFile); // of 2 MiB; the last line has a byte more than fits
    for (size_t n = 1; n <= 1025;)
        n += Write(std::string((n < 1024 ? 2048 : n == 1024 ? 1000 : 1049) - kShortest, 'x')) == 0 ? 1U : 0U;
    DisableTarget(kFile);
    EXPECT_EQ(std::filesystem::file_size(logs + "/vyx_log_3.log"), 2097152U - 1048);
}

TEST_F(LogFile, DirectoryAsGivenOrRefused) {
    (void)mkdir((dir / "sub").c_str(), 0700);
    std::filesystem::current_path(dir.Path());
    std::string longest;
    while (longest.size() < 254)
        longest += "./";
    for (const auto &[given, szUsed] : {std::pair{std::string("one/"), "one"},
                                        {"sub\\tail", "sub/tail"},
                                        {"", "vyxlog"}, // a null pointer
                                        {longest + "22", "22"},
                                        {longest + "333", ""}}) {
        EXPECT_EQ(EnableTarget(kFile, given.empty() ? nullptr : given.c_str(), 0, 0), 0);
        EXPECT_EQ(Write("x"), *szUsed == '\0' ? -5 : 0) << given << ": a refused one leaves the target off";
        DisableTarget(kFile);
        EXPECT_TRUE(*szUsed == '\0' || Names(dir / szUsed).size() == 1) << given;
    }
    std::filesystem::current_path("/");
}

// The folder cannot be made, as its parent is missing; then it can.
TEST_F(LogFile, UnopenedFileIsReportedAndTriedAgain) {
    logs = dir / "missing/logs/"; // has its slash
    const Capture err(stderr, dir / "err");
    On(kFile);
    EXPECT_EQ(Write("lost"), 0);
    EXPECT_TRUE(support::WaitUntil([&] { return err.Text().find("_w.log] failed\n") != std::string::npos; }));
    std::filesystem::create_directories(logs);
    EXPECT_EQ(Write("there"), 0);
    EXPECT_EQ(Logged(), Strings{"there"});
    EXPECT_EQ(err.Text(), "LogService OpenFile[" + logs + Names(logs).at(0) + "] failed\n");
}

// A limit on a file's size is what a full disk is: the line that crosses it is cut, with one byte in the second case.
TEST_F(LogFile, FullDiskLosesLinesWhole) {
    const auto fnBefore = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    for (const size_t nLimit : {2000U, 2001U, 2099U}) {
        On(kFile);
        const rlimit limit = {nLimit, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        Strings fitting;
        size_t nUsed = 0;
        for (size_t n = 0; n < 60; ++n) {
            const size_t nSize = n < 40 ? 100 : 60 + n % 20; // some of the short ones still find room
            const std::string text(nSize - kShortest, static_cast<char>('0' + n % 10));
            EXPECT_EQ(Write(text), 0);
            if (nUsed + nSize > nLimit)
                continue;
            fitting.push_back(text);
            nUsed += nSize;
        }
        EXPECT_EQ(Logged(), fitting) << nLimit;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        std::filesystem::remove_all(logs);
    }
    (void)std::signal(SIGXFSZ, fnBefore);
}

} // namespace
