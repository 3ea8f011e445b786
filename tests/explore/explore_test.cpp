// vyx-explore as its users run it.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using support::ReadFile;
using support::TempDir;

namespace {

struct Result {
    int status = -1;
    std::string text;
};

// What a command prints, with single spaces.
Result RunCommand(const std::string &command) {
    Result result;
    std::FILE *output = popen((command + " 2>&1").c_str(), "re");
    if (output == nullptr)
        return result;
    std::array<char, 4096> block{};
    for (size_t count = 0; (count = std::fread(block.data(), 1, block.size(), output)) > 0;)
        for (size_t i = 0; i < count; i++)
            if (block[i] != ' ' || result.text.empty() || result.text.back() != ' ')
                result.text += block[i];
    const int status = pclose(output);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

Result Explore(const std::string &arguments) {
    return RunCommand(EXPLORE " " + arguments);
}

std::string Program(const std::string &name) {
    return std::string(PROGRAMS "/") + name;
}

int CountDecisions(const std::string &path) {
    std::ifstream file(path);
    int count = 0;
    for (std::string line; std::getline(file, line);)
        for (const char *word : {"switch ", "wake ", "late ", "fail "})
            count += line.compare(0, std::string(word).size(), word) == 0 ? 1 : 0;
    return count;
}

struct Faulty {
    const char *name;
    const char *options;
    const char *fault;
    const char *line; // of the page: where it goes wrong
};

void PrintTo(const Faulty &faulty, std::ostream *out) {
    *out << faulty.name;
}

const Faulty kFaulty[] = {
    {"double_checked", "", "signal", "CRASH double_checked.cpp:33 Use"},
    {"early_signal", "", "deadlock", "thread 1 waits: wait condition 1, at early_signal.cpp:18 main"},
    {"if_for_while", "", "signal", "CRASH if_for_while.cpp:16 Consume"},
    {"last_reference", "", "signal", "CRASH last_reference.cpp:24 Use"},
    {"late_timer", "", "signal", "CRASH late_timer.cpp:24 Timer"},
    {"missing_fence", "--races", "race", "THE RACE: write missing_fence.cpp:11 Publish"},
    {"ring_wrap", "", "exit status", "exit status: exit status 1"},
    {"service_order", "", "deadlock", ", held by thread 3, at"},
    {"signal_for_broadcast", "", "deadlock", "waits: wait condition 1, at signal_for_broadcast.cpp"},
    {"skipped_tail", "", "signal", "not so: batch.Text(line)[i] == text"},
    {"two_locks", "", "deadlock", "waits: lock mutex 1, held by thread"},
    {"worker_retires", "--seed 6", "signal", "not so: g_run == 2"},
};

class FaultyProgram : public testing::TestWithParam<Faulty> {};

// Found, shortened to at most six decisions, and there again each time that the file is replayed.
TEST_P(FaultyProgram, IsFoundAndReplayed) {
    const Faulty &faulty = GetParam();
    const TempDir folder;
    const Result found = Explore("--schedules 10000 --seconds 200 --first " + std::string(faulty.options) +
                                 " --directory " + folder.Path() + " -- " + Program(faulty.name));
    EXPECT_EQ(found.status, 1) << found.text;
    const std::string line = faulty.line;
    EXPECT_NE(found.text.find(line), std::string::npos) << found.text;
    std::string replay;
    for (const auto &entry : std::filesystem::directory_iterator(folder.Path()))
        replay = entry.path().string();
    ASSERT_FALSE(replay.empty()) << found.text;
    EXPECT_LE(CountDecisions(replay), 6) << ReadFile(replay);
    const Result again = Explore("--schedules 10 " + std::string(faulty.options) + " --replay " + replay +
                                 " -- " + Program(faulty.name));
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.text.find("\n" + std::string(faulty.fault) + ":"), std::string::npos) << again.text;
    EXPECT_NE(again.text.find("replayed as recorded: 10 of 10 times"), std::string::npos) << again.text;
}

// The same seed gives the same points, byte for byte. Only races are looked for, as each fault would be shortened.
TEST_P(FaultyProgram, RunsTheSameWayTwice) {
    const Faulty &faulty = GetParam();
    const TempDir folder;
    std::string traces[2];
    for (std::string &trace : traces) {
        const std::string path = folder / "trace";
        (void)Explore("--schedules 20 --seed 5 --fail-on misuse --trace " + path + " --directory " +
                      folder.Path() + " " + faulty.options + " -- " + Program(faulty.name));
        trace = ReadFile(path);
    }
    EXPECT_GT(traces[0].size(), 1000u);
    EXPECT_EQ(traces[0], traces[1]);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyProgram, testing::ValuesIn(kFaulty),
                         [](const auto &row) { return std::string(row.param.name); });

const char *const kScenarios[] = {SCENARIO_LIST};

class Scenario : public testing::TestWithParam<const char *> {};

// Nothing is wrong in 60 schedules, or in as many as VYX_EXPLORE_SCHEDULES says, and the same seed gives the same points.
TEST_P(Scenario, HasNoFault) {
    const TempDir folder;
    const char *const asked = std::getenv("VYX_EXPLORE_SCHEDULES");
    const std::string schedules = std::string("schedules ") + (asked != nullptr ? asked : "60") + " ";
    const auto Run = [&](const std::string &options) {
        return Explore(options + "--trace " + (folder / "trace") + " --directory " + folder.Path() +
                       " -- " SCENARIOS "/" + GetParam());
    };
    const Result result = Run("--limit 120 --" + schedules);
    EXPECT_EQ(result.status, 0) << result.text;
    EXPECT_NE(result.text.find(schedules), std::string::npos) << result.text;
    const std::string trace = ReadFile(folder / "trace");
    EXPECT_EQ(Run("--schedules 5 ").status, 0);
    const std::string all = ReadFile(folder / "trace");
    EXPECT_GT(all.size(), 1000u);
    // After a call that is outside for long, such as a wait for a child, what comes next depends on the machine.
    const std::string again = all.substr(0, all.find(" outside "));
    EXPECT_EQ(trace.substr(0, again.size()), again);
}

INSTANTIATE_TEST_SUITE_P(All, Scenario, testing::ValuesIn(kScenarios),
                         [](const auto &row) { return std::string(row.param); });

// What the calls do is what the platform's do, and a day's sleep takes no time.
TEST(Explore, StandsInFaithfully) {
    EXPECT_EQ(std::system(Program("stand_ins").c_str()), 0);
    const TempDir folder;
    const Result result =
        Explore("--schedules 40 --directory " + folder.Path() + " -- " + Program("stand_ins") + " explored");
    EXPECT_EQ(result.status, 0) << result.text;
}

TEST(Explore, EachStrategyFindsTheTwoLocks) {
    const TempDir folder;
    for (const char *strategy : {"random", "pct", "pct:3", "round", "mix"}) {
        const Result result = Explore("--first --schedules 10000 --strategy " + std::string(strategy) +
                                      " --directory " + folder.Path() + " -- " + Program("two_locks"));
        EXPECT_EQ(result.status, 1) << strategy << result.text;
    }
}

struct Kind {
    const char *options;
    const char *program;
    const char *text; // null: nothing is found
};

const Kind kKinds[] = {
    {"", "refused malloc", nullptr},
    {"--faults malloc:0.3", "refused malloc", "exit status: exit status 3"},
    {"--faults thread:0.3", "refused thread", "exit status: exit status 3"},
    {"--faults sem:0.3", "refused sem", "exit status: exit status 3"},
    {"--faults io:0.3", "refused io", "exit status: exit status 3"},
    {"--faults malloc,thread:0.3 --fail-on hang", "refused thread", nullptr},
    {"--races", "ordered", nullptr},
    {"", "left block", nullptr},
    {"--fail-on leak", "left nothing", nullptr},
    {"--fail-on leak", "left block", "blocks of memory are left"},
    {"--fail-on leak", "left thread", "leak: thread 2 was neither joined nor detached"},
    {"--fail-on leak", "left semaphore", "leak: 1 semaphores are left"},
    {"--fail-on leak", "left descriptor", "leak: 2 descriptors are left open"},
    {"--points 500 --strategy round", "polite", "endless: no end after 500 points"},
    {"--points 500 --strategy round --fail-on exit", "polite", nullptr},
    {"--time real --schedules 1", "stand_ins", nullptr},
    {"--limit 0.3 --time real --schedules 1", "stand_ins explored",
     "stuck: it was killed after the real time"},
};

TEST(Explore, WhatCountsAsAFault) {
    const TempDir folder;
    for (const Kind &kind : kKinds) {
        const Result result = Explore("--first --schedules 60 " + std::string(kind.options) +
                                      " --directory " + folder.Path() + " -- " + Program(kind.program));
        SCOPED_TRACE(std::string(kind.options) + " " + kind.program + "\n" + result.text);
        EXPECT_EQ(result.status, kind.text == nullptr ? 0 : 1);
        EXPECT_TRUE(kind.text == nullptr || result.text.find(kind.text) != std::string::npos);
    }
}

// A thread that stays away from every call is not waited for longer than a moment.
TEST(Explore, GoesOnBesideAThreadThatSpins) {
    const Result result = Explore("--schedules 4 --strategy round -- " + Program("spinner"));
    EXPECT_EQ(result.status, 0) << result.text;
    EXPECT_NE(result.text.find("waited for something unknown"), std::string::npos) << result.text;
}

TEST(Explore, JsonHasTheTableAndTheFault) {
    const TempDir folder;
    const Result result = Explore(
        "--json --first --directory " + folder.Path() + " -- " + Program("early_signal") + " | python3 -c '" +
        "import json, sys; it = json.load(sys.stdin); fault = it[\"faults\"][0]; " +
        "print(fault[\"fault\"], fault[\"decisions\"], it[\"failed\"], \"condition 1\" in fault[\"page\"])'");
    EXPECT_EQ(result.text, "deadlock 1 1 True\n");
}

TEST(Explore, RefusesWhatItDoesNotUnderstand) {
    const TempDir folder;
    support::WriteFile(folder / "old", "vyx-explore replay 0\n");
    support::WriteFile(folder / "cut", "vyx-explore replay 1\nseed 1\n");
    support::WriteFile(folder / "odd", "vyx-explore replay 1\nswitch 1\nend\n");
    const std::string rows[][2] = {
        {"", "no program given"},
        {"--strategy luck -- true", "no such value for --strategy: luck"},
        {"--strategy pct:0 -- true", "no such value for --strategy: pct:0"},
        {"--faults malloc -- true", "no such value for --faults: malloc"},
        {"--faults malloc:2 -- true", "no such value for --faults: malloc:2"},
        {"--fail-on nothing -- true", "no such value for --fail-on: nothing"},
        {"--schedules -1 -- true", "no such value for --schedules: -1"},
        {"--jobs 0 -- true", "no such value for --jobs: 0"},
        {"--seed", "no such value for --seed"},
        {"--what -- true", "unknown option --what"},
        {"-- /does/not/exist", "does not start under exploration"},
        {"--replay /does/not/exist -- true", "cannot be read"},
        {"--replay " + (folder / "old") + " -- true", "not a replay file of this version"},
        {"--replay " + (folder / "cut") + " -- true", "the end is missing"},
        {"--replay " + (folder / "odd") + " -- true", ":2: not understood: switch 1"},
    };
    for (const auto &row : rows) {
        const Result result = Explore(row[0]);
        EXPECT_EQ(result.status, 2) << row[0];
        EXPECT_NE(result.text.find(row[1]), std::string::npos) << row[0] << result.text;
    }
}

bool IsInstalled(const char *program) {
    return std::system(("command -v " + std::string(program) + " >/dev/null").c_str()) == 0;
}

// A debugger sees the program in the recorded schedule, at the line where it goes wrong.
TEST(Explore, ReplaysUnderADebugger) {
    if (!IsInstalled("gdb"))
        GTEST_SKIP() << "gdb is not installed";
    const TempDir folder;
    ASSERT_EQ(Explore("--first --directory " + folder.Path() + " -- " + Program("last_reference")).status, 1);
    const std::string replay = std::filesystem::directory_iterator(folder.Path())->path();
    const std::string script = folder / "script";
    support::WriteFile(
        script, "set breakpoint pending on\nset startup-with-shell off\nbreak abort\nrun\nbacktrace\nkill\n");
    const Result result = RunCommand("gdb -nx -q -batch -x " + script + " --args " EXPLORE " --replay " +
                                     replay + " -- " + Program("last_reference"));
    EXPECT_NE(result.text.find("last_reference.cpp:24"), std::string::npos) << result.text;
}

// Programs of others, which know nothing of this library.
TEST(Explore, RunsACompressor) {
    if (!IsInstalled("pigz"))
        GTEST_SKIP() << "pigz is not installed";
    const TempDir folder;
    support::WriteFile(folder / "text", std::string(300000, 'x'));
    const Result packed = Explore("--schedules 30 --directory " + folder.Path() +
                                  " -- pigz -p 3 -b 32 -f -k " + (folder / "text"));
    EXPECT_EQ(packed.status, 0) << packed.text;
    EXPECT_NE(packed.text.find("threads at most 5"), std::string::npos) << packed.text;
    EXPECT_EQ(std::system(("gzip -dc " + (folder / "text.gz") + " | cmp - " + (folder / "text")).c_str()), 0);
}

TEST(Explore, RunsAnInterpreterWithThreads) {
    if (!IsInstalled("/usr/bin/python3"))
        GTEST_SKIP() << "python3 is not installed";
    const Result result = Explore("--schedules 30 -- /usr/bin/python3 " SOURCES "/programs/threads.py");
    EXPECT_EQ(result.status, 0) << result.text;
    EXPECT_NE(result.text.find("threads at most 3"), std::string::npos) << result.text;
}

} // namespace
