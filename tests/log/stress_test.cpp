// Eight threads write while others switch what can be switched: nothing taken is lost, torn or out of order.
#include <atomic>
#include <functional>
#include <thread>

#include "log/log_support.h"
#include "support/support.h"

using namespace log_support;

namespace {

constexpr int kThreads = 8;
constexpr int kLines = 4000; // of each thread

using Taken = std::vector<std::vector<std::string>>; // by thread

std::string Text(int iThread, int n) {
    return std::to_string(iThread) + " " + std::to_string(n) + " " +
           std::string(static_cast<size_t>((n * 37 + iThread) % 400), static_cast<char>('a' + iThread));
}

// Writes one line, again and again while the ring is full. Result: that of WriteLog.
int32_t WriteWithPatience(const std::string &text) {
    for (;;) {
        const int32_t iResult = WriteLog(kInf, "f", 1, "%s", text.c_str());
        if (iResult != -4)
            return iResult;
        std::this_thread::yield();
    }
}

// Runs the writers, and beside them fnBeside again and again. fnWrite writes a line and tells whether it was taken.
Taken RunWriters(const std::function<bool(const std::string &)> &fnWrite,
                 const std::function<void()> &fnBeside) {
    Taken taken(kThreads);
    std::atomic<int> nRunning{kThreads};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < kThreads; ++iThread)
        threads.emplace_back([&, iThread] {
            for (int n = 0; n < kLines; ++n) {
                const std::string text = Text(iThread, n);
                if (fnWrite(text))
                    taken[static_cast<size_t>(iThread)].push_back(text);
            }
            --nRunning;
        });
    while (nRunning > 0)
        fnBeside();
    for (std::thread &thread : threads)
        thread.join();
    return taken;
}

// The lines of a log are exactly those taken, each thread's in its order.
void ExpectAll(const std::string &log, const Taken &taken) {
    std::vector<size_t> next(kThreads);
    for (const std::string &line : Lines(log)) {
        const std::string text = TextOf(line);
        const auto nThread = static_cast<size_t>(text.at(0) - '0');
        ASSERT_LT(nThread, taken.size()) << text;
        ASSERT_LT(next[nThread], taken[nThread].size()) << "one too many: " << text;
        ASSERT_EQ(text, taken[nThread][next[nThread]++]);
    }
    for (size_t nThread = 0; nThread < taken.size(); ++nThread)
        EXPECT_EQ(next[nThread], taken[nThread].size()) << "lines of thread " << nThread << " are missing";
}

using LogStress = LogTest;

TEST_F(LogStress, ThroughRotationWhileOtherTargetsAndTheLevelAreSwitched) {
    const Capture out(stdout, dir / "out");
    const Capture err(stderr, dir / "err");
    const std::string folder = dir / "logs";
    EnableTarget(kFile, folder.c_str(), 65536, 0);
    const Taken taken = RunWriters([](const std::string &text) { return WriteWithPatience(text) == 0; },
                                   [] {
                                       EnableTarget(kConsole, nullptr, 0, 0);
                                       AdjustLogLevel(log_level(100));
                                       EnableTarget(kDebug, nullptr, 0, 0);
                                       AdjustLogLevel(kInf);
                                       DisableTarget(kConsole);
                                       DisableTarget(kDebug);
                                       StartLogService();
                                   });
    StopLogService(true);
    EXPECT_EQ(taken[0].size(), static_cast<size_t>(kLines));
    EXPECT_GT(Names(folder).size(), 50U);
    ExpectAll(AllLogText(folder), taken);
    (void)Lines(out.Text()); // whole
    (void)Lines(err.Text());
}

// Two threads switch the same things at once, so that the switches meet each other as well.
TEST_F(LogStress, WhileTheServiceIsStoppedAndStarted) {
    const Capture out(stdout, dir / "out");
    EnableTarget(kConsole, nullptr, 0, 0);
    const auto toggle = [this] {
        EnableTarget(kFile, (dir / "logs").c_str(), 5000, 1);
        std::this_thread::yield();
        StopLogService(true);
        StartLogService();
        DisableTarget(kFile);
        StopLogService(false);
    };
    std::atomic<bool> bStop{false};
    std::thread second([&] {
        while (!bStop)
            toggle();
    });
    const Taken taken = RunWriters(
        [](const std::string &text) {
            const int32_t iResult = WriteWithPatience(text);
            EXPECT_TRUE(iResult == 0 || iResult == -2) << iResult;
            return iResult == 0;
        },
        toggle);
    bStop = true;
    second.join();
    StopLogService(true);
    ExpectAll(out.Text(), taken);
    (void)Lines(AllLogText(dir / "logs"));
}

// The files are the only target, on and off in turns, each time in a folder of their own. So a line that was taken
// while the target went off, or the service stopped, has nowhere else to be.
TEST_F(LogStress, NothingTakenIsLostWhenTheOnlyTargetIsSwitched) {
    int iFolder = 0;
    std::atomic<int> nTaken{0};
    const auto pause = [&] {
        const int iStart = nTaken;
        while (nTaken < iStart + 300 && nTaken < kThreads * kLines)
            std::this_thread::yield();
    };
    const Taken taken = RunWriters(
        [&](const std::string &text) {
            int32_t iResult = 0;
            while ((iResult = WriteWithPatience(text)) == -5 || iResult == -2)
                std::this_thread::yield();
            EXPECT_EQ(iResult, 0);
            ++nTaken;
            return iResult == 0;
        },
        [&] {
            EnableTarget(kFile, (dir / std::to_string(iFolder)).c_str(), 100000000, 0);
            pause();
            if (++iFolder % 2 == 0)
                DisableTarget(kFile);
            else
                StopLogService(false);
        });
    StopLogService(true);
    std::string text;
    for (int n = 0; n < iFolder; ++n)
        text += AllLogText(dir / std::to_string(n));
    ExpectAll(text, taken);
}

} // namespace
