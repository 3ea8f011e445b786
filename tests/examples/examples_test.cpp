// The example programs, run as their users run them.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
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

// Reads to the end and closes.
Outcome EndOf(FILE *pPipe) {
    std::string text;
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, pPipe)) > 0;)
        text.append(block, n);
    const int iStatus = pclose(pPipe);
    return {WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1, text};
}

// Runs a shell command; standard output and error together.
Outcome Shell(const std::string &command) {
    return EndOf(popen(("( " + command + " ) 2>&1").c_str(), "re"));
}

// A collector that stores into the folder's "logs", until it is ended.
struct Collector {
    std::string logs;
    FILE *pSaid;
    pid_t iProcess = 0;
    unsigned nPort = 0;

    Collector(const support::TempDir &dir, const std::string &options)
        : logs(dir / "logs"),
          pSaid(
              popen(("umask 027; echo $$; exec " + kMill + " collect -d " + logs + options).c_str(), "re")) {
        EXPECT_EQ(fscanf(pSaid, "%d collecting at %*s port %u into", &iProcess, &nPort), 2);
    }
    std::string Send(const std::string &path) const {
        return kMill + " send -p " + std::to_string(nPort) + " " + path;
    }
    // Whether all log files whose names have this form are readable as the mask has it, soon.
    bool AreReadable(const std::string &form) const {
        return support::WaitUntil([this, &form] {
            return Shell("cd " + logs + " && stat -c %a " + form + " | sort -u").out == "640\n";
        });
    }
    // What is there, for the case of a failure.
    std::string Files() const { return Shell("ls -l " + logs + "; df " + logs).out; }
    Outcome End() const {
        EXPECT_EQ(kill(iProcess, SIGINT), 0);
        return EndOf(pSaid);
    }
};

// The number behind a word of the collector's summary.
int NumberOf(const char *szWord, const Outcome &said) {
    const size_t nAt = said.out.find(szWord);
    return nAt == std::string::npos ? -1 : std::stoi(said.out.substr(nAt + strlen(szWord)));
}

// A line in three says error, one in five of the others is a warning; one in a thousand is stored in several pieces.
TEST(Mill, ManySendersAtOnceLoseNothingAndKeepTheirOrder) {
    constexpr int kSenders = 12;
    constexpr int kLines = 6000;
    const support::TempDir dir;
    const Collector collector(dir, " --connections 5 --file-size 65536"); // so that some wait for their turn
    std::string command;
    for (int iSender = 0; iSender < kSenders; ++iSender) {
        const std::string path = dir / ("sender" + std::to_string(iSender));
        std::string content;
        for (int i = 0; i < kLines; ++i) {
            const char *szWord = i % 3 == 0 ? "error" : i % 5 == 0 ? "Warning" : "words";
            content += std::to_string(i) + " [" + szWord + "] " +
                       std::string(static_cast<size_t>(i % 1000 == 0 ? 5000 : (i + iSender) % 90), '.') +
                       "\n";
        }
        support::WriteFile(path, content);
        command += collector.Send(path) + " || echo " + path + " failed: $? & ";
    }
    const Outcome sent = Shell(command + "wait");
    EXPECT_EQ(sent.out.find("failed"), std::string::npos) << sent.out;
    EXPECT_TRUE(collector.AreReadable("vyx_log_*[0-9].log")) << collector.Files();
    const Outcome said = collector.End();
    EXPECT_EQ(said.iStatus, 0);
    EXPECT_EQ(said.out.find("failed"), std::string::npos) << said.out;
    EXPECT_TRUE(collector.AreReadable("*"));
    for (const auto &[szKey, iNumber] :
         {std::pair{"lines", kLines}, {"error", 2000}, {"warning", 800}, {"none", 3200}, {"senders", 1}})
        EXPECT_EQ(NumberOf(szKey, said), kSenders * iNumber) << szKey << said.out << sent.out;
    const Outcome checked = Shell(
        "cd " + dir.Path() + " && mkdir out && cd logs && ls | sort -t_ -k3n | LC_ALL=C xargs cat | " +
        "LC_ALL=C awk -v directory=../out -f " SOURCE_DIR "/examples/logmill/check.awk && cd ../out && " +
        "[ $(ls | wc -l) = 12 ] && for name in *; do cmp $name ../$name || exit; done");
    EXPECT_EQ(checked.iStatus, 0) << checked.out << collector.Files() << said.out << sent.out;
}

