// What is printed at the end.
#ifndef LOGMILL_SUMMARY_H
#define LOGMILL_SUMMARY_H

#include "counts.h"
#include "options.h"
#include "reader.h"

namespace logmill {

struct Result {
    const Options &options;
    const ReadCounts &read;
    const Counts &counted;
    int64_t microseconds; // from the start to the end of the last batch
    uint32_t working;     // workers that had something to do
};

// Prints the summary to standard output. True if every line and byte that was read was also counted, in every
// of the ways in which lines are counted.
bool PrintSummary(const Result &result);

} // namespace logmill

#endif
