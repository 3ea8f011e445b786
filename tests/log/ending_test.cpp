// What is left of a log, by the way in which the process ended: the table of docs/log.md, row by row.
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

#include "log/log_support.h"
#include "support/support.h"

extern char **environ;

using namespace log_support;

namespace {

constexpr size_t kLines = 5000; // fewer than a ring or a file holds

enum class Left : uint8_t { All, Beginning };

struct Row {
    const char *szWay;
    int iStatus; // exit status, or 128 + the signal that ended it
    Left eFiles;
    Left eConsole;
};

void PrintTo(const Row &row, std::ostream *pOut) {
    *pOut << row.szWay;
}

// Runs a program with its standard output in a file. Result: as Row::iStatus.
int RunProgram(std::vector<std::string> arguments, const std::string &output) {
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_CREAT | O_WRONLY, 0600);
    pid_t iPid = 0;
    EXPECT_EQ(posix_spawn(&iPid, argv[0], &actions, nullptr, argv.data(), environ), 0);
    (void)posix_spawn_file_actions_destroy(&actions);
    int iStatus = 0;
    EXPECT_EQ(waitpid(iPid, &iStatus, 0), iPid);
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
}

void ExpectLines(const std::string &log, Left eLeft, const char *szWhere) {
    SCOPED_TRACE(szWhere);
    std::string text = log;
    // Standard output may end in the middle of a line, where stdio's buffer was full.
    if (eLeft == Left::Beginning && szWhere == std::string("console"))
        text.resize(text.rfind('\n') + 1);
    const auto lines = Lines(text);
    if (eLeft == Left::All) {
        EXPECT_EQ(lines.size(), kLines);
    }
    ASSERT_LE(lines.size(), kLines);
    for (size_t n = 0; n < lines.size(); ++n)
        ASSERT_EQ(TextOf(lines[n]), std::to_string(n));
}

class LogEnding : public testing::TestWithParam<Row> {};

TEST_P(LogEnding, Leaves) {
    const Row &row = GetParam();
    const support::TempDir dir;
    const std::string logs = dir / "logs";
    const bool bCloses = row.szWay == std::string("dlclose");
    EXPECT_EQ(
        RunProgram({bCloses ? CLOSING : ENDING, bCloses ? LIBRARY : row.szWay, logs, std::to_string(kLines)},
                   dir / "out"),
        row.iStatus);
    ExpectLines(AllLogText(logs), row.eFiles, "files");
    ExpectLines(support::ReadFile(dir / "out"), row.eConsole, "console");
}

constexpr Left kAll = Left::All;
constexpr Left kBeginning = Left::Beginning;
const Row kRows[] = {
    {"return", 0, kAll, kAll},
    {"exit", 0, kAll, kAll},
    {"exit_in_thread", 0, kAll, kAll},
    {"dlclose", 0, kAll, kAll},
    {"_exit", 0, kBeginning, kBeginning},
    {"quick_exit", 0, kBeginning, kBeginning},
    {"abort", 128 + SIGABRT, kBeginning, kBeginning},
    {"signal", 128 + SIGTERM, kBeginning, kBeginning},
    {"await_and_abort", 128 + SIGABRT, kAll, kBeginning},
    {"await_and_signal", 128 + SIGKILL, kAll, kBeginning},
    {"await_and_quick_exit", 0, kAll, kBeginning},
    {"stop_and__exit", 0, kAll, kAll},
    {"log_off_and_abort", 128 + SIGABRT, kAll, kAll},
};
INSTANTIATE_TEST_SUITE_P(Way, LogEnding, testing::ValuesIn(kRows),
                         [](const auto &test) { return std::string(test.param.szWay); });

// Children of a process that logs all the while: each must be able to end, and none writes the parent's lines.
class LogFork : public testing::TestWithParam<const char *> {};

TEST_P(LogFork, ChildEndsAndParentKeepsItsLines) {
    const std::string way = GetParam();
    const support::TempDir dir;
    const std::string logs = dir / "logs";
    // A child has none of the threads that the leak checker wants to stop at its exit.
    (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    EXPECT_EQ(RunProgram({ENDING, way, logs, "200000"}, dir / "out"), 0);
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
INSTANTIATE_TEST_SUITE_P(Way, LogFork,
                         testing::Values("fork_and_exit", "fork_and_stop", "fork_and_log", "fork_and_fini"),
                         [](const auto &test) { return std::string(test.param); });

} // namespace
