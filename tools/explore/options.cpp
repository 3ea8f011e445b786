#include "options.h"

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

#include "mapping.h"

namespace explore {
namespace {

const char *const kHelp =
    R"(vyx-explore [options] -- PROGRAM ARGS
Runs the program many times, each time with another order of its threads, and reports the orders in which it fails.

  --schedules N        how many times (1000)
  --seconds S          stop after so many seconds
  --seed N             the same seed gives the same schedules (1)
  --strategy NAME      random, pct, pct:DEPTH, round, or mix of the first two (mix)
  --replay FILE        run the schedule of this file, once or --schedules times, and print it
  --fail-on LIST       what counts as a fault: exit, hang, leak, sanitizer, misuse (exit,hang,sanitizer)
  --faults LIST:P      let calls fail with probability P: malloc, thread, sem, io
  --races              check plain accesses of instrumented code by vector clocks
  --time KIND          virtual or real (virtual)
  --lateness MS        how late a thread that can run may be, in all, by the virtual clock (100)
  --points N           a schedule with more points counts as endless (200000)
  --limit S            a schedule that takes longer in real time counts as stuck (20)
  --first              stop at the first fault
  --jobs N             schedules side by side (1)
  --directory DIR      where replay files go (.)
  --trace FILE         write every point of every schedule, one a line
  --output             show what the program prints
  --in-place           with --replay: become the program, for a debugger
  --json               the table and the faults as one JSON object
  --version            the version of vyx-explore
Exit status: 0 nothing found, 1 something found, 2 it could not be run.
)";

bool ToNumber(const std::string &text, uint64_t &number) {
    char *end = nullptr;
    errno = 0;
    number = std::strtoull(text.c_str(), &end, 10);
    return errno == 0 && !text.empty() && text[0] != '-' && *end == 0;
}

bool ToReal(const std::string &text, double &number) {
    char *end = nullptr;
    number = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == 0 && number >= 0;
}

bool ToBits(const std::string &text, const std::map<std::string, uint32_t> &names, uint32_t &bits) {
    bits = 0;
    std::istringstream list(text);
    for (std::string name; std::getline(list, name, ',');) {
        const auto found = names.find(name);
        if (found == names.end())
            return false;
        bits |= found->second;
    }
    return bits != 0;
}

bool ReadStrategy(const std::string &text, Options &options) {
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    uint64_t depth = 0;
    if (colon != std::string::npos &&
        (name != "pct" || !ToNumber(text.substr(colon + 1), depth) || depth < 1 || depth > 16))
        return false;
    options.depth = static_cast<uint32_t>(depth);
    static const std::map<std::string, Choice> names = {
        {"mix", Choice::Mix}, {"random", Choice::Random}, {"pct", Choice::Pct}, {"round", Choice::Round}};
    const auto found = names.find(name);
    if (found == names.end())
        return false;
    options.strategy = found->second;
    return true;
}

bool ReadFaults(const std::string &text, Options &options) {
    const size_t colon = text.find(':');
    double probability = 0;
    if (colon == std::string::npos || !ToReal(text.substr(colon + 1), probability) || probability > 1)
        return false;
    options.fail_millions = static_cast<uint32_t>(probability * 1000000);
    return ToBits(text.substr(0, colon),
                  {{"malloc", FailMalloc}, {"thread", FailThread}, {"sem", FailSem}, {"io", FailIo}},
                  options.fail_calls);
}

bool ReadTime(const std::string &text, Options &options) {
    options.real_time = text == "real";
    return text == "real" || text == "virtual";
}

using Value = std::function<bool(const std::string &, Options &)>;

Value Number(uint64_t Options::*field) {
    return [field](const std::string &text, Options &options) { return ToNumber(text, options.*field); };
}

Value Real(double Options::*field) {
    return [field](const std::string &text, Options &options) { return ToReal(text, options.*field); };
}

Value Text(std::string Options::*field) {
    return [field](const std::string &text, Options &options) {
        options.*field = text;
        return !text.empty();
    };
}

bool ReadFailOn(const std::string &text, Options &options) {
    return ToBits(text,
                  {{"exit", OnExit},
                   {"hang", OnHang},
                   {"leak", OnLeak},
                   {"sanitizer", OnSanitizer},
                   {"misuse", OnMisuse}},
                  options.fail_on);
}

bool ReadLateness(const std::string &text, Options &options) {
    uint64_t number = 0;
    if (!ToNumber(text, number) || number > 1000000000)
        return false;
    options.lateness = static_cast<int64_t>(number);
    return true;
}

bool ReadJobs(const std::string &text, Options &options) {
    uint64_t number = 0;
    if (!ToNumber(text, number) || number < 1 || number > 64)
        return false;
    options.jobs = static_cast<uint32_t>(number);
    return true;
}

const std::map<std::string, Value> &Values() {
    static const std::map<std::string, Value> values = {
        {"--schedules", Number(&Options::schedules)},
        {"--seconds", Real(&Options::seconds)},
        {"--seed", Number(&Options::seed)},
        {"--strategy", ReadStrategy},
        {"--replay", Text(&Options::replay)},
        {"--fail-on", ReadFailOn},
        {"--faults", ReadFaults},
        {"--time", ReadTime},
        {"--lateness", ReadLateness},
        {"--points", Number(&Options::max_points)},
        {"--limit", Real(&Options::limit)},
        {"--jobs", ReadJobs},
        {"--directory", Text(&Options::directory)},
        {"--trace", Text(&Options::trace)},
    };
    return values;
}

const std::map<std::string, bool Options::*> &Switches() {
    static const std::map<std::string, bool Options::*> switches = {
        {"--races", &Options::races},   {"--json", &Options::json},         {"--first", &Options::first},
        {"--output", &Options::output}, {"--in-place", &Options::in_place},
    };
    return switches;
}

bool Check(Options &options, std::string &message) {
    if (options.program.empty())
        message = "no program given; see --help";
    else if (!options.trace.empty() && options.jobs > 1)
        message = "--trace needs one job";
    else if (options.in_place && options.replay.empty())
        message = "--in-place needs --replay";
    if (options.schedules == 0)
        options.schedules = options.replay.empty() ? 1000 : 1;
    return message.empty();
}

} // namespace

bool ReadOptions(int count, char **arguments, Options &options, std::string &message, bool &help) {
    help = false;
    int i = 1;
    for (; i < count; i++) {
        const std::string name = arguments[i];
        if (name == "--" || name[0] != '-') {
            i += name == "--" ? 1 : 0;
            break;
        }
        if (name == "--help" || name == "-h") {
            help = true;
            message = kHelp;
            return false;
        }
        if (name == "--version") {
            help = true;
            message = "vyx-explore " VYX_EXPLORE_VERSION "\n";
            return false;
        }
        const auto flag = Switches().find(name);
        if (flag != Switches().end()) {
            options.*flag->second = true;
            continue;
        }
        const auto value = Values().find(name);
        if (value == Values().end()) {
            message = "unknown option " + name + "; see --help";
            return false;
        }
        if (++i >= count || !value->second(arguments[i], options)) {
            message = "no such value for " + name + (i < count ? ": " + std::string(arguments[i]) : "");
            return false;
        }
    }
    for (; i < count; i++)
        options.program.emplace_back(arguments[i]);
    return Check(options, message);
}

std::string StrategyText(const Options &options) {
    static const char *const texts[] = {"mix", "random", "pct", "round"};
    std::string text = texts[static_cast<size_t>(options.strategy)];
    if (options.strategy == Choice::Pct && options.depth > 0)
        text += ":" + std::to_string(options.depth);
    return text;
}

} // namespace explore
