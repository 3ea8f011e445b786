// vyx-explore as its users run it.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using support::ReadFile;
using support::TempDir;

namespace {

struct Result {
    int status;
    std::string text; // with single spaces
};

// Commands run in a folder of the test's own and find the programs by name.
class Explore : public testing::Test {
  protected:
    Result Run(const std::string &command) {
        const int status =
            std::system(("cd " + m_folder.Path() + " && PATH=" PROGRAMS ":" PROGRAMS "/scenarios:$PATH && (" +
                         command + ") >output 2>&1")
                            .c_str());
        std::string text = ReadFile(m_folder / "output");
        const auto end =
            std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; });
        text.erase(end, text.end());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
    }

    void Expect(const std::string &arguments, int status, const std::string &part) {
        const Result result = Run(EXPLORE " " + arguments);
        EXPECT_EQ(result.status, status) << arguments << "\n" << result.text;
        EXPECT_NE(result.text.find(part), std::string::npos) << arguments << "\n" << result.text;
    }

    // The same seed gives the same points, byte for byte. Only misuse is looked for, as each fault would be shortened.
    void ExpectTheSameTwice(const std::string &arguments) {
        std::string traces[2];
        for (std::string &trace : traces) {
            (void)Run(EXPLORE " --schedules 10 --seed 5 --fail-on misuse --trace trace " + arguments);
            trace = ReadFile(m_folder / "trace");
            // After a call that is outside for long, such as a wait for a child, what comes next depends on the machine.
            trace.erase(std::min(trace.find(" outside "), trace.size()));
        }
        EXPECT_GT(traces[0].size(), 1000u);
        EXPECT_EQ(traces[0], traces[1]);
    }

    bool IsInstalled(const std::string &program) { return Run("command -v " + program).status == 0; }

    const TempDir m_folder;
};

struct Faulty {
    const char *name;
    const char *options;
    const char *line; // of the page: where it goes wrong
};

void PrintTo(const Faulty &faulty, std::ostream *out) {
    *out << faulty.name;
}

const Faulty kFaulty[] = {
    {"double_checked", "--strategy random", "CRASH double_checked.cpp:23 Use"},
    {"early_signal", "", "thread 2 waits: wait condition 1, at early_signal.cpp:6 Await"},
    {"if_for_while", "--races --strategy pct", "CRASH if_for_while.cpp:13 Consume"},
    {"last_reference", "", "CRASH last_reference.cpp:20 Use"},
    {"late_timer", "", "CRASH late_timer.cpp:23 Timer"},
    {"missing_fence", "--races", "THE RACE: write missing_fence.cpp:10 Publish"},
    {"ring_wrap", "--races", "exit status: exit status 1"},
    {"service_order", "", "deadlock: threads wait for each other's mutexes"},
    {"signal_for_broadcast", "--strategy pct:3", "waits: wait condition 1, at signal_for_broadcast.cpp"},
    {"skipped_tail", "", "not so: batch.Text(line)[i] == text"},
    {"two_locks", "--strategy round", "deadlock: threads wait for each other's mutexes"},
    {"worker_retires", "--seed 1", "not so: g_accepted == 4 && g_run == 4"},
};

class FaultyProgram : public Explore, public testing::WithParamInterface<Faulty> {};

// Found, shortened to at most six decisions, and there again each time that the file is replayed.
TEST_P(FaultyProgram, IsFoundAndReplayed) {
    const std::string arguments = std::string(GetParam().options) + " -- " + GetParam().name;
    Expect("--schedules 10000 --seconds 200 --first " + arguments, 1, GetParam().line);
    EXPECT_LE(std::stoi("0" + Run("grep -cE '^(switch|wake|late|fail) ' *.replay").text), 6);
    Expect("--schedules 10 --replay *.replay " + arguments, 1, GetParam().line);
    Expect("--schedules 10 --replay *.replay " + arguments, 1, "replayed as recorded: 10 of 10 times");
    ExpectTheSameTwice(arguments);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyProgram, testing::ValuesIn(kFaulty),
                         [](const auto &row) { return std::string(row.param.name); });

const char *const kScenarios[] = {SCENARIOS};

class Scenario : public Explore, public testing::WithParamInterface<const char *> {};

// Nothing is wrong in 60 schedules, or in as many as VYX_EXPLORE_SCHEDULES says.
TEST_P(Scenario, HasNoFault) {
    const char *const asked = std::getenv("VYX_EXPLORE_SCHEDULES");
    const std::string schedules = std::string("schedules ") + (asked != nullptr ? asked : "60") + " ";
    const std::string program = std::string("-- ") + GetParam();
    Expect("--limit 120 --" + schedules + program, 0, schedules);
    ExpectTheSameTwice(program);
}

INSTANTIATE_TEST_SUITE_P(All, Scenario, testing::ValuesIn(kScenarios),
                         [](const auto &row) { return std::string(row.param); });

struct Row {
    const char *arguments;
    int status;
    const char *text;
};

