// vyx-explore as its users run it.
#include <array>
#include <cstdio>
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

// What it prints, with single spaces.
Result Explore(const std::string &arguments) {
    Result result;
    std::FILE *output = popen((EXPLORE " " + arguments + " 2>&1").c_str(), "re");
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
    {"double_checked", "", "signal", "CRASH double_checked.cpp:31 Use"},
    {"early_signal", "", "deadlock", "thread 1 waits: wait condition 1, at early_signal.cpp:18 main"},
    {"if_for_while", "", "signal", "CRASH if_for_while.cpp:14 Consume"},
    {"last_reference", "", "signal", "CRASH last_reference.cpp:22 Use"},
    {"late_timer", "", "signal", "CRASH late_timer.cpp:24 Timer"},
    {"missing_fence", "--races", "race", "THE RACE: write missing_fence.cpp:9 Publish"},
    {"ring_wrap", "", "exit status", "exit status: exit status 1"},
    {"signal_for_broadcast", "", "deadlock", "waits: wait condition 1, at signal_for_broadcast.cpp"},
    {"two_locks", "", "deadlock", "waits: lock mutex 1, held by thread"},
};

class FaultyProgram : public testing::TestWithParam<Faulty> {};

// Found, shortened to at most six decisions, and there again each time that the file is replayed.
TEST_P(FaultyProgram, IsFoundAndReplayed) {
    const Faulty &faulty = GetParam();
    const TempDir folder;
    const Result found = Explore("--schedules 10000 --seconds 60 --first " + std::string(faulty.options) +
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

// The same seed gives the same points, byte for byte.
TEST_P(FaultyProgram, RunsTheSameWayTwice) {
    const Faulty &faulty = GetParam();
    const TempDir folder;
    std::string traces[2];
    for (std::string &trace : traces) {
        const std::string path = folder.Path() + "/trace";
        (void)Explore("--schedules 20 --seed 5 --trace " + path + " --directory " + folder.Path() + " " +
                      faulty.options + " -- " + Program(faulty.name));
        trace = ReadFile(path);
    }
    EXPECT_GT(traces[0].size(), 1000u);
    EXPECT_EQ(traces[0], traces[1]);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyProgram, testing::ValuesIn(kFaulty),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
