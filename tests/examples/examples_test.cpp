// The example programs, run as their users run them.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/support.h"
#include "support/temp_dir.h"

namespace {

const std::string kMill = LOGMILL;

struct Outcome {
    int iStatus; // exit status, or -1 if a signal ended the program
    std::string out;
};

// The number behind a word that starts a line; -1 if there is none.
int64_t NumberAfter(const std::string &key, const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string word;
        int64_t iNumber = 0;
        if (fields >> word >> iNumber && word == key)
            return iNumber;
    }
    return -1;
}

std::string ReadToTheEnd(FILE *pFile) {
    std::string text;
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, pFile)) > 0;)
        text.append(block, n);
    return text;
}

// Runs a shell command; standard output and error together.
Outcome Shell(const std::string &command) {
    FILE *pPipe = popen(("( " + command + " ) 2>&1").c_str(), "re");
    const std::string out = ReadToTheEnd(pPipe);
    const int iStatus = pclose(pPipe);
    return {WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1, out};
}

// A collector with a directory of its own.
class Mill : public testing::Test {
  protected:
    ~Mill() override {
        if (m_iCollector > 0)
            kill(m_iCollector, SIGKILL);
        if (m_pSaid != nullptr)
            pclose(m_pSaid);
    }

    std::string Path(const std::string &name) const { return m_dir / name; }
    void Write(const std::string &name, const std::string &content) const {
        support::WriteFile(Path(name), content);
    }
    std::string Read(const std::string &name) const { return support::ReadFile(Path(name)); }

    // Starts it and waits until it tells its port.
    void StartCollector(const std::string &options = "") {
        m_pSaid = popen(
            ("umask 027; echo $$; exec " + kMill + " collect -d " + Path("logs") + " " + options).c_str(),
            "re");
        unsigned nPort = 0;
        ASSERT_EQ(fscanf(m_pSaid, "%d collecting at %*s port %u into", &m_iCollector, &nPort), 2);
        m_port = std::to_string(nPort);
    }
    std::string SendCommand(const std::string &name) const {
        return kMill + " send -p " + m_port + " -n " + name + " " + Path(name);
    }
    // Interrupts it as Ctrl-C does; what it says at its end.
    std::string EndCollector() {
        EXPECT_EQ(kill(m_iCollector, SIGINT), 0);
        m_iCollector = 0;
        const std::string said = ReadToTheEnd(m_pSaid);
        EXPECT_EQ(pclose(m_pSaid), 0);
        m_pSaid = nullptr;
        return said;
    }
    // Puts the lines of the log files back together, into out/NAME for each sender.
    void Rebuild() {
        const Outcome outcome = Shell(
            "mkdir " + Path("out") + "; cd " + Path("logs") + "; ls | sort -t_ -k3n | LC_ALL=C xargs cat | " +
            "LC_ALL=C awk -v directory=" + Path("out") + " -f " SOURCE_DIR "/examples/logmill/check.awk");
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
    }

    // The rights of the log files of that form, each that occurs on a line of its own.
    std::string ModesOf(const std::string &form) const {
        return Shell("cd " + Path("logs") + " && stat -c %a " + form + " | sort -u").out;
    }

    support::TempDir m_dir;
    pid_t m_iCollector = 0;
    FILE *m_pSaid = nullptr; // its standard output
    std::string m_port;
};

// As a sender's file comes back: with a last line end, and as text.
std::string Stored(std::string content) {
    std::replace(content.begin(), content.end(), '\0', '?');
    if (!content.empty() && content.back() != '\n')
        content += '\n';
    return content;
}

