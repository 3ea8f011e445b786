// The example programs, run as their users run them, and the first programs of the README.
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/support.h"

namespace {

constexpr size_t kLongestLine = 4 * 1024 * 1024; // bytes of a line that the mill keeps
const std::string kMill = LOGMILL;

struct Outcome {
    int iStatus; // exit status, or -1 if a signal ended the program
    std::string out;

    // The first number after a key that starts a line, blanks before it aside; -1 if there is none.
    int64_t Number(const std::string &key) const {
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            const size_t nStart = line.find_first_not_of(' ');
            if (nStart == std::string::npos || line.compare(nStart, key.size(), key) != 0)
                continue;
            const size_t nNumber = line.find_first_not_of(' ', nStart + key.size());
            if (nNumber != std::string::npos && nNumber > nStart + key.size() && isdigit(line[nNumber]) != 0)
                return std::stoll(line.substr(nNumber));
        }
        return -1;
    }
};

// Runs a shell command; standard output and error together.
Outcome Shell(const std::string &command) {
    Outcome outcome{-1, ""};
    FILE *pPipe = popen(("( " + command + " ) 2>&1").c_str(), "r");
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, pPipe)) > 0;)
        outcome.out.append(block, n);
    const int iStatus = pclose(pPipe);
    if (WIFEXITED(iStatus))
        outcome.iStatus = WEXITSTATUS(iStatus);
    return outcome;
}

// A file of its own, gone at the end of the test.
class Mill : public testing::Test {
  protected:
    Mill() {
        const int iFd = mkstemp(m_path.data());
        EXPECT_NE(iFd, -1);
        close(iFd);
    }
    ~Mill() override { unlink(m_path.c_str()); }

    void Write(const std::string &content) { std::ofstream(m_path, std::ios::binary) << content; }
    Outcome Grind(const std::string &options = "") { return Shell(kMill + " " + options + " " + m_path); }

    std::string m_path = testing::TempDir() + "vyx_mill_XXXXXX";
};

TEST_F(Mill, EdgeFiles) {
    using namespace std::string_literals;
    const struct {
        const char *name;
        std::string content;
        int64_t lines, longest, blank; // blank -1: the summary does not mention blank lines
        const char *level;             // all lines have this one
    } cases[] = {
        {"empty", "", 0, 0, -1, "none"},
        {"one feed", "\n", 1, 0, 1, "none"},
        {"no final feed", "one\nthree", 2, 5, -1, "none"},
        {"carriage returns", "one\r\nt\rwo\r\n\r\n", 3, 4, 1, "none"},
        {"return at the very end", "one\r", 1, 4, -1, "none"},
        {"zero bytes", "\0\0 error\0\n\0"s, 2, 9, -1, nullptr},
        {"blanks", "  \t \n \terror here\n", 2, 12, 1, nullptr},
        {"errors", "Error:\n[ERR]\nx error, fatal\nerror-info\nan \"error\"", 5, 14, -1, "error"},
        {"near words",
         "errors\nerror_1\nxerror\nerr0r\ner\n\xC3\xBC"
         "error\nwarningfatal",
         7, 12, -1, "none"},
        {"warnings", "WARN\nWarning\n", 2, 7, -1, "warning"},
        {"fatal", "alert\ncrit\ncritical\nemerg\nfatal\npanic", 6, 8, -1, "fatal"},
        {"debug", "dbg\ndebug\ntrace", 3, 5, -1, "debug"},
        {"info", "inf\ninfo", 2, 4, -1, "info"},
        {"notice", "notice", 1, 6, -1, "notice"},
    };
    for (const auto &test : cases) {
        for (const char *szOptions : {"", "--batch 1", "--batch 3 -w 3 -b 1"}) {
            SCOPED_TRACE(std::string(test.name) + " " + szOptions);
            Write(test.content);
            const Outcome outcome = Grind(szOptions);
            EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
            EXPECT_EQ(outcome.Number("lines"), test.lines);
            EXPECT_EQ(outcome.Number("bytes"), static_cast<int64_t>(test.content.size()));
            EXPECT_EQ(outcome.Number("longest"), test.longest);
            EXPECT_EQ(outcome.Number("(blank line)"), test.blank);
            EXPECT_EQ(outcome.Number(test.level != nullptr ? test.level : "error"),
                      test.level != nullptr ? test.lines : 1);
        }
    }
}

