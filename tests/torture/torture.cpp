#include "torture/torture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pthread.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace torture {

namespace {

constexpr int64_t kSliceNanos = 5000000;

std::atomic<int> s_findings{0};
std::atomic<long> s_names{0};
std::atomic<int> s_ahead{0}; // seconds
std::atomic<bool> s_clockMoves{false};

template <class Function>
Function *System(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

auto *const s_semTimedWait = System<int(sem_t *, const struct timespec *)>("sem_timedwait");
auto *const s_condClockWait =
    System<int(pthread_cond_t *, pthread_mutex_t *, clockid_t, const struct timespec *)>(
        "pthread_cond_clockwait");
auto *const s_semOpen = System<sem_t *(const char *, int, ...)>("sem_open");
auto *const s_semUnlink = System<int(const char *)>("sem_unlink");

struct timespec SystemNow() {
    struct timespec now = {};
    (void)syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return now;
}

int64_t Nanos(const struct timespec &time) {
    return time.tv_sec * INT64_C(1000000000) + time.tv_nsec;
}

// How long it is until `due` of our clock.
int64_t NanosUntil(const struct timespec &due) {
    return Nanos(due) - s_ahead * INT64_C(1000000000) - Nanos(SystemNow());
}

// The moment of the system's clock until which to wait for `due` of ours, at most a slice of time from now.
struct timespec Slice(const struct timespec &due) {
    const int64_t end = Nanos(SystemNow()) + std::min(NanosUntil(due), kSliceNanos);
    return {end / 1000000000, end % 1000000000};
}

} // namespace

void SetClock(int ahead) {
    s_clockMoves = true;
    s_ahead = ahead;
}

bool Check(bool good, const std::string &what) {
    if (!good && ++s_findings <= 20)
        std::fprintf(stderr, "finding: %s (errno %d)\n", what.c_str(), errno);
    return good;
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
    long pages = 0;
    statm >> pages >> pages;
    return {entries("/proc/self/fd") - 1, entries("/proc/self/task"), s_names,
            pages * sysconf(_SC_PAGESIZE) / 1024};
}

int64_t Milliseconds() {
    struct timespec now = {};
    (void)syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

void Pause(int64_t microseconds) {
    const struct timespec time = {0, static_cast<long>(microseconds * 1000)};
    (void)nanosleep(&time, nullptr); // the pace
}

void Limit(int resource, rlim_t most) {
    struct rlimit limit = {};
    (void)getrlimit(resource, &limit);
    limit.rlim_cur = std::min(most, limit.rlim_max);
    (void)setrlimit(resource, &limit);
}

int64_t LinesOfLog(const std::string &folder) {
    int64_t lines = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file())
            continue;
        (void)chmod(entry.path().c_str(), 0600);
        std::ifstream file(entry.path(), std::ios::binary);
        lines += std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    }
    return lines;
}

} // namespace torture

// These stand before the system's, for this program and for the library.
extern "C" {

int clock_gettime(clockid_t clock, struct timespec *time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time->tv_sec += clock == CLOCK_REALTIME ? torture::s_ahead.load() : 0;
    return result;
}

int gettimeofday(struct timeval *time, void * /*zone*/) noexcept {
    const struct timespec now = torture::SystemNow();
    *time = {now.tv_sec + torture::s_ahead, now.tv_nsec / 1000};
    return 0;
}

time_t time(time_t *result) noexcept {
    const time_t now = torture::SystemNow().tv_sec + torture::s_ahead;
    if (result != nullptr)
        *result = now;
    return now;
}

int sem_timedwait(sem_t *semaphore, const struct timespec *due) {
    for (;;) {
        const struct timespec end = torture::s_clockMoves ? torture::Slice(*due) : *due;
        if (torture::s_semTimedWait(semaphore, &end) == 0)
            return 0;
        if (errno != ETIMEDOUT || torture::NanosUntil(*due) <= 0)
            return -1;
    }
}

int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                           const struct timespec *due) {
    if (clock != CLOCK_REALTIME || !torture::s_clockMoves)
        return torture::s_condClockWait(condition, mutex, clock, due);
    const struct timespec end = torture::Slice(*due);
    const int result = torture::s_condClockWait(condition, mutex, clock, &end);
    return result == ETIMEDOUT && torture::NanosUntil(*due) > 0 ? 0 : result;
}

sem_t *sem_open(const char *name, int flags, ...) noexcept {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    const unsigned value = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0;
    va_end(more);
    sem_t *semaphore = torture::s_semOpen(name, flags, mode, value);
    torture::s_names += semaphore != SEM_FAILED && (flags & O_CREAT) != 0 ? 1 : 0;
    return semaphore;
}

int sem_unlink(const char *name) noexcept {
    const int result = torture::s_semUnlink(name);
    torture::s_names -= result == 0 ? 1 : 0;
    return result;
}

} // extern "C"