TEST_F(Mill, StoresWhateverLinesThereAre) {
    using namespace std::string_literals;
    const std::string cases[] = {
        "",
        "\n",
        "\n\n\n",
        "one\nthree",
        "one\r\nt\rwo\r\n\r\n",
        "\0\0 error\0\n\0"s,
        "[2026-01-01 00:00:00.000][ERR][FILE:x][LINE:7] no header\n",
        "%s %n %d\n\xFF\xFE\n",
        std::string(1899, 'a') + "\n" + std::string(1900, 'b') + "\n" + std::string(1901, 'c') + "\n",
        std::string(3800, 'd') + "\n" + std::string(3801, 'e') + " error",
        std::string(3800, 'f'),
        std::string(1000000, 'g') + "\nerror\n",
    };
    StartCollector();
    int64_t iLines = 0;
    for (size_t n = 0; n < std::size(cases); ++n) {
        const std::string name = "case" + std::to_string(n);
        Write(name, cases[n]);
        const std::string stored = Stored(cases[n]);
        const auto iOwn = std::count(stored.begin(), stored.end(), '\n');
        const Outcome outcome = Shell(SendCommand(name));
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        EXPECT_EQ(outcome.out,
                  name + ": " + std::to_string(iOwn) + " lines sent, " + std::to_string(iOwn) + " stored\n");
        iLines += iOwn;
    }
    const std::string said = EndCollector();
    EXPECT_EQ(NumberAfter("lines", said), iLines);
    EXPECT_EQ(NumberAfter("senders", said), static_cast<int64_t>(std::size(cases)));
    EXPECT_EQ(NumberAfter("error", said), 3) << "the word at the end of a long line is not looked for";
    Rebuild();
    for (size_t n = 0; n < std::size(cases); ++n)
        EXPECT_TRUE(Read("out/case" + std::to_string(n)) == Stored(cases[n])) << n;
}

// A line in three says error, one in five of the others is a warning.
TEST_F(Mill, ManySendersAtOnceLoseNothingAndKeepTheirOrder) {
    constexpr int kSenders = 12;
    constexpr int kLines = 6000;
    StartCollector("--connections 5 --file-size 65536"); // so that some wait for their turn
    std::string command;
    for (int iSender = 0; iSender < kSenders; ++iSender) {
        const std::string name = "sender" + std::to_string(iSender);
        std::string content;
        for (int i = 0; i < kLines; ++i) {
            const char *szWord = i % 3 == 0 ? "error" : i % 5 == 0 ? "Warning" : "words";
            content += std::to_string(i) + " [" + szWord + "] " +
                       std::string(static_cast<size_t>((i + iSender) % 90), '.') + "\n";
        }
        Write(name, content);
        command += SendCommand(name) + " || echo failed & ";
    }
    const Outcome outcome = Shell(command + "wait");
    EXPECT_EQ(outcome.out.find("failed"), std::string::npos) << outcome.out;
    EXPECT_TRUE(support::WaitUntil([&] { return ModesOf("vyx_log_*[0-9].log") == "640\n"; }));
    EXPECT_TRUE(support::WaitUntil([&] { return ModesOf("vyx_log_*_w.log") == "200\n"; }))
        << "the one in use";
    const std::string said = EndCollector();
    EXPECT_EQ(ModesOf("*"), "640\n");
    EXPECT_EQ(NumberAfter("lines", said), kSenders * kLines);
    EXPECT_EQ(NumberAfter("error", said), kSenders * 2000);
    EXPECT_EQ(NumberAfter("warning", said), kSenders * 800);
    EXPECT_EQ(NumberAfter("none", said), kSenders * 3200);
    EXPECT_GT(NumberAfter("files", said), 50);
    Rebuild();
    for (int iSender = 0; iSender < kSenders; ++iSender) {
        const std::string name = "sender" + std::to_string(iSender);
        EXPECT_TRUE(Read("out/" + name) == Read(name)) << name;
    }
}

TEST_F(Mill, InterruptionKeepsWhatHasArrived) {
    StartCollector();
    FILE *pInput = popen((kMill + " send -p " + m_port + " -n s - >" + Path("said") + " 2>&1").c_str(), "we");
    ASSERT_NE(pInput, nullptr);
    setbuf(pInput, nullptr);
    fputs("one\ntwo\nth", pInput);
    const auto isStored = [&] { // two records of more than 50 bytes, in a file that nobody may read yet
        std::error_code error;
        const auto nSize = std::filesystem::file_size(Path("logs/vyx_log_1_w.log"), error);
        return !error && nSize > 100;
    };
    EXPECT_TRUE(support::WaitUntil(isStored));
    const std::string said = EndCollector();
    fputs("ree\n", pInput); // too late
    const int iStatus = pclose(pInput);
    EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 1);
    EXPECT_NE(Read("said").find("2 stored\nlogmill: not all lines are stored of s\n"), std::string::npos)
        << Read("said");
    EXPECT_EQ(NumberAfter("lines", said), 2);
    Rebuild();
    EXPECT_EQ(Read("out/s"), "one\ntwo\n");
}

