// The command line.
#ifndef LOGMILL_OPTIONS_H
#define LOGMILL_OPTIONS_H

#include <cstdint>
#include <string>

namespace logmill {

struct Options {
    std::string file;            // "-" for standard input
    uint32_t workers = 0;        // threads that classify; 0 until parsed, then the processors if not given
    uint32_t buffer = 16;        // batches between the reader and the workers
    uint32_t batchBytes = 65536; // text handed over at a time; a batch holds at least one line
};

enum class Parsed { Run, Help, Wrong };

// Fills options. For Help the usage is on standard output, for Wrong what is wrong is on standard error.
Parsed ParseOptions(int argc, char **argv, Options &options);

} // namespace logmill

#endif
