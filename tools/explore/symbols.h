// Source lines of return addresses, by addr2line where it is there.
#ifndef VYX_EXPLORE_SYMBOLS_H_
#define VYX_EXPLORE_SYMBOLS_H_

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mapping.h"

namespace explore {

class Symbols {
  public:
    // Finds all frames of the records at once.
    explicit Symbols(const Mapping &mapping);
    // The caller's place: the first frame in code with known lines that is no header of the system's, or what comes
    // closest.
    std::string Place(const Record &record) const;
    // Every frame that is not the system's, innermost first, joined by "; ".
    std::string Stack(const Record &record) const;

  private:
    struct Line {
        std::string function;
        std::string file; // with the line; empty: not known
        bool own = false; // not the system's
    };
    using Key = std::pair<uint32_t, uint64_t>;

    void Resolve(uint32_t module, const std::set<uint64_t> &offsets);
    void ReadLines(uint32_t module, std::FILE *input);

    const Mapping &m_mapping;
    std::map<Key, Line> m_lines;
};

} // namespace explore

#endif
