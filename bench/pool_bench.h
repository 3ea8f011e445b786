// The work that every pool gets, so that figures of one run can be compared.
//
// A pool is a class with the number of its workers as constructor argument and
//   void Submit(PoolWork *pWork)   has pWork->Run() run once on a worker, waiting where there is no room
//   void Drain()                   called by the submitting thread until the items are done; may do nothing
#ifndef VYX_BENCH_POOL_BENCH_H
#define VYX_BENCH_POOL_BENCH_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

struct PoolWork {
    using Clock = std::chrono::steady_clock;

    std::chrono::nanoseconds length{0}; // of one item, spent computing
    std::atomic<Clock::rep> started{0}; // when the latest item began
    std::atomic<uint64_t> nDone{0};

    void Run() {
        const auto now = Clock::now();
        started.store(now.time_since_epoch().count(), std::memory_order_relaxed);
        while (length.count() != 0 && Clock::now() - now < length) {
        }
        nDone.fetch_add(1, std::memory_order_release);
    }
};

// Items per second: a batch is handed over by one thread, and over when its last item has run.
template <class Pool>
void PoolThroughput(benchmark::State &state) {
    constexpr uint64_t kBatch = 20000;
    Pool pool(static_cast<int>(state.range(0)));
    PoolWork work;
    work.length = std::chrono::nanoseconds(state.range(1));
    uint64_t nDue = 0;
    for (auto _ : state) {
        nDue += kBatch;
        for (uint64_t n = 0; n < kBatch; ++n)
            pool.Submit(&work);
        while (work.nDone.load(std::memory_order_acquire) != nDue) {
            pool.Drain();
            std::this_thread::yield();
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBatch));
}

// From the call that hands an item over to the item's first instruction, its workers asleep; the median, since
// the mean is the scheduler's.
template <class Pool>
void PoolHandOver(benchmark::State &state) {
    Pool pool(static_cast<int>(state.range(0)));
    PoolWork work;
    uint64_t nDue = 0;
    std::vector<double> times;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(300)); // lets the workers fall asleep
        const auto before = PoolWork::Clock::now().time_since_epoch().count();
        pool.Submit(&work);
        ++nDue;
        while (work.nDone.load(std::memory_order_acquire) != nDue) {
            pool.Drain();
            std::this_thread::yield();
        }
        times.push_back(static_cast<double>(work.started.load() - before) / 1e3);
        state.SetIterationTime(times.back() / 1e6);
    }
    std::sort(times.begin(), times.end());
    state.counters["median_us"] = times[times.size() / 2];
    state.counters["p90_us"] = times[times.size() * 9 / 10];
}

// Registers one pool under its name: 1, 2 and 8 workers; empty items and items of 10 microseconds.
template <class Pool>
int RegisterPool(const std::string &name) {
    benchmark::RegisterBenchmark(("Throughput/" + name).c_str(), PoolThroughput<Pool>)
        ->ArgsProduct({{1, 2, 8}, {0, 10000}})
        ->ArgNames({"workers", "item_ns"})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("HandOver/" + name).c_str(), PoolHandOver<Pool>)
        ->Args({2})
        ->ArgNames({"workers"})
        ->UseManualTime()
        ->Iterations(2000)
        ->Unit(benchmark::kMicrosecond);
    return 0;
}

#endif