TEST_F(Mill, LongLines) {
    const auto isCut = [this](size_t nBefore, const char *szEnd, bool bCut) {
        SCOPED_TRACE(std::to_string(nBefore) + szEnd);
        const std::string line = std::string(nBefore, 'x') + " error";
        Write("first info\n" + line + szEnd + "last debug\n");
        const Outcome outcome = Grind();
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        EXPECT_EQ(outcome.Number("lines"), 3);
        EXPECT_EQ(outcome.Number("bytes"), static_cast<int64_t>(22 + line.size() + strlen(szEnd)));
        EXPECT_EQ(outcome.Number("longest"), static_cast<int64_t>(line.size()));
        EXPECT_EQ(outcome.Number("cut"), bCut ? 1 : -1);
        EXPECT_EQ(outcome.Number("error"), bCut ? 0 : 1);
        EXPECT_EQ(outcome.Number("info") + outcome.Number("debug"), 2) << "the lines around it are whole";
    };
    isCut(3 << 20, "\n", false);
    isCut(3 << 20, "\r\n", false);
    isCut(kLongestLine - 7, "\n", false); // with its feed exactly as long as is kept
    isCut(kLongestLine + 100000, "\n", true);
    isCut(kLongestLine + 100000, "\r\n", true);
    Write("a\n" + std::string(kLongestLine + 100000, 'x'));
    const Outcome outcome = Grind();
    EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
    EXPECT_EQ(outcome.Number("longest"), static_cast<int64_t>(kLongestLine + 100000))
        << "without a last feed";
}

// 60000 lines: every third says error, every fifth is a warning unless it is an error; ten first fields.
TEST_F(Mill, CountsWhatWasWritten) {
    std::string content;
    for (int i = 0; i < 60000; ++i) {
        const char *szWord = i % 3 == 0 ? "error" : i % 5 == 0 ? "Warning" : "words";
        content += "field" + std::to_string(i % 10) + " [" + szWord + "] " +
                   std::string(static_cast<size_t>(i % 50), '.') + "\n";
    }
    Write(content);
    const Outcome counted = Shell("wc -lc " + m_path);
    std::istringstream words(counted.out);
    int64_t iLines = 0;
    int64_t iBytes = 0;
    words >> iLines >> iBytes;
    ASSERT_EQ(iLines, 60000);
    for (const char *szOptions : {"", "-w 1 -b 1", "-w 7 -b 2 --batch 1000", "-w 2 -b 64 --batch 200",
                                  "--workers=3 --buffer=3 --batch=4194304"}) {
        SCOPED_TRACE(szOptions);
        const Outcome outcome = Grind(szOptions);
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        EXPECT_EQ(outcome.Number("lines"), iLines);
        EXPECT_EQ(outcome.Number("bytes"), iBytes);
        EXPECT_EQ(outcome.Number("error"), 20000);
        EXPECT_EQ(outcome.Number("warning"), 8000);
        EXPECT_EQ(outcome.Number("none"), 32000);
        EXPECT_EQ(outcome.Number("field3"), 6000);
        EXPECT_EQ(outcome.Number("check        lines"), iLines);
    }
}

TEST_F(Mill, ManyDifferentFieldsDoNotFillTheMemory) {
    std::string content;
    for (int i = 0; i < 70000; ++i)
        content += std::to_string(i) + "\n";
    Write(content);
    const Outcome outcome = Grind("-w 1");
    EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
    EXPECT_EQ(outcome.Number("lines"), 70000);
    EXPECT_EQ(outcome.Number("others"), 70000 - 65536);
}

TEST_F(Mill, StandardInput) {
    for (const char *szFile : {"-", "/dev/stdin"}) {
        const Outcome outcome =
            Shell("{ echo one; sleep 0.1; printf 'an error'; } | " + kMill + " " + szFile);
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        EXPECT_EQ(outcome.Number("lines"), 2);
        EXPECT_EQ(outcome.Number("error"), 1);
    }
}

