// What the log tests share: writing lines and reading what was logged.
#ifndef VYX_TESTS_LOG_SUPPORT_H
#define VYX_TESTS_LOG_SUPPORT_H

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/support.h"
#include "support/temp_dir.h"
#include <vyx/log.h>

namespace log_support {

using Strings = std::vector<std::string>;

constexpr auto kConsole = VYX_LOG_TARGET_CONSOLE;
constexpr auto kDebug = VYX_LOG_TARGET_DEBUG;
constexpr auto kFile = VYX_LOG_TARGET_FILE;

// The log files of a folder in the order of their numbers. A missing folder has none.
inline Strings Names(const std::string &folder) {
    std::map<int, std::string> names;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename();
        EXPECT_TRUE(names.emplace(std::atoi(name.c_str() + sizeof "vyx_log_" - 1), name).second) << name;
    }
    Strings sorted;
    for (const auto &[iNumber, name] : names)
        sorted.push_back(name);
    return sorted;
}

// The text of all files, whose modes let nobody but the superuser read them.
inline std::string AllLogText(const std::string &folder) {
    std::string text;
    for (const std::string &name : Names(folder)) {
        std::filesystem::permissions(folder + "/" + name, std::filesystem::perms::owner_read,
                                     std::filesystem::perm_options::add);
        text += support::ReadFile(folder + "/" + name);
    }
    return text;
}

// The texts of a log's lines, without headers and ends. A line that does not begin with a header or end in carriage
// return and line feed is a failure.
inline Strings Lines(const std::string &text) {
    Strings lines;
    for (size_t nBegin = 0; nBegin < text.size();) {
        const size_t nEnd = text.find("\r\n", nBegin);
        const size_t nText = text.find("] ", text.find("][LINE:", nBegin));
        if (text[nBegin] != '[' || nEnd == std::string::npos || nText > nEnd) {
            ADD_FAILURE() << "torn: " << text.substr(nBegin, 100);
            return lines;
        }
        lines.push_back(text.substr(nText + 2, nEnd - nText - 2));
        nBegin = nEnd + 2;
    }
    return lines;
}

inline int32_t Write(const std::string &text) {
    return WriteLog(VYX_LOG_LEVEL_INF, "f", 1, "%s", text.c_str());
}

} // namespace log_support

#endif
