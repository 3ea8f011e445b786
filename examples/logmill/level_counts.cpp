#include "level_counts.h"

#include <vyx/container.h>

namespace logmill {

LevelCounts::LevelCounts() {
    if (VYX_SimpleHashCreate(kLevels, &m_table) != VYX_OK)
        m_table = nullptr;
    for (size_t level = 0; level < kLevels && m_table != nullptr; ++level) {
        // The table only reads its keys.
        _VYX_ENTRY entry{const_cast<char *>(LevelName(static_cast<Level>(level))), &m_counts[level]};
        if (VYX_SimpleHashEnter(&entry, m_table) == VYX_OK)
            continue;
        (void)VYX_SimpleHashDestroy(m_table);
        m_table = nullptr;
    }
}

LevelCounts::~LevelCounts() {
    if (m_table != nullptr)
        (void)VYX_SimpleHashDestroy(m_table);
}

void LevelCounts::Count(Level level) {
    void *count = nullptr;
    if (VYX_SimpleHashFind(LevelName(level), &count, m_table) == VYX_OK)
        ++*static_cast<uint64_t *>(count);
}

uint64_t LevelCounts::Of(Level level) const {
    void *count = nullptr;
    if (VYX_SimpleHashFind(LevelName(level), &count, m_table) != VYX_OK)
        return 0;
    return *static_cast<const uint64_t *>(count);
}

} // namespace logmill
