// What the workers count: each on its own, then merged.
#ifndef LOGMILL_COUNTS_H
#define LOGMILL_COUNTS_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "batch.h"
#include "classifier.h"

namespace logmill {

class Counts {
  public:
    // First fields are told apart by their first so many bytes, and only so many different ones are kept, so
    // that a log whose every line begins differently cannot fill the memory.
    static constexpr size_t kFieldBytes = 64;
    static constexpr size_t kMaxFields = 65536;

    // Not copyable: remembers a place in its own map.
    Counts() = default;
    Counts(const Counts &) = delete;
    Counts &operator=(const Counts &) = delete;

    void Add(const Batch &batch);
    void Merge(const Counts &other);

    uint64_t lines = 0;
    uint64_t bytes = 0;                                  // with the line ends
    uint64_t blank = 0;                                  // lines without a first field
    uint64_t cut = 0;                                    // lines longer than kLongestLine
    uint64_t longest = 0;                                // bytes of the longest line, without its end
    std::array<uint64_t, kLevels> levels{};              // lines of each Level
    std::map<std::string, uint64_t, std::less<>> fields; // lines with each first field
    uint64_t otherFields = 0;                            // lines whose first field found no room in `fields`

  private:
    void AddLine(std::string_view line, uint64_t skipped);
    void AddField(std::string_view field, uint64_t count);

    decltype(fields)::iterator m_last = fields.end(); // the field met last; logs often repeat it
};

} // namespace logmill

#endif
