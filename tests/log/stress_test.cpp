// Eight threads write while others switch what can be switched: nothing taken is lost, torn or out of order.
#include <atomic>
#include <functional>
#include <thread>

#include "log/log_support.h"

using namespace log_support;

namespace {

constexpr int kThreads = 8;
constexpr int kLines = 4000; // of each thread

class LogStress : public LogTest {
  protected:
    // Runs the writers, and beside them each of the others again and again. While a line is refused with -4, -2 or -5, it is
    // tried again, but with bPatient only with -4. What was taken is in `taken`.
    void Run(bool bPatient, const std::vector<std::function<void()>> &others) {
        std::atomic<int> nRunning{kThreads};
        std::vector<std::thread> threads;
        for (int iThread = 0; iThread < kThreads; ++iThread)
            threads.emplace_back([&, iThread] {
                for (int n = 0; n < kLines; ++n)
                    WriteOne(iThread, n, bPatient);
                --nRunning;
            });
        for (const auto &fnOther : others)
            threads.emplace_back([&] {
                while (nRunning > 0)
                    fnOther();
            });
        for (std::thread &thread : threads)
            thread.join();
        StopLogService(true);
    }
    // The lines of a log are exactly those taken, each thread's in its order.
    void ExpectTaken(const std::string &log) const {
        std::vector<Strings> found(kThreads);
        for (const std::string &text : Lines(log))
            found.at(static_cast<size_t>(text.at(0) - '0')).push_back(text);
        for (size_t n = 0; n < kThreads; ++n) {
            const auto [itTaken, itFound] =
                std::mismatch(taken[n].begin(), taken[n].end(), found[n].begin(), found[n].end());
            EXPECT_TRUE(itTaken == taken[n].end()) << "missing: " << *itTaken;
            EXPECT_TRUE(itFound == found[n].end()) << "one too many: " << *itFound;
        }
    }
    std::atomic<int> nTaken{0};

  private:
    void WriteOne(int iThread, int n, bool bPatient) {
        const std::string text =
            std::to_string(iThread) + " " + std::to_string(n) + " " +
            std::string(static_cast<size_t>((n * 37 + iThread) % 400), static_cast<char>('a' + iThread));
        int32_t iResult = 0;
        while ((iResult = Write(text)) == -4 || (bPatient && iResult < 0))
            std::this_thread::yield();
        EXPECT_TRUE(iResult == 0 || iResult == -2) << iResult;
        if (iResult != 0)
            return;
        taken[static_cast<size_t>(iThread)].push_back(text);
        ++nTaken;
    }
    std::vector<Strings> taken{kThreads};
};

// The files are the only target, on and off in turns, each time in a folder of their own. So a line that was taken
// while the target went off, or the service stopped, has nowhere else to be.
TEST_F(LogStress, NothingTakenIsLostWhenTheOnlyTargetIsSwitched) {
    int iFolder = 0;
    const auto toggleFiles = [&] {
        EnableTarget(kFile, (dir / std::to_string(iFolder++)).c_str(), 5000, 0);
        const int iStart = nTaken;
        for (int n = 0; n < 2000 && nTaken < iStart + 300;
             ++n) // the other one may have stopped the service at once
            std::this_thread::yield();
        if (iFolder % 2 == 0)
            DisableTarget(kFile);
        else
            StopLogService(false);
    };
    const auto stop = [] {
        StopLogService(true);
        StartLogService();
        std::this_thread::yield();
    };
    Run(true, {toggleFiles, stop});
    std::string text;
    for (int n = 0; n < iFolder; ++n)
        text += AllLogText(dir / std::to_string(n));
    ExpectTaken(text);
}

// Standard output is on all the time; all else changes, by two threads that meet each other as well.
TEST_F(LogStress, NothingTakenIsLostBesideOtherSwitches) {
    const Capture out(stdout, dir / "out");
    const Capture err(stderr, dir / "err");
    On(kConsole);
    const auto toggle = [this] {
        On(kFile, 5000, 1);
        AdjustLogLevel(log_level(100));
        On(kDebug);
        StopLogService(true);
        StartLogService();
        DisableTarget(kFile);
        AdjustLogLevel(kInf);
        DisableTarget(kDebug);
        StopLogService(false);
    };
    Run(false, {toggle, toggle});
    ExpectTaken(out.Text());
    (void)Lines(AllLogText(logs)); // whole
    (void)Lines(err.Text());
}

} // namespace
