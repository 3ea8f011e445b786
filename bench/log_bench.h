// The work that every logger gets, so that figures of one run can be compared.
//
// A logger is a class with a folder as constructor argument, whose destructor returns when all lines are in the
// folder's files, and
//   void Write(int iThread, int n)   logs "thread %d writes line %d of many", waiting where there is no room
#ifndef VYX_BENCH_LOG_BENCH_H
#define VYX_BENCH_LOG_BENCH_H

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/bench.h"

class LogFolder {
  public:
    LogFolder() : m_path((std::filesystem::temp_directory_path() / "vyx_bench_XXXXXX").string()) {
        if (mkdtemp(m_path.data()) == nullptr)
            std::abort();
    }
    ~LogFolder() { (void)std::filesystem::remove_all(m_path); }
    LogFolder(const LogFolder &) = delete;
    LogFolder &operator=(const LogFolder &) = delete;
    const std::string &Path() const { return m_path; }

    // Line feeds in all files.
    int64_t Lines() const {
        int64_t nLines = 0;
        std::vector<char> buffer(1 << 20);
        for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
            std::filesystem::permissions(entry, std::filesystem::perms::owner_all);
            std::ifstream file(entry.path(), std::ios::binary);
            do {
                file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
                nLines += std::count(buffer.begin(), buffer.begin() + file.gcount(), '\n');
            } while (file);
        }
        return nLines;
    }

  private:
    std::string m_path;
};

// Runs fnWork(0) to fnWork(nThreads - 1) at the same time, each in a thread of its own.
template <class Work>
void RunTogether(int nThreads, Work fnWork) {
    std::atomic<int> nReady{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < nThreads; ++iThread)
        threads.emplace_back([&, iThread] {
            for (++nReady; nReady < nThreads;)
                std::this_thread::yield();
            fnWork(iThread);
        });
    for (std::thread &thread : threads)
        thread.join();
}

// The caller's cost of a line: the median, over all threads, of bursts of 1000 lines with a pause behind each.
template <class Logger>
void LogCost(benchmark::State &state) {
    constexpr int kBurst = 1000;
    constexpr int kBursts = 40;
    const auto nThreads = static_cast<int>(state.range(0));
    const LogFolder folder;
    std::vector<std::vector<double>> samples(static_cast<size_t>(nThreads));
    for (auto _ : state) {
        {
            Logger logger(folder.Path());
            RunTogether(nThreads, [&](int iThread) {
                for (int nBurst = 0; nBurst < kBursts; ++nBurst) {
                    const auto start = bench::Clock::now();
                    for (int n = 0; n < kBurst; ++n)
                        logger.Write(iThread, n);
                    samples[static_cast<size_t>(iThread)].push_back(bench::MicrosecondsSince(start) / kBurst);
                    std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the lines get written
                }
            });
        }
        std::vector<double> all;
        for (const auto &own : samples)
            all.insert(all.end(), own.begin(), own.end());
        bench::TimeOfMedian(state, all);
    }
    if (folder.Lines() != int64_t{nThreads} * kBurst * kBursts)
        state.SkipWithError("lines are missing");
}

// The time of a line when lines never cease, until the last of them is in the files.
template <class Logger>
void LogSustained(benchmark::State &state) {
    constexpr int kLines = 300000;
    const auto nThreads = static_cast<int>(state.range(0));
    const LogFolder folder;
    for (auto _ : state) {
        const auto start = bench::Clock::now();
        {
            Logger logger(folder.Path());
            RunTogether(nThreads, [&](int iThread) {
                for (int n = 0; n < kLines / nThreads; ++n)
                    logger.Write(iThread, n);
            });
        }
        state.SetIterationTime(bench::MicrosecondsSince(start) * 1e-6 / kLines);
    }
    if (folder.Lines() != kLines)
        state.SkipWithError("lines are missing");
}

// Registers a logger as a side of all cases, before main. Result: of no use, so that a constant's initialiser can call
// it.
//   fBound  how many times this side's time "vyx" may take; 0 = no bound
template <class Logger>
int RegisterLogger(const char *szSide, double fBound) {
    struct Case {
        const char *szName;
        void (*pfnRun)(benchmark::State &);
    };
    for (const Case &test :
         {Case{"log_line_cost", LogCost<Logger>}, Case{"log_line_sustained", LogSustained<Logger>}})
        benchmark::RegisterBenchmark((std::string(test.szName) + "/" + szSide).c_str(),
                                     [=](benchmark::State &state) {
                                         test.pfnRun(state);
                                         if (fBound > 0)
                                             state.counters["bound"] = fBound;
                                     })
            ->UseManualTime()
            ->Iterations(1)
            ->Arg(1)
            ->Arg(2)
            ->ArgName("threads");
    return 0;
}

#endif
