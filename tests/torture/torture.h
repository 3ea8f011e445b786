// What the programs under tests/torture share: findings, what the process holds, time.
#ifndef VYX_TORTURE_H
#define VYX_TORTURE_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>

namespace torture {

// Counts what went against a promise, and tells the first ones on standard error.
void Found(const std::string &what);
int Findings();

// Result: whether it is good. The text is put together only where it is not: memory may be short.
template <class... Parts>
bool Check(bool good, const Parts &...what) {
    if (!good) {
        std::ostringstream text;
        (text << ... << what);
        Found(text.str());
    }
    return good;
}

// What the process holds. Names: of semaphores, made by this process and not removed. Memory and addresses are in KiB.
struct Held {
    long descriptors, threads, names, kilobytes, addresses;
};
Held HeldNow();

// Prints them as a line of JSON, findings too. Result: the program's exit status.
int PrintFigures(FILE *output, const std::map<std::string, int64_t> &figures);

int64_t Milliseconds();           // of the monotonic clock
void Pause(int64_t microseconds); // the pace of a storm

} // namespace torture

#endif
