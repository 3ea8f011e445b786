// What the programs under tests/torture share: findings, what the process holds, and the wall clock that they set.
#ifndef VYX_TORTURE_H
#define VYX_TORTURE_H

#include <cstdint>
#include <string>

namespace torture {

// Counts what went against a promise, and tells the first ones on standard error. Result: whether it is good.
bool Check(bool good, const std::string &what);
int Findings();

// What the process holds. Names: of semaphores, made by this process and not removed.
struct Held {
    long descriptors, threads, names, kilobytes;
};
Held HeldNow();

int64_t Milliseconds(); // of the monotonic clock

// From now on this process, the library in it included, sees the wall clock so many seconds ahead of the system's. Waits
// until a moment of that clock follow it within 5 ms; conditions do so by waking up, which they may do at any time.
void SetClock(int ahead);

// Lines in all log files of a folder; makes them readable.
int64_t LinesOfLog(const std::string &folder);

} // namespace torture

#endif