// On a slow disk long after its last line has been counted.
TEST(Mill, MakesAFileReadableWheneverItIsFinished) {
    const support::TempDir dir;
    const Collector collector(dir, "");
    EXPECT_EQ(Shell("umask 577; >" + collector.logs + "/vyx_log_9.log").out, "");
    EXPECT_TRUE(collector.AreReadable("*")) << collector.Files();
    EXPECT_EQ(collector.End().iStatus, 0);
}

// The sender's socket and pipe take what descriptors there are, so that it gets no semaphore.
TEST(Mill, TurnsASenderAwayWhomItCannotServe) {
    const support::TempDir dir;
    const Collector collector(dir, "");
    std::string content;
    for (int i = 0; i < 5000; ++i)
        content += std::to_string(i) + "\n";
    support::WriteFile(dir / "in", content);
    const std::string process = std::to_string(collector.iProcess);
    int iLimit = 0;
    for (int iFree = 0; iFree < 3; ++iLimit) {
        std::error_code error;
        const auto target =
            std::filesystem::read_symlink("/proc/" + process + "/fd/" + std::to_string(iLimit), error);
        iFree += error || target == collector.logs ? 1 : 0; // which it closes again at once
    }
    const auto setLimit = [&process](int iDescriptors) {
        EXPECT_EQ(Shell("prlimit --pid " + process + " --nofile=" + std::to_string(iDescriptors) + ":").out,
                  "");
    };
    setLimit(iLimit);
    const Outcome refused = Shell(collector.Send(dir / "in"));
    EXPECT_EQ(refused.iStatus, 1) << refused.out;
    setLimit(200);
    const Outcome served = Shell(collector.Send(dir / "in"));
    EXPECT_EQ(served.iStatus, 0) << served.out;
    const Outcome said = collector.End();
    EXPECT_EQ(said.iStatus, 0);
    EXPECT_EQ(NumberOf("lines", said), 5000) << said.out;
    EXPECT_EQ(NumberOf("senders", said), 1) << said.out;
}

TEST(Mill, SaysWhatIsWrong) {
    const struct {
        const char *szArguments;
        int iStatus;
        const char *szMessage;
    } cases[] = {
        {"", 2, "the first argument must be 'collect' or 'send'"},
        {"collect x", 2, "collect takes options only"},
        {"collect -s 4095", 2, "--file-size must be a number from 4096 to 1073741824, not '4095'"},
        {"collect -d /dev/null", 1, "cannot write into /dev/null"},
        {"collect >/dev/full", 1, "cannot write where I listen"},
        {"send -p 1 a b", 2, "one file at a time"},
        {"send -p 1 -n 'a b' /dev/null", 2, "--name has letters"},
        {"send -a 127.0.0.1 -p 1 /dev/null", 1, "no collector at 127.0.0.1 port 1"},
    };
    const support::TempDir dir;
    for (const auto &test : cases) {
        const Outcome outcome = Shell("cd " + dir.Path() + " && exec " + kMill + " " + test.szArguments);
        EXPECT_EQ(outcome.iStatus, test.iStatus) << test.szArguments << "\n" << outcome.out;
        EXPECT_NE(outcome.out.find(test.szMessage), std::string::npos) << outcome.out;
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
    for (const size_t nSize : {0u, 131072u, 2000001u}) {
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
}
#endif

} // namespace
