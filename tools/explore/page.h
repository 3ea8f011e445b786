#ifndef VYX_EXPLORE_PAGE_H_
#define VYX_EXPLORE_PAGE_H_

#include <string>

#include "search.h"

namespace explore {

// The order for a replay: what the file says about the run, the rest from the options.
Order ReplayOrder(const Options &options, const Replay &replay);

// Runs the schedule once more, with its points recorded, and prints it for a reader: thread by thread, the call, the
// object and the source line at each switch, and who waits for what at the end.
std::string MakePage(Worker &worker, const Options &options, const Replay &replay, Outcome &outcome);

// The table at the end, or all as one JSON object.
void PrintTable(const Options &options, const Search &search);
void PrintJson(const Options &options, const Search &search);

} // namespace explore

#endif
