#include "replay_file.h"

#include <fstream>
#include <iomanip>
#include <sstream>

namespace explore {
namespace {

const char *const kFirstLine = "vyx-explore replay 1";
const char *const kTypes[] = {"switch", "wake", "late", "fail"};

bool ReadDecision(const std::string &word, std::istringstream &rest, Replay &replay) {
    for (uint8_t type = 0; type < Decision::Types; type++) {
        if (word != kTypes[type])
            continue;
        Decision decision = {};
        decision.type = static_cast<Decision::Type>(type);
        if (!(rest >> decision.thread >> decision.at >> decision.value) || decision.thread >= kMaxThreads)
            return false;
        replay.decisions.push_back(decision);
        return true;
    }
    return false;
}

bool ReadLine(const std::string &word, std::istringstream &rest, Replay &replay) {
    if (word == "seed")
        return static_cast<bool>(rest >> replay.seed);
    if (word == "schedule")
        return static_cast<bool>(rest >> replay.schedule);
    if (word == "strategy")
        return static_cast<bool>(rest >> replay.strategy);
    if (word == "fault")
        return static_cast<bool>(std::getline(rest >> std::ws, replay.fault));
    if (word == "points")
        return static_cast<bool>(rest >> replay.points);
    if (word == "hash")
        return static_cast<bool>(rest >> std::hex >> replay.hash);
    if (word == "real-time")
        return static_cast<bool>(rest >> replay.order.real_time);
    if (word == "lateness")
        return static_cast<bool>(rest >> replay.order.lateness);
    if (word == "faults")
        return static_cast<bool>(rest >> replay.order.fail_calls >> replay.order.fail_millions);
    if (word == "checks")
        return static_cast<bool>(rest >> replay.order.check_races >> replay.order.check_leaks);
    if (word == "program") {
        std::string argument;
        std::getline(rest >> std::ws, argument);
        replay.program.push_back(argument);
        return true;
    }
    return ReadDecision(word, rest, replay);
}

} // namespace

bool WriteReplay(const std::string &path, const Replay &replay) {
    std::ofstream file(path);
    file << kFirstLine << '\n';
    for (const std::string &argument : replay.program)
        file << "program " << argument << '\n';
    file << "seed " << replay.seed << "\nschedule " << replay.schedule << "\nstrategy " << replay.strategy
         << "\nfault " << replay.fault << "\npoints " << replay.points << "\nhash " << std::hex
         << std::setw(16) << std::setfill('0') << replay.hash << std::dec << "\nreal-time "
         << replay.order.real_time << "\nlateness " << replay.order.lateness << "\nfaults "
         << replay.order.fail_calls << ' ' << replay.order.fail_millions << "\nchecks "
         << replay.order.check_races << ' ' << replay.order.check_leaks << '\n';
    file << "# thread, its moment, what is decided: the thread that goes on or is woken\n";
    for (const Decision &decision : replay.decisions)
        file << kTypes[decision.type] << ' ' << decision.thread << ' ' << decision.at << ' ' << decision.value
             << '\n';
    file << "end\n";
    return static_cast<bool>(file.flush());
}

bool ReadReplay(const std::string &path, Replay &replay, std::string &message) {
    std::ifstream file(path);
    std::string line;
    if (!file || !std::getline(file, line) || line != kFirstLine) {
        message = path + (file ? ": not a replay file of this version" : ": cannot be read");
        return false;
    }
    for (int number = 2; std::getline(file, line); number++) {
        std::istringstream rest(line);
        std::string word;
        if (!(rest >> word) || word[0] == '#')
            continue;
        if (word == "end")
            return true;
        if (!ReadLine(word, rest, replay)) {
            message = path;
            message += ":" + std::to_string(number) + ": not understood: ";
            message += line;
            return false;
        }
    }
    message = path + ": the end is missing";
    return false;
}

} // namespace explore
