// What the log tests share: capturing the standard streams, and reading what was logged.
#ifndef VYX_TESTS_LOG_SUPPORT_H
#define VYX_TESTS_LOG_SUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "support/support.h"
#include "support/temp_dir.h"
#include <vyx/log.h>

namespace log_support {

using Strings = std::vector<std::string>;

constexpr auto kConsole = VYX_LOG_TARGET_CONSOLE;
constexpr auto kDebug = VYX_LOG_TARGET_DEBUG;
constexpr auto kFile = VYX_LOG_TARGET_FILE;
constexpr auto kErr = VYX_LOG_LEVEL_ERR;
constexpr auto kInf = VYX_LOG_LEVEL_INF;

// A standard stream into a file or a descriptor, for the length of a block.
class Capture {
  public:
    Capture(FILE *pStream, int iTarget) : m_pStream(pStream), m_iSaved(dup(fileno(pStream))) { Set(iTarget); }
    Capture(FILE *pStream, const std::string &path)
        : Capture(pStream, open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0600)) {
        m_path = path;
    }
    ~Capture() { Set(m_iSaved); }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    std::string Text() const {
        (void)std::fflush(m_pStream);
        return support::ReadFile(m_path);
    }

  private:
    // Takes the descriptor over.
    void Set(int iTarget) const {
        (void)std::fflush(m_pStream);
        (void)dup2(iTarget, fileno(m_pStream));
        (void)close(iTarget);
    }
    FILE *m_pStream;
    int m_iSaved;
    std::string m_path;
};

// A log file's text; its mode lets nobody but the superuser read it.
inline std::string LogText(const std::string &path) {
    (void)chmod(path.c_str(), 0600);
    return support::ReadFile(path);
}

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

inline std::string AllLogText(const std::string &folder) {
    std::string text;
    for (const std::string &name : Names(folder))
        text += LogText(folder + "/" + name);
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
    return WriteLog(kInf, "f", 1, "%s", text.c_str());
}

// Writes a line of nLength bytes, at least 49, header and line end included.
inline int32_t WriteLength(size_t nLength, char cFill = 'x') {
    return Write(
        std::string(nLength - (sizeof "[2026-11-21 09:21:26.042][INF][FILE:f][LINE:1] \r\n" - 1), cFill));
}

// Every test begins and ends with the service as a process has it at first, but for the number of the next file, which
// is kept.
class LogTest : public testing::Test {
  protected:
    ~LogTest() override {
        StopLogService(false);
        DisableTarget(kConsole);
        DisableTarget(kDebug);
        AdjustLogLevel(kInf);
    }
    int32_t On(log_services eTarget, uint32_t nLimit = 0, uint32_t nWrap = 0) const {
        return EnableTarget(eTarget, logs.c_str(), nLimit, nWrap);
    }
    // What is in the files, once all is written.
    Strings Logged() const {
        StopLogService(false);
        return Lines(AllLogText(logs));
    }
    support::TempDir dir;
    std::string logs = dir / "logs";
};

} // namespace log_support

#endif
