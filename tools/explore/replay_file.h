// A schedule in a file: how it was found, and its decisions.
#ifndef VYX_EXPLORE_REPLAY_FILE_H_
#define VYX_EXPLORE_REPLAY_FILE_H_

#include <string>
#include <vector>

#include "mapping.h"
#include "options.h"

namespace explore {

struct Replay {
    uint64_t seed = 0;
    uint64_t schedule = 0;
    std::string strategy;
    std::string fault;
    uint64_t points = 0;
    uint64_t hash = 0;
    Order order = {}; // what of the options makes a difference: time, lateness, faults
    std::vector<Decision> decisions;
    std::vector<std::string> program;
};

bool WriteReplay(const std::string &path, const Replay &replay);
// False: `message` says what is wrong.
bool ReadReplay(const std::string &path, Replay &replay, std::string &message);

} // namespace explore

#endif
