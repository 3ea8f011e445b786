// What the log tests share: capturing the standard streams, and reading what was logged.
#ifndef VYX_TESTS_LOG_SUPPORT_H
#define VYX_TESTS_LOG_SUPPORT_H

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "support/temp_dir.h"
#include <vyx/log.h>

namespace log_support {

constexpr auto kConsole = VYX_LOG_TARGET_CONSOLE;
constexpr auto kDebug = VYX_LOG_TARGET_DEBUG;
constexpr auto kFile = VYX_LOG_TARGET_FILE;
constexpr auto kErr = VYX_LOG_LEVEL_ERR;
constexpr auto kDbg = VYX_LOG_LEVEL_DBG;
constexpr auto kInf = VYX_LOG_LEVEL_INF;

// Puts a descriptor in the place of a standard stream's for the length of a block.
class Redirect {
  public:
    Redirect(FILE *pStream, int iTarget) : m_pStream(pStream), m_iSaved(dup(fileno(pStream))) {
        (void)std::fflush(m_pStream);
        (void)dup2(iTarget, fileno(m_pStream));
    }
    ~Redirect() {
        (void)std::fflush(m_pStream);
        (void)dup2(m_iSaved, fileno(m_pStream));
        (void)close(m_iSaved);
    }
    Redirect(const Redirect &) = delete;
    Redirect &operator=(const Redirect &) = delete;

  private:
    FILE *m_pStream;
    int m_iSaved;
};

// A standard stream into a file.
class Capture {
  public:
    Capture(FILE *pStream, std::string path)
        : m_pStream(pStream), m_path(std::move(path)),
          m_iFile(open(m_path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND, 0600)),
          m_redirect(pStream, m_iFile) {}
    ~Capture() { (void)close(m_iFile); }
    std::string Text() const {
        (void)std::fflush(m_pStream);
        return support::ReadFile(m_path);
    }

  private:
    FILE *m_pStream;
    std::string m_path;
    int m_iFile;
    Redirect m_redirect;
};

// A log file's text; its mode lets nobody but the superuser read it.
inline std::string LogText(const std::string &path) {
    (void)chmod(path.c_str(), 0600);
    return support::ReadFile(path);
}

// Names in a folder, sorted.
inline std::vector<std::string> Names(const std::string &folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// All log files of a folder, one behind the other by number.
inline std::string AllLogText(const std::string &folder) {
    std::map<int, std::string> names;
    for (const std::string &name : Names(folder))
        names[std::atoi(name.c_str() + sizeof "vyx_log_" - 1)] = name;
    std::string text;
    for (const auto &[iNumber, name] : names)
        text += LogText(folder + "/" + name);
    return text;
}

// The lines of a log's text without their ends. A line that does not begin with a header or end in carriage return
// and line feed is a failure.
inline std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t nBegin = 0; nBegin < text.size();) {
        const size_t nEnd = text.find("\r\n", nBegin);
        if (nEnd == std::string::npos || text[nBegin] != '[') {
            ADD_FAILURE() << "torn: " << text.substr(nBegin, 100);
            return lines;
        }
        lines.push_back(text.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 2;
    }
    return lines;
}

// What follows a line's header.
inline std::string TextOf(const std::string &line) {
    const size_t nLine = line.find("][LINE:");
    return line.substr(std::min(line.size(), line.find("] ", nLine + 1) + 2));
}

// Writes a line of nLength bytes, at least 49, header and line end included, whose text repeats `fill`.
inline int32_t WriteLength(size_t nLength, char fill = 'x') {
    const size_t nHeader = sizeof "[2026-11-21 09:21:26.042][INF][FILE:f][LINE:1] " - 1;
    return WriteLog(kInf, "f", 1, "%s", std::string(nLength - nHeader - 2, fill).c_str());
}

// The service as a process begins with it but for the number of the next file, which is kept: tests may run in any order.
inline void ResetService() {
    StopLogService(false);
    DisableTarget(kConsole);
    DisableTarget(kDebug);
    AdjustLogLevel(kInf);
}

class LogTest : public testing::Test {
  protected:
    ~LogTest() override { ResetService(); }
    support::TempDir dir;
};

} // namespace log_support

#endif
