// What the programs under tests/torture share: findings, what the process holds, and the wall clock that they set.
#ifndef VYX_TORTURE_H
#define VYX_TORTURE_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <sys/resource.h>

namespace torture {

// Counts what went against a promise, and tells the first ones on standard error. Result: whether it is good.
bool Check(bool good, const std::string &what);
int Findings();

// What the process holds. Names: of semaphores, made by this process and not removed.
struct Held {
    long descriptors, threads, names, kilobytes;
};
Held HeldNow();

// Prints them as a line of JSON, findings too. Result: the program's exit status.
int PrintFigures(FILE *output, const std::map<std::string, int64_t> &figures);

int64_t Milliseconds();           // of the monotonic clock
void Pause(int64_t microseconds); // the pace of a storm or a load

// At most so much of what setrlimit names, and not more than the process may have.
void Limit(int resource, rlim_t most);

// From now on this process, the library in it included, sees the wall clock so many seconds ahead of the system's. Waits
// until a moment of that clock follow it within 5 ms; conditions do so by waking up, which they may do at any time.
void SetClock(int ahead);

// Lines in all log files of a folder; makes them readable.
int64_t LinesOfLog(const std::string &folder);

} // namespace torture

#endif
