// Lines by level word, in a hash table under the levels' names. For one thread at a time.
#ifndef LOGMILL_LEVEL_COUNTS_H
#define LOGMILL_LEVEL_COUNTS_H

#include <array>
#include <cstdint>

#include "classifier.h"

namespace logmill {

class LevelCounts {
  public:
    LevelCounts();
    ~LevelCounts();
    LevelCounts(const LevelCounts &) = delete;
    LevelCounts &operator=(const LevelCounts &) = delete;

    // Whether there was memory for the table.
    bool Usable() const { return m_table != nullptr; }

    void Count(Level level);
    uint64_t Of(Level level) const;

  private:
    void *m_table = nullptr;
    std::array<uint64_t, kLevels> m_counts{}; // the table leads to these
};

} // namespace logmill

#endif
