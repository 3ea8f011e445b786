#include "classifier.h"

#include <algorithm>
#include <array>

namespace logmill {

namespace {

struct LevelWord {
    std::string_view word;
    Level level;
};

constexpr LevelWord kLevelWords[] = {
    {"alert", Level::Fatal},     {"crit", Level::Fatal},  {"critical", Level::Fatal},
    {"emerg", Level::Fatal},     {"fatal", Level::Fatal}, {"panic", Level::Fatal},
    {"err", Level::Error},       {"error", Level::Error}, {"warn", Level::Warning},
    {"notice", Level::Notice},   {"inf", Level::Info},    {"info", Level::Info},
    {"dbg", Level::Debug},       {"debug", Level::Debug}, {"trace", Level::Debug},
    {"warning", Level::Warning},
};
constexpr size_t kShortestWord = 3;
constexpr size_t kLongestWord = 8;

// For each byte: its lower case if it belongs to a word, otherwise 0.
constexpr std::array<char, 256> MakeWordTable() {
    std::array<char, 256> table{};
    for (size_t byte = 0; byte < table.size(); ++byte) {
        const bool upper = byte >= 'A' && byte <= 'Z';
        const bool word = upper || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
                          byte == '_' || byte >= 128;
        table[byte] = static_cast<char>(word ? byte + (upper ? 'a' - 'A' : 0) : 0);
    }
    return table;
}

constexpr std::array<char, 256> kWordTable = MakeWordTable();

char WordChar(char c) {
    return kWordTable[static_cast<unsigned char>(c)];
}

Level LevelOf(std::string_view word) {
    if (word.size() < kShortestWord || word.size() > kLongestWord)
        return Level::None;
    std::array<char, kLongestWord> lower;
    std::transform(word.begin(), word.end(), lower.begin(), WordChar);
    const std::string_view wanted(lower.data(), word.size());
    for (const LevelWord &known : kLevelWords)
        if (known.word == wanted)
            return known.level;
    return Level::None;
}

} // namespace

const char *LevelName(Level level) {
    constexpr const char *kNames[kLevels] = {"fatal", "error", "warning", "notice", "info", "debug", "none"};
    return kNames[static_cast<size_t>(level)];
}

Level FindLevel(std::string_view line) {
    const auto isWord = [](char c) { return WordChar(c) != 0; };
    for (auto at = line.begin(); (at = std::find_if(at, line.end(), isWord)) != line.end();) {
        const auto end = std::find_if_not(at, line.end(), isWord);
        const Level level =
            LevelOf(line.substr(static_cast<size_t>(at - line.begin()), static_cast<size_t>(end - at)));
        if (level != Level::None)
            return level;
        at = end;
    }
    return Level::None;
}

} // namespace logmill
