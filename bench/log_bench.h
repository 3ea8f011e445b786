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

// Threads that go on together: each waits until all have come.
class Meeting {
  public:
    explicit Meeting(int nThreads) : m_nThreads(nThreads) {}
    void Await() {
        const int iRound = m_iRound;
        if (++m_nHere == m_nThreads) {
            m_nHere = 0;
            ++m_iRound;
        }
        while (m_iRound == iRound)
            std::this_thread::yield();
    }

  private:
    const int m_nThreads;
    std::atomic<int> m_nHere{0};
    std::atomic<int> m_iRound{0};
};

// Runs fnWork(0) to fnWork(nThreads - 1), each in a thread of its own. They begin together.
template <class Work>
void RunTogether(int nThreads, Work fnWork) {
    Meeting meeting(nThreads);
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < nThreads; ++iThread)
        threads.emplace_back([&, iThread] {
            meeting.Await();
            fnWork(iThread);
        });
    for (std::thread &thread : threads)
        thread.join();
}

inline std::vector<double> Joined(const std::vector<std::vector<double>> &parts) {
    std::vector<double> all;
    for (const auto &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// The caller's cost of a line: the median, over all threads, of bursts of 1000 lines that all threads begin together, with
// a pause behind each.
template <class Logger>
void LogCost(benchmark::State &state) {
    constexpr int kBurst = 1000;
    constexpr int kBursts = 40;
    const auto nThreads = static_cast<int>(state.range(0));
    const LogFolder folder;
    std::vector<std::vector<double>> samples(static_cast<size_t>(nThreads));
    Meeting meeting(nThreads);
    for (auto _ : state) {
        {
            Logger logger(folder.Path());
            RunTogether(nThreads, [&](int iThread) {
                for (int nBurst = 0; nBurst < kBursts; ++nBurst) {
                    meeting.Await();
                    const auto start = bench::Clock::now();
                    for (int n = 0; n < kBurst; ++n)
                        logger.Write(iThread, n);
                    samples[static_cast<size_t>(iThread)].push_back(bench::MicrosecondsSince(start) / kBurst);
                    std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the lines get written
                }
            });
        }
        std::vector<double> all = Joined(samples);
        bench::TimeOfMedian(state, all);
    }
    if (folder.Lines() != int64_t{nThreads} * kBurst * kBursts)
        state.SkipWithError("lines are missing");
}

// The same for the first 8000 lines of a new logger, which its queue can take without a pause.
template <class Logger>
void LogFirstLines(benchmark::State &state) {
    constexpr int kLines = 8000;
    constexpr int kLoggers = 15;
    const auto nThreads = static_cast<int>(state.range(0));
    std::vector<std::vector<double>> samples(static_cast<size_t>(nThreads));
    for (auto _ : state) {
        for (int nLogger = 0; nLogger < kLoggers; ++nLogger) {
            const LogFolder folder;
            Logger logger(folder.Path());
            logger.Write(0, 0); // starts its thread
            RunTogether(nThreads, [&](int iThread) {
                const int nOwn = kLines / nThreads;
                const auto start = bench::Clock::now();
                for (int n = 0; n < nOwn; ++n)
                    logger.Write(iThread, n);
                samples[static_cast<size_t>(iThread)].push_back(bench::MicrosecondsSince(start) / nOwn);
            });
        }
        std::vector<double> all = Joined(samples);
        bench::TimeOfMedian(state, all);
    }
}

// How long a single call takes that is slower than a share of all calls: in bursts as above, of fewer lines.
template <class Logger>
void LogCall(benchmark::State &state, double fShare) {
    constexpr int kBurst = 200;
    constexpr int kBursts = 20;
    const auto nThreads = static_cast<int>(state.range(0));
    const LogFolder folder;
    std::vector<std::vector<double>> samples(static_cast<size_t>(nThreads));
    Meeting meeting(nThreads);
    for (auto _ : state) {
        Logger logger(folder.Path());
        RunTogether(nThreads, [&](int iThread) {
            for (int n = 0; n < kBurst * kBursts; ++n) {
                if (n % kBurst == 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // the lines get written
                    meeting.Await();
                }
                const auto start = bench::Clock::now();
                logger.Write(iThread, n);
                samples[static_cast<size_t>(iThread)].push_back(bench::MicrosecondsSince(start) * 1000);
            }
        });
    }
    std::vector<double> all = Joined(samples);
    std::sort(all.begin(), all.end());
    const auto nPlace = static_cast<size_t>(fShare * static_cast<double>(all.size()));
    bench::Observed(state, all[std::min(nPlace, all.size() - 1)], "ns");
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
    const std::string side = std::string("/") + szSide;
    for (const Case &test :
         {Case{"log_line_cost", LogCost<Logger>}, Case{"log_first_lines", LogFirstLines<Logger>},
          Case{"log_line_sustained", LogSustained<Logger>}})
        benchmark::RegisterBenchmark((test.szName + side).c_str(),
                                     [=](benchmark::State &state) {
                                         test.pfnRun(state);
                                         if (fBound > 0)
                                             state.counters["bound"] = fBound;
                                     })
            ->UseManualTime()
            ->Iterations(1)
            ->Arg(1)
            ->Arg(2)
            ->Arg(4)
            ->ArgName("threads");
    for (const auto &[szName, fShare] : {std::pair{"log_call_p50", 0.5}, std::pair{"log_call_p99", 0.99},
                                         std::pair{"log_call_p99.9", 0.999}, std::pair{"log_call_max", 1.0}})
        benchmark::RegisterBenchmark(
            (szName + side).c_str(),
            [fShare = fShare](benchmark::State &state) { LogCall<Logger>(state, fShare); })
            ->Iterations(1)
            ->UseRealTime()
            ->RangeMultiplier(2)
            ->Range(1, 16)
            ->ArgName("threads");
    return 0;
}

#endif
