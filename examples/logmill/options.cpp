#include "options.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <vyx/sys.h>

namespace logmill {

namespace {

constexpr char kUsage[] =
    "Usage: logmill collect [OPTION...]\n"
    "       logmill send [OPTION...] --port N FILE\n"
    "Collects the lines of text logs from many senders, worst lines first, into rotating log files.\n"
    "FILE may be - for standard input. Ctrl-C ends the collector; what has arrived is stored first.\n"
    "Log files are vyx_log_N.log; they can be read within a second or two after the next one is begun. The "
    "file\n"
    "that is being written is vyx_log_N_w.log; it keeps this name at the end, and can be read then.\n\n"
    "  -a, --address IP       where the collector is, IPv4 or IPv6 (default: 127.0.0.1)\n"
    "  -p, --port N           its port, 1-65535 (default of collect: a free one, which it prints)\n"
    "collect:\n"
    "  -d, --directory DIR    where the log files go (default: logmill-logs)\n"
    "  -s, --file-size BYTES  longest log file, 4096-1073741824 (default: 2097152)\n"
    "  -c, --connections N    senders served at a time, 1-256 (default: 32)\n"
    "send:\n"
    "  -n, --name NAME        under which the lines are stored: letters, digits, '.', '_', '-', at most 64\n"
    "                         (default: the file's name)\n"
    "  -h, --help             this text\n\n"
    "Exit status: 0 everything that was sent is stored, or the collector was ended; 1 not; 2 wrong usage.\n";

const option kOptions[] = {{"address", required_argument, nullptr, 'a'},
                           {"port", required_argument, nullptr, 'p'},
                           {"directory", required_argument, nullptr, 'd'},
                           {"file-size", required_argument, nullptr, 's'},
                           {"connections", required_argument, nullptr, 'c'},
                           {"name", required_argument, nullptr, 'n'},
                           {"help", no_argument, nullptr, 'h'},
                           {nullptr, 0, nullptr, 0}};

bool ParseNumber(const char *name, uint32_t minimum, uint32_t maximum, uint32_t &number) {
    const char *end = optarg + std::strlen(optarg);
    const auto [stop, error] = std::from_chars(optarg, end, number);
    if (error == std::errc() && stop == end && number >= minimum && number <= maximum)
        return true;
    VYX_OutputDebug("logmill: --%s must be a number from %u to %u, not '%s'", name, minimum, maximum, optarg);
    return false;
}

// False for a bad value, and for an unknown option, of which getopt_long has told already.
bool Take(int letter, Options &options) {
    switch (letter) {
    case 'a':
        options.address = optarg;
        return true;
    case 'p':
        return ParseNumber("port", 1, 65535, options.port);
    case 'd':
        options.directory = optarg;
        return true;
    case 's':
        return ParseNumber("file-size", 4096, 1 << 30, options.fileBytes);
    case 'c':
        return ParseNumber("connections", 1, 256, options.connections);
    case 'n':
        options.name = optarg;
        return true;
    default:
        return false;
    }
}

Command Wrong(const char *what) {
    if (what[0] != '\0')
        VYX_OutputDebug("logmill: %s", what);
    VYX_OutputDebug("Try 'logmill --help'.");
    return Command::Wrong;
}

// What a name may not contain becomes an underscore.
std::string NameOf(const std::string &file) {
    if (file == "-")
        return "stdin";
    std::string name = file.substr(file.rfind('/') + 1, 64);
    for (char &c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!plain && c != '.' && c != '-')
            c = '_';
    }
    return name;
}

Command Finish(const std::string &command, int argc, char **argv, Options &options) {
    if (command == "collect")
        return optind == argc ? Command::Collect : Wrong("collect takes options only");
    if (command != "send")
        return Wrong("the first argument must be 'collect' or 'send'");
    if (argc - optind != 1)
        return Wrong(argc == optind ? "which file?" : "one file at a time");
    if (options.port == 0)
        return Wrong("which port?");
    options.file = argv[optind];
    if (options.name.empty())
        options.name = NameOf(options.file);
    return NameOf(options.name) == options.name ? Command::Send
                                                : Wrong("--name has letters that it may not have");
}

} // namespace

Command ParseOptions(int argc, char **argv, Options &options) {
    const std::string command = argc > 1 && argv[1][0] != '-' ? argv[1] : "";
    if (!command.empty()) {
        --argc;
        ++argv;
    }
    for (int letter; (letter = getopt_long(argc, argv, "a:p:d:s:c:n:h", kOptions, nullptr)) != -1;) {
        if (letter == 'h')
            return std::fputs(kUsage, stdout) < 0 ? Command::Wrong : Command::Help;
        if (!Take(letter, options))
            return Wrong("");
    }
    return Finish(command, argc, argv, options);
}

} // namespace logmill
