// What kind of line a line is: its level word.
#ifndef LOGMILL_CLASSIFIER_H
#define LOGMILL_CLASSIFIER_H

#include <cstddef>
#include <string_view>

namespace logmill {

enum class Level : unsigned char { Fatal, Error, Warning, Notice, Info, Debug, None };
constexpr size_t kLevels = 7;

// The name under which the summary shows a level. The worst level is the lowest.
const char *LevelName(Level level);

// The level of a line is that of its first level word, in whatever case: "fatal", "err", "warning" and their
// kin. A word is made of letters, digits, underscores and bytes above 127, so "errors" is another word.
Level FindLevel(std::string_view line);

} // namespace logmill

#endif
