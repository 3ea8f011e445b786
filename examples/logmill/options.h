// The command line.
#ifndef LOGMILL_OPTIONS_H
#define LOGMILL_OPTIONS_H

#include <cstdint>
#include <string>

namespace logmill {

enum class Command { Collect, Send, Help, Wrong };

struct Options {
    std::string address = "127.0.0.1"; // IPv4 or IPv6
    uint32_t port = 0;                 // collecting: 0 takes a free one
    // Collecting.
    std::string directory = "logmill-logs";
    uint32_t fileBytes = 2 * 1024 * 1024; // of one log file
    uint32_t connections = 32;            // senders served at a time
    // Sending.
    std::string file; // "-" for standard input
    std::string name; // under which the lines are stored
};

// Fills options. For Help the usage is on standard output, for Wrong what is wrong is on standard error.
Command ParseOptions(int argc, char **argv, Options &options);

} // namespace logmill

#endif
