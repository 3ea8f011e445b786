// Eight threads write while others switch what can be switched: nothing taken is lost, torn or out of order.
#include <algorithm>
#include <atomic>
#include <thread>

#include "log/log_support.h"

using namespace log_support;

namespace {

using LogStress = LogTest;

constexpr int kThreads = 8;
constexpr int kLines = 4000; // of each thread

std::string TextOf(int iThread, int n) {
    return std::to_string(iThread) + " " + std::to_string(n) + " " +
           std::string(static_cast<size_t>((n * 37 + iThread) % 400), static_cast<char>('a' + iThread));
}

// The files are the only target, on and off in turns, each time in a folder of their own. So a line that was taken
// while the target went off, or the service stopped, has nowhere else to be.
TEST_F(LogStress, NothingTakenIsLostWhenTheOnlyTargetIsSwitched) {
    std::atomic<int> nRunning{kThreads};
    std::atomic<int> nTaken{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < kThreads; ++iThread)
        threads.emplace_back([&, iThread] {
            int32_t iResult = 0;
            for (int n = 0; n < kLines; ++n, ++nTaken)
                while ((iResult = Write(TextOf(iThread, n))) != 0) {
                    EXPECT_TRUE(iResult == -4 || iResult == -2 || iResult == -5) << iResult;
                    std::this_thread::yield();
                }
            --nRunning;
        });
    threads.emplace_back([&] {
        while (nRunning > 0) {
            StopLogService(true);
            AdjustLogLevel(log_level(100));
            StartLogService();
            AdjustLogLevel(kInf);
            std::this_thread::yield();
        }
    });
    int iFolder = 0;
    for (; nRunning > 0; ++iFolder) {
        EnableTarget(kFile, (dir / std::to_string(iFolder)).c_str(), 5000, 0);
        const int iStart = nTaken;
        for (int n = 0; n < 2000 && nTaken < iStart + 300; ++n)
            std::this_thread::yield(); // the other one may have stopped the service at once
        if (iFolder % 2 == 0)
            StopLogService(false);
        else
            DisableTarget(kFile);
    }
    for (std::thread &thread : threads)
        thread.join();
    StopLogService(true);
    std::vector<int> next(kThreads);
    for (int n = 0; n < iFolder; ++n)
        for (const std::string &text : Lines(AllLogText(dir / std::to_string(n)))) {
            const int iThread = text.at(0) - '0';
            ASSERT_EQ(text, TextOf(iThread, next.at(static_cast<size_t>(iThread))++));
        }
    EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

} // namespace
