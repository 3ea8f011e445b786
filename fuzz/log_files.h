// The log's files, read back: whole lines, in the order in which they were taken.
#ifndef VYX_FUZZ_LOG_FILES_H_
#define VYX_FUZZ_LOG_FILES_H_

#include <map>
#include <vector>

#include "input.h"
#include "support/temp_dir.h"

namespace fuzz {

using LogFiles = std::map<int, std::filesystem::path>; // by their numbers

inline LogFiles FindLogFiles(const std::string &sFolder) {
    LogFiles files;
    for (const auto &entry : std::filesystem::directory_iterator(sFolder)) {
        int iNumber = 0;
        REQUIRE(std::sscanf(entry.path().filename().c_str(), "vyx_log_%d", &iNumber) == 1);
        files[iNumber] = entry.path();
    }
    return files;
}

// The numbers follow each other; the file that is being written has a name of its own. Each line is there once, with zeros for the
// digits of its time. A file ends exactly before a line with which it would be longer than the limit; 0 is none.
inline void Check(const LogFiles &files, const std::vector<std::string> &lines, size_t nLimit) {
    auto itLine = lines.begin();
    for (const auto &[iNumber, path] : files) {
        const bool bWorking = iNumber == files.rbegin()->first;
        REQUIRE(path.filename() == "vyx_log_" + std::to_string(iNumber) + (bWorking ? "_w.log" : ".log"));
        REQUIRE(iNumber == files.begin()->first || files.count(iNumber - 1) != 0);
        std::filesystem::permissions(path, std::filesystem::perms::owner_read);
        const std::string sContent = support::ReadFile(path);
        size_t nAt = 0;
        for (; nAt < sContent.size(); nAt += itLine++->size()) {
            REQUIRE(itLine != lines.end());
            std::string sLine = sContent.substr(nAt, itLine->size());
            const auto itTimeEnd =
                sLine.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(sLine.size(), 25));
            std::replace_if(
                sLine.begin(), itTimeEnd, [](char c) { return c >= '0' && c <= '9'; }, '0');
            REQUIRE(sLine == *itLine);
            REQUIRE(nAt == 0 || nLimit == 0 || nAt + itLine->size() <= nLimit);
        }
        REQUIRE(nAt > 0 && (itLine == lines.end() || nAt + itLine->size() > nLimit));
    }
    REQUIRE(itLine == lines.end());
}

} // namespace fuzz

#endif
