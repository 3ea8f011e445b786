// What is left of a log, by the way in which the process ended: the table of docs/log.md, row by row. Started with
// WAY FOLDER LINES, this program is the one that logs and ends.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>

#include <vyx/vyx.h>

#include "log/log_support.h"

using namespace log_support;

namespace {

/* ---- The program that ends */

// More than the stacks of the library's own threads: they must be made larger by what a program has of these.
thread_local volatile char t_large[400000];

std::string s_folder;
int s_iLines = 0;
bool s_bLastWords = false;

void Require(bool bHolds, const char *szWhat) {
    if (bHolds)
        return;
    (void)std::fprintf(stderr, "does not hold: %s\n", szWhat);
    _exit(9);
}

void WriteNumbers(int iFirst, int iEnd) {
    for (int n = iFirst; n < iEnd; ++n) {
        int32_t iResult = 0;
        while ((iResult = Write(std::to_string(n))) == -4)
            std::this_thread::yield();
        Require(iResult == 0, "the line is taken");
    }
}

// A static object that still logs in its destructor.
struct LastWords {
    ~LastWords() {
        if (s_bLastWords)
            WriteNumbers(s_iLines - 1, s_iLines);
    }
};
LastWords s_lastWords;

void AwaitFile() {
    const std::string last = " " + std::to_string(s_iLines - 1) + "\r\n";
    Require(support::WaitUntil([&] {
                const std::string text = LogText(s_folder + "/vyx_log_1_w.log");
                return text.size() > last.size() &&
                       text.find(last, text.size() - last.size()) != std::string::npos;
            }),
            "the last line comes");
}

// What a child may do. It inherits the locks, the queue and the open file, but has no writer.
void BeAChild(int iChild) {
    Require(Write("x") == -5, "the file target is off");
    switch (iChild % 4) {
    case 0:
        break;
    case 1:
        (void)VYX_Log(0, nullptr);
        break;
    case 2:
        (void)VYX_Fini();
        break;
    default:
        if (!support::kThreadsAfterFork)
            return;
        (void)EnableTarget(kFile, (s_folder + "/child").c_str(), 0, 0);
        WriteNumbers(0, 100);
    }
}

// Forks while four threads log, with the service's locks busy.
void Fork() {
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([n] { WriteNumbers(s_iLines * n / 4, s_iLines * (n + 1) / 4); });
    for (int n = 0; n < 40; ++n) {
        const bool bBare = n % 10 == 9 && support::kThreadsAfterFork; // without the library's handlers
        const auto iChild = static_cast<pid_t>(bBare ? syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0) : fork());
        if (iChild == 0) {
            (void)alarm(60); // a child that cannot end dies
            if (bBare) {
                (void)VYX_Log(0, nullptr);
                _exit(0);
            }
            BeAChild(n);
            std::exit(0);
        }
        int iStatus = 0;
        Require(waitpid(iChild, &iStatus, 0) == iChild && iStatus == 0, "the child ends well");
    }
    for (std::thread &thread : threads)
        thread.join();
}

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
    {"exec", 0, kBeginning, kBeginning, [] { (void)execl("/bin/true", "true", nullptr); }},
    {"await_and_abort", 128 + SIGABRT, kAll, kBeginning, [] { AwaitFile(), std::abort(); }},
    {"await_and_signal", 128 + SIGKILL, kAll, kBeginning, [] { AwaitFile(), (void)raise(SIGKILL); }},
    {"await_and_quick_exit", 0, kAll, kBeginning, [] { AwaitFile(), std::quick_exit(0); }},
    {"await_and_exec", 0, kAll, kBeginning,
     [] {
         AwaitFile(); // it is open, and must not be in the next program
         (void)execl("/bin/sh", "sh", "-c", "! ls -l /proc/self/fd/ | grep vyx_log_", nullptr);
     }},
    {"stop_and__exit", 0, kAll, kAll, [] { StopLogService(true), (void)std::fflush(stdout), _exit(0); }},
    {"log_off_and_abort", 128 + SIGABRT, kAll, kAll,
     [] { VYX_Log(0, nullptr), (void)std::fflush(stdout), std::abort(); }},
};

