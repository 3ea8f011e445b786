// The work that every pool gets, so that figures of one run can be compared.
//
// A pool is a class with the number of its workers as constructor argument and
//   void Submit(PoolWork *pWork)   has pWork->Run() run once on a worker, waiting where there is no room
//   void Drain()                   called by the submitting thread after its last item; may wait for the items, or do nothing
#ifndef VYX_BENCH_POOL_BENCH_H
#define VYX_BENCH_POOL_BENCH_H

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <semaphore.h>

#include "support/bench.h"

struct PoolWork {
    using Clock = std::chrono::steady_clock;

    std::chrono::nanoseconds length{0}; // of one item, spent computing
    std::atomic<Clock::rep> started{0}; // when the latest item began
    std::atomic<uint64_t> nDone{0};
    std::atomic<uint64_t> nDue{UINT64_MAX}; // the item that posts `done`
    sem_t done;
    sem_t permits; // of items that may be under way, where the benchmark limits them

    PoolWork() {
        (void)sem_init(&done, 0, 0);
        (void)sem_init(&permits, 0, 0);
    }
    ~PoolWork() {
        (void)sem_destroy(&done);
        (void)sem_destroy(&permits);
    }
    PoolWork(const PoolWork &) = delete;
    PoolWork &operator=(const PoolWork &) = delete;

    void Run() {
        const auto now = Clock::now();
        started.store(now.time_since_epoch().count(), std::memory_order_relaxed);
        while (length.count() != 0 && Clock::now() - now < length) {
        }
        (void)sem_post(&permits);
        if (nDone.fetch_add(1) + 1 == nDue.load())
            (void)sem_post(&done);
    }
};

// The time that an item takes off a batch: handed over by one thread, which then sleeps until the last item has run, so that
// the workers have all processors.
//   Limited  have no more items under way than there are workers, as a pool without a queue does by itself
template <class Pool, bool Limited>
void PoolItems(benchmark::State &state) {
    constexpr uint64_t kBatch = 2000;
    Pool pool(static_cast<int>(state.range(0)));
    PoolWork work;
    work.length = std::chrono::nanoseconds(state.range(1));
    for (int64_t n = 0; n < state.range(0); ++n)
        (void)sem_post(&work.permits);
    std::vector<double> samples;
    for (auto _ : state) {
        for (int nBatch = 0; nBatch < 5; ++nBatch) {
            const auto start = bench::Clock::now();
            work.nDue = work.nDone + kBatch;
            for (uint64_t n = 0; n < kBatch; ++n) {
                while (Limited && sem_wait(&work.permits) != 0) {
                }
                pool.Submit(&work);
            }
            pool.Drain();
            while (sem_wait(&work.done) != 0) {
            }
            samples.push_back(bench::MicrosecondsSince(start) / kBatch);
        }
        bench::TimeOfMedian(state, samples);
    }
}

// From the call that hands an item over to the item's first instruction, the workers asleep. How long a sleeper takes to
// wake depends most on what its processor does meanwhile, and a virtual machine's may need four times as long a
// second later. So the sides take turns, and each one's benchmark reports its own times.
class HandOver {
  public:
    virtual ~HandOver() = default;
    virtual double Microseconds() = 0;
};

template <class Pool>
class PoolHandOver : public HandOver {
  public:
    double Microseconds() override {
        std::this_thread::sleep_for(std::chrono::microseconds(300)); // lets the workers fall asleep
        const auto before = bench::Clock::now().time_since_epoch().count();
        m_pool.Submit(&m_work);
        ++m_nDue;
        while (m_work.nDone.load(std::memory_order_acquire) != m_nDue) {
            m_pool.Drain();
            std::this_thread::yield();
        }
        return static_cast<double>(m_work.started.load() - before) / 1e3;
    }

  private:
    PoolWork m_work; // before the pool, whose workers use it
    Pool m_pool{2};
    uint64_t m_nDue = 0;
};

struct HandOverSide {
    std::unique_ptr<HandOver> (*pfnMake)();
    std::vector<double> samples; // microseconds
};

inline std::deque<HandOverSide> &HandOverSides() {
    static std::deque<HandOverSide> s_sides;
    return s_sides;
}

inline void TakeTurns() {
    constexpr int kTurns = 200;
    std::vector<std::unique_ptr<HandOver>> sides;
    for (const HandOverSide &side : HandOverSides())
        sides.push_back(side.pfnMake());
    for (int n = 0; n < kTurns; ++n)
        for (size_t i = 0; i < sides.size(); ++i)
            HandOverSides()[i].samples.push_back(sides[i]->Microseconds());
}

inline void ReportHandOver(benchmark::State &state, HandOverSide &side) {
    if (side.samples.empty())
        TakeTurns();
    for (auto _ : state)
        bench::TimeOfMedian(state, side.samples);
}

// Registers a pool's side, with the bound on the time that the library may take in proportion; 0 = none.
template <class Pool>
void RegisterHandOver(const char *szSide, double fBound) {
    HandOverSides().push_back(
        {[]() -> std::unique_ptr<HandOver> { return std::make_unique<PoolHandOver<Pool>>(); }, {}});
    HandOverSide &side = HandOverSides().back();
    bench::ByHand(benchmark::RegisterBenchmark((std::string("pool_hand_over/") + szSide).c_str(),
                                               [&side, fBound](benchmark::State &state) {
                                                   ReportHandOver(state, side);
                                                   if (fBound > 0)
                                                       state.counters["bound"] = fBound;
                                               }));
}

// A case's side, with the bound on the time that the library may take in proportion; 0 = none.
inline auto *RegisterPoolCase(const char *szCase, const char *szSide, void (*pfnRun)(benchmark::State &),
                              double fBound) {
    auto *pCase = benchmark::RegisterBenchmark((std::string(szCase) + "/" + szSide).c_str(),
                                               [=](benchmark::State &state) {
                                                   pfnRun(state);
                                                   if (fBound > 0)
                                                       state.counters["bound"] = fBound;
                                               });
    bench::ByHand(pCase);
    return pCase;
}

// Empty items and items of 2 and 10 microseconds, for each of these numbers of workers.
inline void RegisterItems(const char *szCase, const char *szSide, void (*pfnRun)(benchmark::State &),
                          const std::vector<int64_t> &workers, double fBound) {
    RegisterPoolCase(szCase, szSide, pfnRun, fBound)
        ->ArgsProduct({workers, {0, 2000, 10000}})
        ->ArgNames({"workers", "item_ns"});
}

// Registers a peer's pool, before main. It is a side of all cases: as it is beside the flexible pool, which queues
// as it does, and with a limit on what is under way beside the fixed pool, which has no queue. Result: of no use,
// so that a constant's initialiser can call it.
template <class Pool>
int RegisterPeer(const char *szName, const std::vector<int64_t> &workers = {1, 2, 8}) {
    RegisterItems("pool_items", szName, PoolItems<Pool, false>, workers, 1.0);
    RegisterItems("pool_items_without_queue", szName, PoolItems<Pool, true>, workers, 1.0);
    RegisterHandOver<Pool>(szName, 1.0);
    return 0;
}

#endif
