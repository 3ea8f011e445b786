#include "options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <vyx/sys.h>

#include "batch.h"

namespace logmill {

namespace {

constexpr char kUsage[] =
    "Usage: logmill [OPTION...] FILE\n"
    "Counts the lines of a text log by level word and first field, with several threads.\n"
    "FILE may be - for standard input.\n\n"
    "  -w, --workers N    threads that classify lines, 1-256 (default: the processors)\n"
    "  -b, --buffer N     batches between the reader and the workers, 1-1024 (default: 16)\n"
    "      --batch BYTES  text handed over at a time, 1-4194304 (default: 65536)\n"
    "  -h, --help         this text\n\n"
    "Exit status: 0 every line that was read was counted, 1 not, or the file cannot be read, 2 wrong "
    "usage.\n";

const option kOptions[] = {{"workers", required_argument, nullptr, 'w'},
                           {"buffer", required_argument, nullptr, 'b'},
                           {"batch", required_argument, nullptr, 'B'},
                           {"help", no_argument, nullptr, 'h'},
                           {nullptr, 0, nullptr, 0}};

bool ParseNumber(const char *name, const char *text, uint32_t maximum, uint32_t &number) {
    const char *end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    if (error == std::errc() && stop == end && number >= 1 && number <= maximum)
        return true;
    VYX_OutputDebug("logmill: --%s must be a number from 1 to %u, not '%s'", name, maximum, text);
    return false;
}

Parsed Wrong() {
    VYX_OutputDebug("Try 'logmill --help'.");
    return Parsed::Wrong;
}

} // namespace

Parsed ParseOptions(int argc, char **argv, Options &options) {
    for (int letter; (letter = getopt_long(argc, argv, "w:b:h", kOptions, nullptr)) != -1;) {
        bool good = false;
        if (letter == 'w')
            good = ParseNumber("workers", optarg, 256, options.workers);
        else if (letter == 'b')
            good = ParseNumber("buffer", optarg, 1024, options.buffer);
        else if (letter == 'B')
            good = ParseNumber("batch", optarg, kLongestLine, options.batchBytes);
        else if (letter == 'h')
            return std::fputs(kUsage, stdout) < 0 ? Parsed::Wrong : Parsed::Help;
        if (!good)
            return Wrong(); // getopt_long has said why if the option itself is unknown
    }
    if (argc - optind != 1) {
        VYX_OutputDebug(argc == optind ? "logmill: which file?" : "logmill: one file at a time");
        return Wrong();
    }
    options.file = argv[optind];
    if (options.workers == 0)
        options.workers = static_cast<uint32_t>(VYX_GetCPUNumber());
    return Parsed::Run;
}

} // namespace logmill
