// The work that all timers get, so that figures of one run can be compared: some of them, 256 at most, due every 10 ms.
//
// A way to keep timers is a class with
//   bool Start(Tick *pTicks, int nTicks)   has pTicks[n].Call() called every kPeriod, each of them on its own
//   void Run(std::chrono::milliseconds)    returns after that time
//   void Stop()                            after which nothing is called
#ifndef VYX_BENCH_TIMER_BENCH_H
#define VYX_BENCH_TIMER_BENCH_H

#include <cmath>
#include <ctime>
#include <numeric>
#include <string>

#include "support/bench.h"

constexpr uint32_t kPeriod = 10; // milliseconds

// One timer. Read by others only while its timer is stopped.
class Tick {
  public:
    void Call() {
        const auto now = bench::Clock::now();
        if (m_nCalls > 0)
            m_fDeviation +=
                std::fabs(std::chrono::duration<double, std::micro>(now - m_last).count() - 1000.0 * kPeriod);
        ++m_nCalls;
        m_last = bench::Clock::now();
    }
    int Intervals() const { return m_nCalls > 0 ? m_nCalls - 1 : 0; }
    double Deviation() const { return m_fDeviation; }

  private:
    int m_nCalls = 0;
    double m_fDeviation = 0; // microseconds that the intervals missed the period by, in all
    bench::Clock::time_point m_last;
};

struct TimerFigures {
    double fDeviation = 0; // microseconds, of one interval on average
    double fCpu = 0;       // percent of a core
};

// Lets timers run for a while. False if they did not.
template <class Timers>
bool WatchTimers(int nTimers, TimerFigures *pFigures) {
    constexpr std::chrono::milliseconds kWindow(600);
    std::vector<Tick> ticks(static_cast<size_t>(nTimers));
    Timers timers;
    if (!timers.Start(ticks.data(), nTimers))
        return false;
    struct timespec before;
    struct timespec after;
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    const auto start = bench::Clock::now();
    timers.Run(kWindow);
    const double fMicroseconds = bench::MicrosecondsSince(start);
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    timers.Stop();
    double fDeviation = 0;
    int nIntervals = 0;
    for (const Tick &tick : ticks) {
        fDeviation += tick.Deviation();
        nIntervals += tick.Intervals();
    }
    const double fCpu = static_cast<double>(after.tv_sec - before.tv_sec) * 1e6 +
                        static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e3;
    *pFigures = {fDeviation / std::max(nIntervals, 1), 100 * fCpu / fMicroseconds};
    return nIntervals >= nTimers * 10; // a machine that is busy all the time, or timers that do not run
}

template <class Timers>
void TimerDeviation(benchmark::State &state) {
    TimerFigures figures;
    for (auto _ : state)
        if (!WatchTimers<Timers>(static_cast<int>(state.range(0)), &figures))
            return state.SkipWithError("the timers did not run");
    bench::Observed(state, figures.fDeviation, "us", 500);
}

template <class Timers>
void TimerCpu(benchmark::State &state) {
    TimerFigures figures;
    for (auto _ : state)
        if (!WatchTimers<Timers>(static_cast<int>(state.range(0)), &figures))
            return state.SkipWithError("the timers did not run");
    bench::Observed(state, figures.fCpu, "% of a core", 2.5);
}

template <class Timers>
int RegisterTimers(const char *szSide) {
    bench::Figure("timers_of_10ms_deviation", {{szSide, TimerDeviation<Timers>}}, "timers", {256});
    bench::Figure("timers_of_10ms_cpu", {{szSide, TimerCpu<Timers>}}, "timers", {1, 4, 16, 64, 256});
    return 0;
}

#endif