int End(const std::string &name, const char *szFolder, const char *szLines) {
    s_folder = szFolder;
    s_iLines = std::atoi(szLines);
    t_large[0] = 1;
    Require(VYX_Init() == VYX_OK, "the library starts");
    (void)VYX_Log(2, szFolder);
    if (name == "fork") {
        Fork();
        return 0;
    }
    if (name == "exit_in_handler")
        ExitInHandler();
    (void)EnableTarget(kConsole, nullptr, 0, 0);
    s_bLastWords = name == "return";
    WriteNumbers(0, s_iLines - (s_bLastWords ? 1 : 0));
    std::find_if(std::begin(kWays), std::end(kWays), [&](const Way &way) {
        return way.szName == name;
    })->fnEnd();
    return 0;
}

/* ---- The tests */

class LogEnding : public testing::TestWithParam<Way> {
  protected:
    // Runs a program with LINES and then with its standard output in a file. Result: as Way::iStatus.
    int Run(const std::string &program, const char *szLines) const {
        const std::string command =
            "exec " + program + " " + logs + " " + szLines + " >" + dir / "out" + " 2>" + dir / "err";
        const int iStatus = std::system(command.c_str());
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
    }
    support::TempDir dir;
    std::string logs = dir / "logs";
};

TEST_P(LogEnding, Leaves) {
    const Way &way = GetParam();
    // Fewer lines than a ring or a file holds.
    EXPECT_EQ(Run(way.fnEnd == nullptr ? CLOSING " " LIBRARY : std::string(ENDING " ") + way.szName, "5000"),
              way.iStatus);
    for (const auto &[text, eLeft] :
         {std::pair{AllLogText(logs), way.eFiles}, {support::ReadFile(dir / "out"), way.eConsole}}) {
        // Of a beginning, the last line may be cut, where the writer was.
        const Strings lines = Lines(eLeft == kAll ? text : text.substr(0, text.rfind('\n') + 1));
        EXPECT_TRUE(eLeft == kAll ? lines.size() == 5000 : lines.size() <= 5000) << lines.size();
        for (size_t n = 0; n < lines.size(); ++n)
            ASSERT_EQ(lines[n], std::to_string(n));
    }
}

INSTANTIATE_TEST_SUITE_P(Way, LogEnding, testing::ValuesIn(kWays),
                         [](const auto &test) { return std::string(test.param.szName); });

using LogExit = LogEnding;

// What was taken is there, and perhaps the line that was interrupted.
TEST_F(LogExit, InASignalHandlerThatInterruptsALine) {
    // ThreadSanitizer would report what the other handlers of exit do.
    const std::string program =
        "env TSAN_OPTIONS=\"$TSAN_OPTIONS report_signal_unsafe=0 atexit_sleep_ms=0\" timeout 60 " ENDING;
    for (int nRun = 0; nRun < 40; ++nRun) {
        ASSERT_EQ(Run(program + " exit_in_handler", "0"), 0);
        uint32_t nTaken = 0;
        const std::string taken = support::ReadFile(dir / "err");
        ASSERT_EQ(taken.size(), sizeof nTaken);
        std::memcpy(&nTaken, taken.data(), sizeof nTaken);
        const Strings lines = Lines(AllLogText(logs));
        EXPECT_TRUE(lines.size() == nTaken || lines.size() == nTaken + 1) << lines.size() << " of " << nTaken;
        for (size_t n = 0; n < lines.size(); ++n)
            ASSERT_EQ(std::stoul(lines[n]), n);
        std::filesystem::remove_all(logs);
    }
}

// Children of a process that logs all the while: each can end, and none writes the parent's lines.
TEST_F(LogExit, InAForkedChildLeavesTheParentsLines) {
    (void)setenv("ASAN_OPTIONS", "detect_leaks=0",
                 1); // a child has none of the threads that its leak check wants to stop
    EXPECT_EQ(Run(ENDING " fork", "200000"), 0) << support::ReadFile(dir / "err");
    const size_t nChild = Lines(AllLogText(logs + "/child")).size(); // in files with the parent's numbers
    EXPECT_TRUE(nChild % 100 == 0 && (nChild > 0) == support::kThreadsAfterFork) << nChild;
    std::filesystem::remove_all(logs + "/child");
    std::vector<size_t> next = {0, 50000, 100000, 150000};
    for (const std::string &line : Lines(AllLogText(logs)))
        ASSERT_EQ(std::stoul(line), next[std::stoul(line) / 50000]++);
    EXPECT_EQ(next, (std::vector<size_t>{50000, 100000, 150000, 200000}));
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 4 && argv[1][0] != '-')
        return End(argv[1], argv[2], argv[3]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
