// What is shown: tables, whatever they are printed as.
#ifndef VYX_STAT_TABLES_H_
#define VYX_STAT_TABLES_H_

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "memory.h"

namespace inspect {

struct None {}; // there is no such thing here
// Nothing at all: not known.
using Cell = std::variant<std::monostate, None, int64_t, std::string>;

enum class Metric : uint8_t {
    None,
    Label,   // tells the rows of a table apart
    Gauge,   // goes up and down
    Counter, // goes up only
};

struct Column {
    const char *key;
    Metric metric;
    const char *help;
};

struct Table {
    const char *key;  // "pools"
    const char *item; // "pool": begins the names of its metrics
    bool single;      // it has one row, always
    std::vector<Column> columns;
    std::vector<std::vector<Cell>> rows;
    bool complete = true; // false: there may be more rows
};

// Of one process.
struct Report {
    int64_t number; // 0 for a core
    std::string name;
    std::string program;
    std::string library;
    std::vector<Table> tables;
};

// Throws what is to be told to the user.
Report Collect(Memory &memory);

} // namespace inspect

#endif