TEST_F(Mill, TellsSendersApart) {
    StartCollector();
    Write("same", "one\n");
    EXPECT_EQ(Shell(SendCommand("same") + "; " + SendCommand("same")).iStatus, 0);
    EXPECT_EQ(Shell("bash -c 'exec 3<>/dev/tcp/127.0.0.1/" + m_port + "; echo GET / >&3; cat <&3'").out, "");
    EXPECT_EQ(NumberAfter("senders", EndCollector()), 2);
    Rebuild();
    EXPECT_EQ(Read("out/same") + Read("out/same+2"), "one\none\n");
}

TEST_F(Mill, SaysWhatIsWrong) {
    StartCollector();
    Write("file", "one\n");
    Write("vyx_log_1.log", "");
    const std::string send = "send -p " + m_port + " ";
    const struct {
        std::string arguments;
        int iStatus;
        std::string message;
    } cases[] = {
        {"", 2, "the first argument must be 'collect' or 'send'"},
        {"--help", 0, "Usage: logmill"},
        {"collect x", 2, "collect takes options only"},
        {"collect -s 4095", 2, "--file-size must be a number from 4096 to 1073741824, not '4095'"},
        {"collect --connections 1x", 2, "--connections must"},
        {"collect --nonsense", 2, "logmill --help"},
        {"collect -a 127.0.0.1 -p " + m_port, 1, "cannot listen at 127.0.0.1 port " + m_port},
        {"collect -d " + Path("file"), 1, "cannot write into " + Path("file")},
        {"collect -d " + Path(""), 1, "there are log files already in " + Path("")},
        {"collect >/dev/full", 1, "cannot write where I listen"},
        {send, 2, "which file?"},
        {send + "a b", 2, "one file at a time"},
        {"send " + Path("file"), 2, "which port?"},
        {send + "-n 'a b' " + Path("file"), 2, "--name has letters"},
        {send + Path("missing"), 1, "missing: No such file or directory"},
        {send + m_dir.Path(), 1, "Is a directory"},
        {send + "- <&-", 1, "Bad file descriptor"},
        {send + Path("file") + " >/dev/full", 1, "cannot write the result"},
        {"send -a 127.0.0.1 -p 1 " + Path("file"), 1, "no collector at 127.0.0.1 port 1"},
    };
    for (const auto &test : cases) {
        const Outcome outcome = Shell(kMill + " " + test.arguments);
        EXPECT_EQ(outcome.iStatus, test.iStatus) << test.arguments << "\n" << outcome.out;
        EXPECT_NE(outcome.out.find(test.message), std::string::npos) << test.arguments << "\n" << outcome.out;
    }
}

#ifdef SQLITE_VYX
TEST(Sqlite, FindsTheSameOverTheLibrary) {
    const support::TempDir dir;
    const auto work = [&dir](const std::string &how) {
        const Outcome outcome = Shell(SQLITE_VYX " --rows 2000 " + how + " " + dir.Path() + "/" + how + "db");
        EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        return outcome.out.substr(std::min(outcome.out.find("sum "), outcome.out.size()));
    };
    const std::string sum = work("");
    EXPECT_EQ(sum.size(), strlen("sum 0123456789abcdef\n"));
    EXPECT_EQ(sum, work("--builtin"));
}
#endif

#ifdef SQUEEZE
TEST(Squeeze, AnyGunzipReadsItsOutput) {
    const support::TempDir dir;
    std::mt19937 random(1); // NOLINT: the same numbers each time
    std::string noise;      // which repeats within the window of the format only
    while (noise.size() < 24000)
        noise += static_cast<char>(random());
    for (const size_t nSize : {0u, 1u, 131071u, 131072u, 131073u, 2000001u}) {
        SCOPED_TRACE(nSize);
        std::string text;
        while (text.size() < nSize)
            text += noise;
        text.resize(nSize);
        std::ofstream(dir.Path() + "/in") << text;
        for (const char *szHow : {SQUEEZE " -t 4", SQUEEZE " -1 -t 1", SQUEEZE_PLAIN " -t 4"}) {
            const Outcome outcome =
                Shell("cd " + dir.Path() + " && " + szHow + " <in >out && gunzip <out >back && cmp back in");
            EXPECT_EQ(outcome.iStatus, 0) << outcome.out;
        }
    }
    EXPECT_LT(std::filesystem::file_size(dir.Path() + "/out"),
              2 * noise.size()); // each block knows the one before
    const Outcome full = Shell(SQUEEZE " <" + dir.Path() + "/in >/dev/full");
    EXPECT_EQ(full.iStatus, 1);
    EXPECT_NE(full.out.find("not complete: No space left"), std::string::npos) << full.out;
}
#endif

} // namespace
