// vyx-explore: see docs/explore.md.
#include <cstdio>
#include <fstream>

#include "page.h"

using namespace explore;

namespace {

// A debugger sees this process: it becomes the program rather than starting it.
bool IsTraced() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 10, "TracerPid:") == 0)
            return line.find_first_of("123456789") != std::string::npos;
    return false;
}

int RunReplay(Options &options) {
    Replay replay;
    std::string message;
    if (!ReadReplay(options.replay, replay, message)) {
        (void)std::fprintf(stderr, "vyx-explore: %s\n", message.c_str());
        return 2;
    }
    Worker worker(options);
    if (options.in_place || IsTraced()) {
        worker.Become(ReplayOrder(options, replay), replay.decisions);
        return 2;
    }
    if (!worker.Start(message)) {
        (void)std::fprintf(stderr, "vyx-explore: %s\n", message.c_str());
        return 2;
    }
    Outcome outcome;
    const std::string page = MakePage(worker, options, replay, outcome);
    (void)std::fputs(page.c_str(), stdout);
    uint64_t same = outcome.hash == replay.hash ? 1 : 0;
    for (uint64_t i = 1; i < options.schedules; i++) {
        Outcome again;
        if (!worker.Run(ReplayOrder(options, replay), replay.decisions, again))
            return 2;
        same += again.hash == replay.hash && again.fault == outcome.fault ? 1 : 0;
    }
    (void)std::printf("replayed as recorded: %llu of %llu times\n", static_cast<unsigned long long>(same),
                      static_cast<unsigned long long>(options.schedules));
    return Counts(options, outcome) == Fault::None ? 0 : 1;
}

} // namespace

int main(int count, char **arguments) {
    Options options;
    std::string message;
    bool help = false;
    if (!ReadOptions(count, arguments, options, message, help)) {
        (void)std::fprintf(help ? stdout : stderr, help ? "%s" : "vyx-explore: %s\n", message.c_str());
        return help ? 0 : 2;
    }
    if (!options.replay.empty())
        return RunReplay(options);
    Search search(options);
    if (!search.Run(message)) {
        (void)std::fprintf(stderr, "vyx-explore: %s\n", message.c_str());
        return 2;
    }
    if (options.json)
        PrintJson(options, search);
    else
        PrintTable(options, search);
    return search.Faults().empty() ? 0 : 1;
}
