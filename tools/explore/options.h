// The command line of vyx-explore.
#ifndef VYX_EXPLORE_OPTIONS_H_
#define VYX_EXPLORE_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace explore {

enum class Choice : uint8_t { Mix, Random, Pct, Round }; // Mix: random and pct in turns

enum FailOn : uint32_t { OnExit = 1, OnHang = 2, OnLeak = 4, OnSanitizer = 8, OnMisuse = 16 };

struct Options {
    uint64_t schedules = 0; // 0: as many as usual, 1 for a replay
    double seconds = 0;     // 0: no limit
    uint64_t seed = 1;
    Choice strategy = Choice::Mix;
    uint32_t depth = 0; // of pct; 0: 2 to 5 in turns
    std::string replay; // file
    uint32_t fail_on = OnExit | OnHang | OnSanitizer;
    uint32_t fail_calls = 0;
    uint32_t fail_millions = 0;
    bool real_time = false;
    bool races = false;
    bool json = false;
    bool first = false;    // stop at the first fault
    bool in_place = false; // replay in this process, for a debugger
    bool output = false;   // show what the program prints
    uint32_t jobs = 1;
    uint64_t max_points = 200000;
    double limit = 20;           // real seconds of one schedule
    int64_t lateness = 100;      // milliseconds
    std::string directory = "."; // of replay files
    std::string trace;           // file for the text of every point
    std::vector<std::string> program;
};

// Reads the command line. False: `message` says what is wrong, or is the help text if `help` is set.
bool ReadOptions(int count, char **arguments, Options &options, std::string &message, bool &help);

std::string StrategyText(const Options &options);

} // namespace explore

#endif