TEST_F(Mill, SaysWhatIsWrong) {
    Write("one\n");
    const struct {
        std::string arguments;
        int iStatus;
        const char *message;
    } cases[] = {
        {"", 2, "which file"},
        {"a b", 2, "one file"},
        {"-w 0 " + m_path, 2, "--workers must be a number from 1 to 256, not '0'"},
        {"-b 1x " + m_path, 2, "--buffer must"},
        {"--batch -1 " + m_path, 2, "--batch must"},
        {"--nonsense " + m_path, 2, "logmill --help"},
        {"--help", 0, "Usage: logmill"},
        {m_path + "_missing", 1, "_missing: No such file or directory"},
        {testing::TempDir(), 1, "Is a directory"},
        {"/proc/self/mem", 1, "/proc/self/mem: Input/output error"},
        {"- <&-", 1, "Bad file descriptor"},
        {m_path + " >/dev/full", 1, "cannot write the summary"},
    };
    for (const auto &test : cases) {
        const Outcome outcome = Shell(kMill + " " + test.arguments);
        EXPECT_EQ(outcome.iStatus, test.iStatus) << test.arguments;
        EXPECT_NE(outcome.out.find(test.message), std::string::npos) << test.arguments << "\n" << outcome.out;
    }
}

// Starts the mill on a file, with standard input from iInput and standard output to szOutput.
pid_t StartMill(const char *szFile, int iInput, const char *szOutput) {
    const pid_t iChild = fork();
    if (iChild != 0)
        return iChild;
    dup2(iInput, STDIN_FILENO);
    if (freopen(szOutput, "w", stdout) != nullptr)
        execl(LOGMILL, LOGMILL, szFile, nullptr);
    _exit(127);
}

// Whether it is at work: it has read far more than is read for starting a program.
bool HasReadMuch(pid_t iProcess) {
    std::ifstream io("/proc/" + std::to_string(iProcess) + "/io");
    std::string key;
    int64_t nRead = 0;
    return io >> key >> nRead && key == "rchar:" && nRead > (int64_t{64} << 20);
}

void ExpectInterruptible(pid_t iChild) {
    ASSERT_GT(iChild, 0);
    EXPECT_EQ(kill(iChild, SIGINT), 0);
    int iStatus = 0;
    if (!support::WaitUntil([&] { return waitpid(iChild, &iStatus, WNOHANG) != 0; })) {
        ADD_FAILURE() << "it goes on";
        kill(iChild, SIGKILL);
        waitpid(iChild, &iStatus, 0);
    }
    EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 1) << iStatus;
}

// A killed process would leave the names of its semaphores behind.
TEST_F(Mill, InterruptionEndsItInGoodOrder) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ASSERT_EQ(write(fds[1], "one\ntwo\n", 8), 8);
    pid_t iChild = StartMill("-", fds[0], m_path.c_str());
    EXPECT_TRUE(support::WaitUntil([&] {
        int iLeft = 8;
        return ioctl(fds[0], FIONREAD, &iLeft) == 0 && iLeft == 0;
    })) << "the mill has not read its input";
    ExpectInterruptible(iChild); // it waits for more
    EXPECT_EQ(Shell("cat " + m_path).Number("lines"), 2);
    iChild = StartMill("/dev/zero", fds[0], m_path.c_str());
    EXPECT_TRUE(support::WaitUntil([&] { return HasReadMuch(iChild); }));
    ExpectInterruptible(iChild); // it never waits
    close(fds[0]);
    close(fds[1]);
}

TEST(Hello, BothProgramsGreet) {
    for (const char *szProgram : {HELLO_C, HELLO_CPP}) {
        const Outcome outcome = Shell(szProgram);
        EXPECT_EQ(outcome.iStatus, 0);
        const std::string greeting = "Hello, world, on ";
        EXPECT_EQ(outcome.out.substr(0, greeting.size()), greeting);
        EXPECT_EQ(outcome.out.size(), greeting.size() + 24 + 1)
            << outcome.out; // 24 characters of time, a feed
    }
}

std::string ReadSource(const std::string &name) {
    std::ostringstream content;
    content << std::ifstream(SOURCE_DIR "/" + name).rdbuf();
    return content.str();
}

TEST(Readme, ShowsTheProgramsThatAreBuilt) {
    const std::string readme = ReadSource("README.md");
    for (const char *szKind : {"c", "cpp"}) {
        const std::string program = ReadSource(std::string("examples/hello/hello.") + szKind);
        ASSERT_FALSE(program.empty());
        EXPECT_NE(readme.find(std::string("\n```") + szKind + "\n" + program + "```\n"), std::string::npos)
            << "hello." << szKind;
    }
}

} // namespace
