// What the benchmarks share: the same work done in several ways, measured in one run and compared.
//
// Pattern for a new area: one AREA_bench.cpp whose main hands its cases to Compare (how long does an operation
// take?) or Figure (what came out of an observation?) and ends with `return bench::Run(argc, argv);`. A case has
// one side for each way of doing the work: "vyx" is this library, "raw" the platform call, any other name a
// peer library. All sides do the same work, call through their library's public functions in the same way, and
// check results alike. scripts/bench runs every area and prints vyx / other for every other side of a case.
//
// Names are CASE/SIDE in small letters, so that a case is found by its name in the table and in --benchmark_filter.
#ifndef VYX_BENCH_SUPPORT_H
#define VYX_BENCH_SUPPORT_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <vyx/frame.h>

namespace bench {

using Clock = std::chrono::steady_clock;

// One way of doing a case's work.
//   pfnRun      the benchmark
//   fBound      on other sides than "vyx": how many times this side's time, or figure, "vyx" may have; 0 = no bound
struct Side {
    const char *szName;
    void (*pfnRun)(benchmark::State &);
    double fBound = 0;
};

// Settings for Compare. WallClock counts the time that passes, for what sleeps. ByHand counts what the side itself
// sets with TimeOfMedian, for work that several threads share: on a busy machine the few times that somebody
// else interrupts would outweigh all others.
inline void WallClock(benchmark::internal::Benchmark *pBenchmark) {
    pBenchmark->UseRealTime();
}
inline void ByHand(benchmark::internal::Benchmark *pBenchmark) {
    pBenchmark->UseManualTime()->Iterations(1);
}

inline benchmark::internal::Benchmark *RegisterSide(const std::string &name, const Side &side) {
    return benchmark::RegisterBenchmark(name.c_str(), [side](benchmark::State &state) {
        side.pfnRun(state);
        if (side.fBound > 0)
            state.counters["bound"] = side.fBound;
    });
}

// Registers the sides of a case, to be compared by the time of one iteration: the calling thread's processor
// time, which others that use the machine disturb least, unless pfnConfigure asks for another.
//   pfnConfigure  settings that all sides share, such as the clock or a number of iterations
inline void Compare(const char *szCase, std::initializer_list<Side> sides,
                    void (*pfnConfigure)(benchmark::internal::Benchmark *) = nullptr) {
    for (const Side &side : sides) {
        const std::string name = std::string(szCase) + "/" + side.szName;
        auto *pBenchmark = RegisterSide(name, side);
        if (pfnConfigure != nullptr)
            pfnConfigure(pBenchmark);
    }
}

// Registers the sides of a case that observes something for a while and reports one figure: see Observed.
//   sizes    where there are several: what they are sizes of, and which; a side finds its own in state.range(0)
inline void Figure(const char *szCase, std::initializer_list<Side> sides, const char *szSizesOf = nullptr,
                   const std::vector<int64_t> &sizes = {}) {
    for (const Side &side : sides) {
        const std::string name = std::string(szCase) + "/" + side.szName;
        auto *pBenchmark = RegisterSide(name, side)->Iterations(1)->UseRealTime();
        for (const int64_t nSize : sizes)
            pBenchmark->Arg(nSize)->ArgName(szSizesOf);
    }
}

// The result of a Figure's observation.
//   szUnit  what the table prints behind it
//   fLimit  the most it may be; 0 = no limit
inline void Observed(benchmark::State &state, double fFigure, const char *szUnit, double fLimit = 0) {
    state.counters["figure"] = fFigure;
    if (fLimit > 0)
        state.counters["limit"] = fLimit;
    state.SetLabel(szUnit);
}

// The middle one of some samples, which it reorders; there is at least one.
inline double Median(std::vector<double> &samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

inline double MicrosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// For a side with the setting ByHand: the one iteration took as long as the median of these, in microseconds.
inline void TimeOfMedian(benchmark::State &state, std::vector<double> &samples) {
    state.SetIterationTime(Median(samples) * 1e-6);
}

// Runs what was registered, with the library started: its service thread exists wherever the library is used,
// and platform calls take shorter ways in a process that never had a second thread. Result: for main to return.
inline int Run(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (VYX_Init() != VYX_OK) {
        (void)std::fputs("the library does not start\n", stderr);
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return VYX_Fini() == VYX_OK ? 0 : 1;
}

} // namespace bench

#endif
