// What is left of a log, by the way in which the process ended: the table of docs/log.md, row by row.
#include <csignal>
#include <cstdlib>
#include <sys/wait.h>

#include "log/log_support.h"
#include "support/support.h"

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
int RunProgram(const std::string &command, const std::string &output) {
    const int iStatus = std::system(("exec " + command + " >" + output).c_str());
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
    const std::string program = bCloses ? CLOSING " " LIBRARY : std::string(ENDING " ") + row.szWay;
    EXPECT_EQ(RunProgram(program + " " + logs + " " + std::to_string(kLines), dir / "out"), row.iStatus);
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
    if (!support::kThreadsAfterFork && way == "fork_and_log")
        GTEST_SKIP() << "ThreadSanitizer cannot follow threads that a forked child starts";
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
    if (way == "fork_and_log") {
        EXPECT_EQ(Lines(AllLogText(logs + "/child")).size() % 100, 0U);
        EXPECT_FALSE(Names(logs + "/child").empty());
    }
}
INSTANTIATE_TEST_SUITE_P(Way, LogFork,
                         testing::Values("fork_and_exit", "fork_and_stop", "fork_and_log", "fork_and_fini"),
                         [](const auto &test) { return std::string(test.param); });

} // namespace
