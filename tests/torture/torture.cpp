#include "torture/torture.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "torture/resources/failing.h"

namespace torture {

namespace {

std::atomic<int> s_findings{0};

} // namespace

void Found(const std::string &what) {
    if (++s_findings <= 20)
        std::fprintf(stderr, "finding: %s (errno %d)\n", what.c_str(), errno);
}

int Findings() {
    return s_findings;
}

int PrintFigures(FILE *output, const std::map<std::string, int64_t> &figures) {
    std::fprintf(output, "{\"findings\": %d", Findings());
    for (const auto &[name, count] : figures)
        std::fprintf(output, ", \"%s\": %lld", name.c_str(), static_cast<long long>(count));
    return std::fputs("}\n", output) >= 0 && std::fflush(output) == 0 && Findings() == 0 ? 0 : 1;
}

Held HeldNow() {
    const auto entries = [](const char *folder) {
        return static_cast<long>(std::distance(std::filesystem::directory_iterator(folder), {}));
    };
    std::ifstream statm("/proc/self/statm");
    long addresses = 0;
    long pages = 0;
    statm >> addresses >> pages;
    const long kilobytes = sysconf(_SC_PAGESIZE) / 1024;
    return {entries("/proc/self/fd") - 1, entries("/proc/self/task"), failing_sem_names(), pages * kilobytes,
            addresses * kilobytes};
}

int64_t Milliseconds() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

void Pause(int64_t microseconds) {
    const struct timespec time = {0, static_cast<long>(microseconds * 1000)};
    (void)nanosleep(&time, nullptr); // the pace
}

} // namespace torture
