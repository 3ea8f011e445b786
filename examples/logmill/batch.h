// What the reader hands to a worker.
#ifndef LOGMILL_BATCH_H
#define LOGMILL_BATCH_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace logmill {

// The longest line that is kept whole, in bytes with its line feed. It bounds the memory that a file without
// line feeds takes; of a longer line the rest is counted but not looked at.
constexpr size_t kLongestLine = 4 * 1024 * 1024;

struct Batch {
    std::string text;     // whole lines with their line feeds; only the file's last line may lack its own
    uint64_t skipped = 0; // bytes left out of the last line, before its last two
};

} // namespace logmill

#endif
