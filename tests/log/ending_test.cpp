// What is left of a log, by the way in which the process ended: the table of docs/log.md. Started with WAY FOLDER LINES, this
// program is the one that logs and ends.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <vyx/vyx.h>

#include "log/log_support.h"

using namespace log_support;

namespace {

/* ---- The program that ends */

constexpr int kLines = 5000; // fewer than a ring or a file holds
int s_iNext = 0;             // the next line's number
bool s_bLastWords = false;

void Require(bool bHolds, const char *szWhat) {
    if (bHolds)
        return;
    (void)std::fprintf(stderr, "does not hold: %s\n", szWhat);
    _exit(9);
}

void WriteNumbers(int iEnd) {
    for (; s_iNext < iEnd; ++s_iNext)
        Require(Write(std::to_string(s_iNext)) == 0, "the line is taken");
}

// A static object that still logs in its destructor.
struct LastWords {
    ~LastWords() {
        if (s_bLastWords)
            WriteNumbers(kLines);
    }
};
LastWords s_lastWords;

// Logs without end, until a signal's handler has the process exit: now and then in the middle of a line.
void ExitInHandler() {
    (void)signal(SIGALRM, [](int) { std::exit(0); });
    const itimerval soon = {{0, 0}, {0, 2000}};
    (void)setitimer(ITIMER_REAL, &soon, nullptr);
    const std::string tail(500, 'x');
    for (;;)
        s_iNext += WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "%d%s", s_iNext, tail.c_str()) == 0 ? 1 : 0;
}

// The signal comes while a line wakes the writer: the condition for that must not be used by the handler's exit as well.
thread_local bool s_bAlarmInWake = false;
thread_local bool s_bInWake = false;

void ExitInWake() {
    (void)signal(SIGALRM, [](int) { std::exit(0); });
    const std::string tail(2000, 'x');
    for (;; (void)DisableTarget(kConsole), (void)EnableTarget(kConsole, nullptr, 0, 0)) { // all is written
        s_bAlarmInWake = true;
        for (int n = 0; n < 600; ++n) // more than half a ring, for which the writer is woken
            s_iNext += WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "%d%s", s_iNext, tail.c_str()) == 0 ? 1 : 0;
        s_bAlarmInWake = false;
    }
}

// Children that are made while the writer is busy, with the handlers of a fork and without.
void Fork() {
    (void)DisableTarget(kConsole);
    WriteNumbers(2 * kLines);
    for (const bool bBare : {false, support::kThreadsAfterFork}) {
        const auto iChild = static_cast<pid_t>(bBare ? syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0) : fork());
        if (iChild == 0) {
            (void)alarm(60); // a child that cannot end dies
            Require(bBare || Write("x") == -5, "the file target is off in a child");
            (void)VYX_Log(0, nullptr);
            _exit(0);
        }
        int iStatus = 0;
        Require(waitpid(iChild, &iStatus, 0) == iChild && iStatus == 0, "the child ends well");
    }
}

struct Way {
    const char *szName;
    int iStatus;          // exit status, or 128 + the signal that ended it
    size_t nLeastInFiles; // lines that are left
    size_t nLeastOnConsole;
    void (*fnEnd)();
};

void PrintTo(const Way &way, std::ostream *pOut) {
    *pOut << way.szName;
}

const Way kWays[] = {
    {"return", 0, kLines, kLines, [] {}},
    {"exit_in_thread", 0, kLines, kLines, [] { std::thread([] { std::exit(0); }).join(); }},
    {"exit_in_handler", 0, kLines, kLines, ExitInHandler},
    {"exit_in_wake", 0, kLines, kLines, ExitInWake},
    {"fork", 0, 2 * kLines, kLines, Fork},
    {"abort", 128 + SIGABRT, 0, 0, [] { std::abort(); }},
    {"await_and_exec", 0, kLines, 0,
     [] {
         (void)DisableTarget(kConsole); // waits until all is written
         (void)execl("/bin/sh", "sh", "-c", "! ls -l /proc/self/fd/ | grep vyx_log_", nullptr);
     }},
    {"stop_and__exit", 0, kLines, kLines, [] { StopLogService(true), (void)std::fflush(stdout), _exit(0); }},
    {"log_off_and_abort", 128 + SIGABRT, kLines, kLines,
     [] { VYX_Log(0, nullptr), (void)std::fflush(stdout), std::abort(); }},
};

int End(const std::string &name, const char *szFolder) {
    Require(VYX_Init() == VYX_OK, "the library starts");
    (void)VYX_Log(3, szFolder);
    s_bLastWords = name == "return";
    WriteNumbers(kLines - (s_bLastWords ? 1 : 0));
    std::find_if(std::begin(kWays), std::end(kWays), [&](const Way &way) {
        return way.szName == name;
    })->fnEnd();
    return 0;
}

/* ---- The tests */

using LogEnding = testing::TestWithParam<Way>;

TEST_P(LogEnding, Leaves) {
    const Way &way = GetParam();
    const support::TempDir dir;
    const std::string out = dir / "out";
    // ThreadSanitizer would report what the other handlers of exit do.
    const std::string command =
        "TSAN_OPTIONS=\"$TSAN_OPTIONS report_signal_unsafe=0 atexit_sleep_ms=0\" exec " ENDING " " +
        (way.szName + (" " + dir / "logs")) + " >" + out;
    for (int nRun = way.fnEnd == ExitInHandler ? 40 : 1; nRun > 0; --nRun) {
        const int iStatus = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus), way.iStatus);
        for (const auto &[text, nLeast] : {std::pair{AllLogText(dir / "logs"), way.nLeastInFiles},
                                           {support::ReadFile(out), way.nLeastOnConsole}}) {
            // Of a beginning, the last line may be cut, where the writer was.
            const Strings lines = Lines(nLeast > 0 ? text : text.substr(0, text.rfind('\n') + 1));
            EXPECT_GE(lines.size(), nLeast);
            for (size_t n = 0; n < lines.size(); ++n)
                ASSERT_EQ(std::stoul(lines[n]), n);
        }
        std::filesystem::remove_all(dir / "logs");
    }
}

INSTANTIATE_TEST_SUITE_P(Way, LogEnding, testing::ValuesIn(kWays),
                         [](const auto &test) { return std::string(test.param.szName); });

} // namespace

// Takes the place of the platform's in this program.
extern "C" int pthread_cond_signal(pthread_cond_t *pCond) noexcept {
    static const auto fnReal =
        reinterpret_cast<decltype(&pthread_cond_signal)>(dlsym(RTLD_NEXT, "pthread_cond_signal"));
    Require(!s_bInWake, "the condition is used by one at a time");
    if (std::exchange(s_bAlarmInWake, false)) {
        s_bInWake = true;
        (void)raise(SIGALRM);
        s_bInWake = false;
    }
    return fnReal(pCond);
}

int main(int argc, char **argv) {
    if (argc == 3 && argv[1][0] != '-')
        return End(argv[1], argv[2]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
