// Logs lines and ends in one way or another; ending_test.cpp looks at what is left.
//   ending WAY FOLDER LINES
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vyx/vyx.h>

#include "support/support.h"

namespace {

std::string s_folder;
int s_iLines = 0;
std::atomic<bool> s_bStopped{false}; // lines need not be taken any more
std::atomic<int> s_nFailures{0};

void Expect(bool bHolds, const char *szWhat) {
    if (bHolds)
        return;
    (void)std::fprintf(stderr, "ending: does not hold: %s\n", szWhat);
    ++s_nFailures;
}
#define EXPECT(condition) Expect(condition, #condition)

void Write(int iFirst, int iEnd) {
    for (int n = iFirst; n < iEnd; ++n) {
        int32_t iResult = 0;
        while ((iResult = WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "%d", n)) == -4)
            std::this_thread::yield();
        EXPECT(iResult == 0);
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
    const std::string file = s_folder + "/vyx_log_1_w.log";
    while (chmod(file.c_str(), 0600) != 0) // for others than the superuser
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::string last = "[LINE:1] " + std::to_string(s_iLines - 1) + "\r\n";
    std::string text;
    while (text.size() < last.size() || text.compare(text.size() - last.size(), last.size(), last) != 0) {
        std::ifstream log(file, std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(log), {});
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the poll's own pause
    }
}

// What a child does. Result: never, if it cannot end, which the alarm turns into a death.
using Child = std::function<void()>;

// Forks while four threads log, with the service's locks busy. All of the parent's lines are written by the parent.
void Fork(pid_t (*pfnFork)(), const Child &fnChild) {
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([n] { Write(s_iLines * n / 4, s_iLines * (n + 1) / 4); });
    for (int n = 0; n < 20; ++n) {
        (void)std::fflush(stdout);
        const pid_t iChild = pfnFork();
        if (iChild == 0) {
            (void)alarm(60);
            s_bStopped = true;
            s_nFailures = 0;
            fnChild();
            std::exit(s_nFailures == 0 ? 0 : 1);
        }
        int iStatus = 0;
        EXPECT(waitpid(iChild, &iStatus, 0) == iChild);
        EXPECT(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
    }
    for (std::thread &thread : threads)
        thread.join();
    s_bStopped = true;
}

void ChildLogs() {
    EXPECT(WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "x") == -5);
    if (!support::kThreadsAfterFork)
        return;
    const std::string folder = s_folder + "/child";
    EXPECT(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 0, 0) == 0);
    Write(0, 100);
}

struct Way {
    const char *szName;
    std::function<void()> fnEnd;
};

const Way kWays[] = {
    {"return", [] {}},
    {"exit", [] { std::exit(0); }},
    {"exit_in_thread", [] { std::thread([] { std::exit(0); }).join(); }},
    {"_exit", [] { _exit(0); }},
    {"quick_exit", [] { std::quick_exit(0); }},
    {"abort", [] { std::abort(); }},
    {"signal", [] { (void)raise(SIGTERM); }},
    {"await_and_abort", [] { AwaitFile(), std::abort(); }},
    {"await_and_signal", [] { AwaitFile(), (void)raise(SIGKILL); }},
    {"await_and_quick_exit", [] { AwaitFile(), std::quick_exit(0); }},
    {"stop_and__exit", [] { (void)StopLogService(true), (void)std::fflush(stdout), _exit(0); }},
    {"log_off_and_abort", [] { (void)VYX_Log(0, nullptr), (void)std::fflush(stdout), std::abort(); }},
    {"fork_and_exit", [] { Fork(fork, [] {}); }},
    {"fork_and_stop", [] { Fork(fork, [] { (void)VYX_Log(0, nullptr); }); }},
    {"fork_and_log", [] { Fork(fork, ChildLogs); }},
    {"fork_and_fini", [] { Fork(fork, [] { (void)VYX_Fini(); }); }},
};

} // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        return 2;
    s_folder = argv[2];
    s_iLines = std::atoi(argv[3]);
    const bool bForks = std::strstr(argv[1], "fork") != nullptr;
    EXPECT(VYX_Init() == VYX_OK);
    (void)VYX_Log(bForks ? 2 : 3, argv[2]);
    if (!bForks)
        Write(0,
              s_iLines - (std::strstr(argv[1], "return") != nullptr ? 1 : 0)); // one is left for s_lastWords
    s_bStopped = std::strcmp(argv[1], "return") != 0;
    for (const Way &way : kWays)
        if (std::strcmp(way.szName, argv[1]) == 0) {
            way.fnEnd();
            return s_nFailures == 0 ? 0 : 1;
        }
    return 2;
}
