#include "summary.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <numeric>
#include <utility>
#include <vector>

namespace logmill {

namespace {

constexpr size_t kTopFields = 5;

// As it may be shown on a terminal: control characters become question marks.
std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 127; }, '?');
    return text;
}

void PrintLevels(const Counts &counts) {
    std::printf("\nlines by level word\n");
    for (size_t level = 0; level < kLevels; ++level)
        std::printf("  %-12s %12" PRIu64 "\n", LevelName(static_cast<Level>(level)), counts.levels[level]);
}

void PrintFields(const Counts &counts) {
    using Entry = std::pair<std::string, uint64_t>;
    std::vector<Entry> top(std::min(kTopFields, counts.fields.size()));
    const auto moreLines = [](const auto &a, const auto &b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    };
    std::partial_sort_copy(counts.fields.begin(), counts.fields.end(), top.begin(), top.end(), moreLines);
    std::printf("\nlines by first field (%zu different)\n", counts.fields.size());
    for (const auto &[field, count] : top)
        std::printf("  %-12s %12" PRIu64 "\n", Printable(field).c_str(), count);
    if (counts.otherFields != 0)
        std::printf("  %-12s %12" PRIu64 "   (fields beyond the first %zu)\n", "others", counts.otherFields,
                    Counts::kMaxFields);
    if (counts.blank != 0)
        std::printf("  %-12s %12" PRIu64 "\n", "(blank line)", counts.blank);
}

void PrintSpeed(const Result &result) {
    const double seconds = static_cast<double>(std::max<int64_t>(result.microseconds, 1)) / 1e6;
    std::printf(
        "\ntime         %.6f s, %.0f lines/s, %.1f MB/s; %" PRIu32 " of %" PRIu32 " workers had work\n",
        seconds, static_cast<double>(result.counted.lines) / seconds,
        static_cast<double>(result.counted.bytes) / seconds / 1e6, result.working, result.options.workers);
}

// Each line has one level, and one first field or none: three more ways to count the lines.
bool AllAgree(const ReadCounts &read, const Counts &counted) {
    const uint64_t byLevel = std::accumulate(counted.levels.begin(), counted.levels.end(), uint64_t{0});
    uint64_t byField = counted.blank + counted.otherFields;
    for (const auto &[field, count] : counted.fields)
        byField += count;
    return read.bytes == counted.bytes && read.lines == counted.lines && read.lines == byLevel &&
           read.lines == byField;
}

} // namespace

bool PrintSummary(const Result &result) {
    const Counts &counted = result.counted;
    const char *file = result.options.file == "-" ? "standard input" : result.options.file.c_str();
    std::printf("%s\n\nlines        %" PRIu64 "\nbytes        %" PRIu64 "\nlongest      %" PRIu64 "\n", file,
                counted.lines, counted.bytes, counted.longest);
    if (counted.cut != 0)
        std::printf("cut          %" PRIu64 "   (lines looked at only as far as %zu bytes)\n", counted.cut,
                    kLongestLine);
    PrintLevels(counted);
    PrintFields(counted);
    PrintSpeed(result);
    const bool agree = AllAgree(result.read, counted);
    std::printf("check        lines %" PRIu64 " read, %" PRIu64 " counted; bytes %" PRIu64 " read, %" PRIu64
                " counted: %s\n",
                result.read.lines, counted.lines, result.read.bytes, counted.bytes,
                agree ? "nothing was lost" : "THEY DIFFER");
    return agree;
}

} // namespace logmill
