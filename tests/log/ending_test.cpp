// What is left of a log, by the way in which the process ended: the table of docs/log.md, row by row. Started with
// WAY FOLDER LINES, this program is the one that logs and ends.
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>

#include <vyx/vyx.h>

#include "log/log_support.h"
#include "support/support.h"

using namespace log_support;

namespace {

/* ---- The program that ends */

// More than the stacks of the library's own threads: they must be made larger by what a program has of these.
thread_local volatile char t_large[400000];

std::string s_folder;
int s_iLines = 0;
std::atomic<bool> s_bStopped{true}; // lines need not be taken any more

void Require(bool bHolds, const char *szWhat) {
    if (bHolds)
        return;
    (void)std::fprintf(stderr, "does not hold: %s\n", szWhat);
    _exit(9);
}

void Write(int iFirst, int iEnd) {
    for (int n = iFirst; n < iEnd; ++n) {
        int32_t iResult = 0;
        while ((iResult = WriteLog(kInf, "f", 1, "%d", n)) == -4)
            std::this_thread::yield();
        Require(iResult == 0, "the line is taken");
    }
}

// A static object that still logs in its destructor.
struct LastWords {
    ~LastWords() {
        if (!s_bStopped)
            Write(s_iLines - 1, s_iLines);
    }
};
LastWords s_lastWords;

void AwaitFile() {
    const std::string last = "[LINE:1] " + std::to_string(s_iLines - 1) + "\r\n";
    Require(support::WaitUntil([&] {
                const std::string text = LogText(s_folder + "/vyx_log_1_w.log");
                return text.size() > last.size() &&
                       text.compare(text.size() - last.size(), last.size(), last) == 0;
            }),
            "the last line comes");
}

// Forks while four threads log, with the service's locks busy. All of the parent's lines are written by the parent.
void Fork(const std::function<void()> &fnChild) {
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([n] { Write(s_iLines * n / 4, s_iLines * (n + 1) / 4); });
    for (int n = 0; n < 20; ++n) {
        (void)std::fflush(stdout);
        const pid_t iChild = fork();
        if (iChild == 0) {
            (void)alarm(60); // a child that cannot end dies
            fnChild();
            std::exit(0);
        }
        int iStatus = 0;
        Require(waitpid(iChild, &iStatus, 0) == iChild && iStatus == 0, "the child ends well");
    }
    for (std::thread &thread : threads)
        thread.join();
}

void ChildLogs() {
    Require(WriteLog(kInf, "f", 1, "x") == -5, "the file target is off");
    if (!support::kThreadsAfterFork)
        return;
    (void)EnableTarget(kFile, (s_folder + "/child").c_str(), 0, 0);
    Write(0, 100);
}

enum class Left : uint8_t { All, Beginning };
constexpr Left kAll = Left::All;
constexpr Left kBeginning = Left::Beginning;

struct Way {
    const char *szName;
    int iStatus; // exit status, or 128 + the signal that ended it
    Left eFiles;
    Left eConsole;
    void (*fnEnd)();
};

void PrintTo(const Way &way, std::ostream *pOut) {
    *pOut << way.szName;
}

const Way kWays[] = {
    {"return", 0, kAll, kAll, [] {}},
    {"exit", 0, kAll, kAll, [] { std::exit(0); }},
    {"exit_in_thread", 0, kAll, kAll, [] { std::thread([] { std::exit(0); }).join(); }},
    {"dlclose", 0, kAll, kAll, nullptr}, // a program of its own
    {"_exit", 0, kBeginning, kBeginning, [] { _exit(0); }},
    {"quick_exit", 0, kBeginning, kBeginning, [] { std::quick_exit(0); }},
    {"abort", 128 + SIGABRT, kBeginning, kBeginning, [] { std::abort(); }},
    {"signal", 128 + SIGTERM, kBeginning, kBeginning, [] { (void)raise(SIGTERM); }},
    {"await_and_abort", 128 + SIGABRT, kAll, kBeginning, [] { AwaitFile(), std::abort(); }},
    {"await_and_signal", 128 + SIGKILL, kAll, kBeginning, [] { AwaitFile(), (void)raise(SIGKILL); }},
    {"await_and_quick_exit", 0, kAll, kBeginning, [] { AwaitFile(), std::quick_exit(0); }},
    {"exec", 0, kBeginning, kBeginning, [] { (void)execl("/bin/true", "true", nullptr); }},
    {"await_and_exec", 0, kAll, kBeginning,
     [] {
         AwaitFile(); // it is open, and must not be in the next program
         (void)execl("/bin/sh", "sh", "-c", "! ls -l /proc/self/fd/ | grep vyx_log_", nullptr);
     }},
    {"stop_and__exit", 0, kAll, kAll, [] { StopLogService(true), (void)std::fflush(stdout), _exit(0); }},
    {"log_off_and_abort", 128 + SIGABRT, kAll, kAll,
     [] { VYX_Log(0, nullptr), (void)std::fflush(stdout), std::abort(); }},
};
const Way kForks[] = {
    {"fork_and_exit", 0, kAll, kAll, [] { Fork([] {}); }},
    {"fork_and_stop", 0, kAll, kAll, [] { Fork([] { (void)VYX_Log(0, nullptr); }); }},
    {"fork_and_log", 0, kAll, kAll, [] { Fork(ChildLogs); }},
    {"fork_and_fini", 0, kAll, kAll, [] { Fork([] { (void)VYX_Fini(); }); }},
};

// Logs without end, until a signal's handler has the process exit: now and then in the middle of a line. What was taken
// goes to standard error as it lies in memory.
void ExitInHandler() {
    static uint32_t s_nTaken = 0;
    (void)signal(SIGALRM, [](int) {
        const bool bTold = write(STDERR_FILENO, &s_nTaken, sizeof s_nTaken) == sizeof s_nTaken;
        std::exit(bTold ? 0 : 1);
    });
    const std::string tail(500, 'x');
    const itimerval soon = {{0, 0}, {0, 2000}};
    for (;; s_nTaken += WriteLog(kInf, "f", 1, "%u %s", s_nTaken, tail.c_str()) == 0 ? 1U : 0U)
        if (s_nTaken == 1) // the service has started
            (void)setitimer(ITIMER_REAL, &soon, nullptr);
}

int End(const std::string &name, const char *szFolder, const char *szLines) {
    s_folder = szFolder;
    s_iLines = std::atoi(szLines);
    t_large[0] = 1;
    Require(VYX_Init() == VYX_OK, "the library starts");
    for (const Way &way : kForks)
        if (way.szName == name) {
            (void)VYX_Log(2, szFolder);
            way.fnEnd();
            return 0;
        }
    if (name == "exit_in_handler") {
        (void)VYX_Log(2, szFolder);
        ExitInHandler();
    }
    (void)VYX_Log(3, szFolder);
    s_bStopped = name != "return";
    Write(0, s_bStopped ? s_iLines : s_iLines - 1); // one is left for s_lastWords
    for (const Way &way : kWays)
        if (way.szName == name) {
            way.fnEnd();
            return 0;
        }
    return 2;
}

/* ---- The tests */

// Runs a program with its standard output in a file. Result: as Way::iStatus.
int RunProgram(const std::string &command, const std::string &output) {
    const int iStatus = std::system(("exec " + command + " >" + output).c_str());
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
}

void ExpectLines(std::string text, Left eLeft) {
    constexpr size_t kLines = 5000;
    if (eLeft == Left::Beginning) // it may end in the middle of a line, where the writer was
        text.resize(text.rfind('\n') + 1);
    const auto lines = Lines(text);
    EXPECT_TRUE(eLeft == Left::All ? lines.size() == kLines : lines.size() <= kLines) << lines.size();
    for (size_t n = 0; n < lines.size(); ++n)
        ASSERT_EQ(TextOf(lines[n]), std::to_string(n));
}

class LogEnding : public testing::TestWithParam<Way> {};

TEST_P(LogEnding, Leaves) {
    const Way &way = GetParam();
    const support::TempDir dir;
    const std::string program =
        way.fnEnd == nullptr ? CLOSING " " LIBRARY : std::string(ENDING " ") + way.szName;
    // Fewer lines than a ring or a file holds.
    EXPECT_EQ(RunProgram(program + " " + dir / "logs" + " 5000", dir / "out"), way.iStatus);
    ExpectLines(AllLogText(dir / "logs"), way.eFiles);
    ExpectLines(support::ReadFile(dir / "out"), way.eConsole);
}

// What was taken is there, and perhaps the line that was interrupted.
TEST(LogExit, InASignalHandlerThatInterruptsALine) {
    for (int nRun = 0; nRun < 40; ++nRun) {
        const support::TempDir dir;
        ASSERT_EQ(
            RunProgram("timeout 60 " ENDING " exit_in_handler " + dir / "logs" + " 0 2>" + dir / "taken",
                       dir / "out"),
            0);
        uint32_t nTaken = 0;
        const std::string taken = support::ReadFile(dir / "taken");
        ASSERT_EQ(taken.size(), sizeof nTaken);
        std::memcpy(&nTaken, taken.data(), sizeof nTaken);
        const auto lines = Lines(AllLogText(dir / "logs"));
        EXPECT_TRUE(lines.size() == nTaken || lines.size() == nTaken + 1) << lines.size() << " of " << nTaken;
        for (size_t n = 0; n < lines.size(); ++n)
            ASSERT_EQ(std::stoul(TextOf(lines[n])), n);
    }
}

// Children of a process that logs all the while: each must be able to end, and none writes the parent's lines.
class LogFork : public testing::TestWithParam<Way> {};

TEST_P(LogFork, ChildEndsAndParentKeepsItsLines) {
    const std::string way = GetParam().szName;
    const support::TempDir dir;
    const std::string logs = dir / "logs";
    // A child has none of the threads that the leak checker wants to stop at its exit.
    (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    EXPECT_EQ(RunProgram(ENDING " " + way + " " + logs + " 200000", dir / "out"), 0);
    std::vector<size_t> next = {0, 50000, 100000, 150000};
    for (const std::string &line : Lines(AllLogText(logs))) {
        const size_t nNumber = std::stoul(TextOf(line));
        ASSERT_EQ(nNumber, next[nNumber / 50000]++);
    }
    EXPECT_EQ(next, (std::vector<size_t>{50000, 100000, 150000, 200000}));
    if (support::kThreadsAfterFork && way == "fork_and_log") {
        EXPECT_EQ(Lines(AllLogText(logs + "/child")).size() % 100, 0U);
        EXPECT_FALSE(Names(logs + "/child").empty());
    }
}

const auto kNameOf = [](const auto &test) { return std::string(test.param.szName); };
INSTANTIATE_TEST_SUITE_P(Way, LogEnding, testing::ValuesIn(kWays), kNameOf);
INSTANTIATE_TEST_SUITE_P(Way, LogFork, testing::ValuesIn(kForks), kNameOf);

} // namespace

int main(int argc, char **argv) {
    if (argc == 4 && argv[1][0] != '-')
        return End(argv[1], argv[2], argv[3]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
