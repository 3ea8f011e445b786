// sqlite_vyx: does the same work over the library and, asked to, over SQLite's own files and mutexes.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vyx_sqlite.h"
#include "workload.h"

namespace {

constexpr char kUsage[] =
    "Usage: sqlite_vyx [--builtin] [--rows N] FILE\n"
    "Works on the new database FILE over libvyx, or over SQLite's own files and mutexes, and\n"
    "prints milliseconds and a sum over all results, which is the same for both.\n";

struct Options {
    bool builtin = false;
    int64_t rows = 50000;
    std::string file;
};

bool Parse(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--builtin") == 0)
            options.builtin = true;
        else if (std::strcmp(argv[i], "--rows") == 0 && i + 1 < argc)
            options.rows = std::atoll(argv[++i]);
        else if (argv[i][0] != '-' && options.file.empty())
            options.file = argv[i];
        else
            return false;
    }
    return !options.file.empty() && options.rows > 0;
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    if (!Parse(argc, argv, options)) {
        (void)std::fputs(kUsage, stderr);
        return 2;
    }
    if (!options.builtin && (sqlite_vyx::UseMutexes() != SQLITE_OK || sqlite3_initialize() != SQLITE_OK ||
                             sqlite_vyx::UseFiles() != SQLITE_OK)) {
        (void)std::fputs("sqlite_vyx: SQLite does not start over the library\n", stderr);
        return 1;
    }
    try {
        int64_t total = 0;
        const uint64_t sum =
            sqlite_vyx::Work(options.file, options.rows, [&](const char *part, int64_t microseconds) {
                std::printf("%-12s %8.1f ms\n", part, static_cast<double>(microseconds) / 1000);
                total += microseconds;
            });
        std::printf("%-12s %8.1f ms\nsum %016" PRIx64 "\n", "total", static_cast<double>(total) / 1000, sum);
    } catch (const std::exception &failure) {
        (void)std::fprintf(stderr, "sqlite_vyx: %s\n", failure.what());
        return 1;
    }
    return 0;
}