const Row kRows[] = {
    // What the calls do is what the platform's do, and a day's sleep takes no time.
    {"--schedules 40 -- stand_ins", 0, ""},
    {"--time real --schedules 1 -- stand_ins", 0, ""},
    {"-- odd day", 0, ""},
    {"--limit 0.3 --time real --schedules 1 -- odd day", 1, "stuck: it was killed after the real time"},
    // An interpreter knows nothing of this library.
    {"--schedules 20 -- /usr/bin/python3 " SOURCES "/programs/threads.py", 0, "threads at most 3"},
    {"--json -- early_signal | python3 -c 'import json, sys; it = json.load(sys.stdin); "
     "print(it[\"faults\"][0][\"fault\"], it[\"failed\"], \"condition 1\" in it[\"faults\"][0][\"page\"])'",
     0, "deadlock 1 True\n"},
    // A thread that stays away from every call is not waited for longer than a moment.
    {"--schedules 4 --strategy round -- odd spin", 0, "waited for something unknown"},
    {"--races -- ordered", 0, ""},
    {"--faults malloc:0.3 -- odd block", 1, "exit status: exit status 3"},
    {"--faults thread:0.3 -- odd thread", 1, "exit status: exit status 3"},
    {"--faults sem:0.3 -- odd semaphore", 1, "exit status: exit status 3"},
    {"--faults io:0.3 -- odd descriptor", 1, "exit status: exit status 3"},
    {"--faults malloc,thread:0.3 --fail-on hang -- odd thread", 0, ""},
    // Who waits for a worker is told that none can be started.
    {"--faults thread:0.3 --fail-on hang -- fixed_pool one", 0, ""},
    {"-- odd block", 0, ""},
    {"--fail-on leak -- odd nothing", 0, ""},
    {"--fail-on leak -- odd block", 1, "blocks of memory are left"},
    {"--fail-on leak -- odd thread", 1, "leak: thread 2 was neither joined nor detached"},
    {"--fail-on leak -- odd semaphore", 1, "leak: 1 semaphores are left"},
    {"--fail-on leak -- odd descriptor", 1, "leak: 2 descriptors are left open"},
    {"--points 500 -- odd endless", 1, "endless: no end after 500 points"},
    {"--points 500 --fail-on exit --limit 0.3 --schedules 1 -- odd endless", 0, ""},
    {"", 2, "no program given"},
    {"--strategy luck -- true", 2, "no such value for --strategy: luck"},
    {"--strategy pct:0 -- true", 2, "no such value for --strategy: pct:0"},
    {"--faults malloc:2 -- true", 2, "no such value for --faults: malloc:2"},
    {"--fail-on exit,nothing -- true", 2, "no such value for --fail-on: exit,nothing"},
    {"--schedules -1 -- true", 2, "no such value for --schedules: -1"},
    {"--seed", 2, "no such value for --seed"},
    {"--what -- true", 2, "unknown option --what"},
    {"-- /does/not/exist", 2, "does not start under exploration"},
    {"--replay /does/not/exist -- true", 2, "cannot be read"},
    {"--replay old -- true", 2, "not a replay file of this version"},
    {"--replay cut -- true", 2, "the end is missing"},
    {"--replay odd -- true", 2, ":2: not understood: switch 1"},
};

TEST_F(Explore, FindsOrRefuses) {
    support::WriteFile(m_folder / "old", "vyx-explore replay 0\n");
    support::WriteFile(m_folder / "cut", "vyx-explore replay 1\nseed 1\n");
    support::WriteFile(m_folder / "odd", "vyx-explore replay 1\nswitch 1\nend\n");
    for (const Row &row : kRows)
        Expect(std::string(row.status == 2 ? "" : "--first --schedules 60 ") + row.arguments, row.status,
               row.text);
    EXPECT_EQ(Run("stand_ins").text, "") << "alone";
}

// A debugger sees the program in the recorded schedule, at the line where it goes wrong.
TEST_F(Explore, ReplaysUnderADebugger) {
    if (!IsInstalled("gdb"))
        GTEST_SKIP() << "gdb is not installed";
    Expect("--first -- last_reference", 1, "");
    const Result result =
        Run("gdb -nx -q -batch -ex 'set breakpoint pending on' -ex 'set startup-with-shell off' "
            "-ex 'break abort' -ex run -ex backtrace -ex kill "
            "--args " EXPLORE " --replay *.replay -- last_reference");
    EXPECT_NE(result.text.find("last_reference.cpp:20"), std::string::npos) << result.text;
}

// A program that knows nothing of this library.
TEST_F(Explore, RunsACompressor) {
    if (!IsInstalled("pigz"))
        GTEST_SKIP() << "pigz is not installed";
    support::WriteFile(m_folder / "text", std::string(300000, 'x'));
    Expect("--schedules 30 -- pigz -p 3 -b 32 -f -k text", 0, "threads at most 5");
    EXPECT_EQ(Run("gzip -dc text.gz | cmp - text").status, 0);
}

} // namespace
