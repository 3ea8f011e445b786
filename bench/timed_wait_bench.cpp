// Bounded waits, and what the thread that keeps them costs.
//
// The service thread is watched from outside, through what the kernel says about it in /proc.
#include <atomic>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <random>
#include <semaphore.h>
#include <string>
#include <thread>
#include <unistd.h>

#include <dirent.h>
#include <vyx/sync.h>
#include <vyx/thread.h>

#include "support/bench.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr uint32_t kLongWait = 600000; // milliseconds; never runs out here
constexpr int kCrowd = 1000;           // waits pending at a time

// The two sides under common names: a semaphore that starts empty, with post and bounded wait.
class RawSem {
  public:
    RawSem() {
        const std::string name = "/vyx_bench_" + std::to_string(getpid());
        m_pSem = sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, 0);
        (void)sem_unlink(name.c_str());
    }
    ~RawSem() {
        if (IsOpen())
            (void)sem_close(m_pSem);
    }
    RawSem(const RawSem &) = delete;
    RawSem &operator=(const RawSem &) = delete;

    bool IsOpen() const { return m_pSem != SEM_FAILED; }
    int Post() { return sem_post(m_pSem); }
    int Wait(uint32_t nMilliseconds) {
        struct timespec end;
        (void)clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += nMilliseconds / 1000;
        end.tv_nsec += static_cast<long>(nMilliseconds % 1000) * 1000000;
        if (end.tv_nsec >= 1000000000) {
            end.tv_nsec -= 1000000000;
            ++end.tv_sec;
        }
        return sem_timedwait(m_pSem, &end);
    }

  private:
    sem_t *m_pSem;
};

class VyxSem {
  public:
    VyxSem() { (void)VYX_SemCreate(&m_hSem, 0); }
    ~VyxSem() { (void)VYX_SemDestroy(&m_hSem); }
    VyxSem(const VyxSem &) = delete;
    VyxSem &operator=(const VyxSem &) = delete;

    bool IsOpen() const { return m_hSem != nullptr; }
    int Post() { return VYX_SemPost(&m_hSem); }
    int Wait(uint32_t nMilliseconds) { return VYX_SemTimedWait(&m_hSem, nMilliseconds); }

  private:
    VYX_SEM_T m_hSem = nullptr;
};

// One wait in a thread of its own that a post ends. Result: microseconds from just before the post until the
// wait has returned; negative if it failed.
template <class Sem>
double PostToReturn(Sem &sem, std::minstd_rand &random) {
    std::atomic<bool> bStarted{false};
    std::atomic<bool> bTaken{false};
    bench::Clock::time_point end;
    std::thread waiter([&] {
        bStarted = true;
        bTaken = sem.Wait(kLongWait) == 0;
        end = bench::Clock::now();
    });
    while (!bStarted)
        std::this_thread::yield();
    // Until it sleeps, and then on to any moment of the service's rhythm.
    std::this_thread::sleep_for(milliseconds(1) + microseconds(random() % 1000));
    const auto start = bench::Clock::now();
    (void)sem.Post();
    waiter.join();
    return bTaken ? std::chrono::duration<double, std::micro>(end - start).count() : -1;
}

template <class Sem>
void MeasurePosts(benchmark::State &state, int nSamples, double fLimit) {
    std::minstd_rand random;
    std::vector<double> samples;
    Sem sem;
    for (auto _ : state)
        while (sem.IsOpen() && static_cast<int>(samples.size()) < nSamples)
            samples.push_back(PostToReturn(sem, random));
    if (samples.empty() || *std::min_element(samples.begin(), samples.end()) < 0)
        return state.SkipWithError("a wait failed");
    bench::Observed(state, bench::Median(samples), "us", fLimit);
}

template <class Sem>
void PostAnswered(benchmark::State &state) {
    MeasurePosts<Sem>(state, 200, std::is_same_v<Sem, VyxSem> ? 300 : 0);
}

// Every wait runs out of time. The figure is the time above the 20 milliseconds asked for.
template <class Wait>
void MeasureOvershoot(benchmark::State &state, Wait wait, double fLimit) {
    std::vector<double> samples;
    bool bFailed = false;
    for (auto _ : state)
        for (int i = 0; i < 25; ++i) {
            const auto start = bench::Clock::now();
            bFailed = wait() == 0 || bFailed;
            samples.push_back(bench::MicrosecondsSince(start) - 20000);
        }
    if (bFailed)
        return state.SkipWithError("a wait on nothing succeeded");
    bench::Observed(state, bench::Median(samples), "us", fLimit);
}

template <class Sem>
void SemOvershoot(benchmark::State &state) {
    Sem sem;
    if (!sem.IsOpen())
        return state.SkipWithError("no semaphore");
    MeasureOvershoot(
        state, [&sem] { return sem.Wait(20); }, std::is_same_v<Sem, VyxSem> ? 1000 : 0);
}

// The service thread, found by its name.
class Service {
  public:
    Service() {
        DIR *pDir = opendir("/proc/self/task");
        while (const dirent *pEntry = pDir == nullptr ? nullptr : readdir(pDir)) {
            const std::string task = std::string("/proc/self/task/") + pEntry->d_name;
            std::string name;
            if (std::ifstream(task + "/comm") >> name && name == "timer_svc")
                m_task = task;
        }
        if (pDir != nullptr)
            (void)closedir(pDir);
    }

    // Times it was taken off a processor, by its own will or not; negative if the kernel does not tell. Each
    // is followed by one wake-up.
    double Switches() const {
        double fTotal = 0;
        int nFound = 0;
        std::ifstream status(m_task + "/status");
        for (std::string word; status >> word;) {
            double fCount = 0;
            if ((word == "voluntary_ctxt_switches:" || word == "nonvoluntary_ctxt_switches:") &&
                status >> fCount) {
                fTotal += fCount;
                ++nFound;
            }
        }
        return nFound == 2 ? fTotal : -1;
    }

    // Seconds of processor time; negative if the kernel does not tell.
    double CpuSeconds() const {
        double fNanoseconds = 0;
        return std::ifstream(m_task + "/schedstat") >> fNanoseconds ? fNanoseconds * 1e-9 : -1;
    }

  private:
    std::string m_task;
};

// How much a count of the service's grows in a second, watched for some seconds.
void WatchService(benchmark::State &state, double (Service::*pfnCount)() const, double fScale,
                  const char *szUnit, double fLimit) {
    const Service service;
    double fRate = -1;
    for (auto _ : state) {
        const double fBefore = (service.*pfnCount)();
        const auto start = bench::Clock::now();
        std::this_thread::sleep_for(milliseconds(3000));
        const double fAfter = (service.*pfnCount)();
        if (fBefore >= 0 && fAfter >= fBefore)
            fRate = (fAfter - fBefore) / (bench::MicrosecondsSince(start) * 1e-6);
    }
    if (fRate < 0)
        return state.SkipWithError("the service thread cannot be watched");
    bench::Observed(state, fRate * fScale, szUnit, fLimit);
}

// So that "nothing pending" is seen after work, not only before the first.
void WorkOnce() {
    VyxSem sem;
    (void)sem.Wait(1);
}

void IdleWakeUps(benchmark::State &state) {
    WorkOnce();
    WatchService(state, &Service::Switches, 1, "/s", 5);
}

void IdleCpu(benchmark::State &state) {
    WorkOnce();
    WatchService(state, &Service::CpuSeconds, 100, "% of a core", 0.1);
}

// Threads that each wait for a semaphore of their own, until the object goes.
class Crowd {
  public:
    Crowd() {
        for (int i = 0; i < kCrowd; ++i) {
            auto pMember = std::make_unique<Member>();
            pMember->pArrived = &m_nArrived;
            if (pMember->sem.IsOpen())
                pMember->hThread = VYX_Thread_Create(WaitLong, pMember.get(), 65536, 0, 0, 0);
            if (pMember->hThread == VYX_INVALID_THREAD)
                return;
            m_members.push_back(std::move(pMember));
        }
        while (m_nArrived < kCrowd)
            std::this_thread::sleep_for(milliseconds(1));
        std::this_thread::sleep_for(milliseconds(200)); // from there into the wait
    }
    ~Crowd() {
        for (auto &pMember : m_members)
            (void)pMember->sem.Post();
        for (auto &pMember : m_members)
            (void)VYX_Thread_Wait(pMember->hThread);
    }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;

    bool IsComplete() const { return m_members.size() == kCrowd; }

  private:
    struct Member {
        VyxSem sem;
        VYX_THREAD_T hThread = VYX_INVALID_THREAD;
        std::atomic<int> *pArrived = nullptr;
    };

    static void *WaitLong(void *pParam) {
        auto *pMember = static_cast<Member *>(pParam);
        ++*pMember->pArrived;
        (void)pMember->sem.Wait(kLongWait);
        return nullptr;
    }

    std::atomic<int> m_nArrived{0};
    std::vector<std::unique_ptr<Member>> m_members;
};

void CrowdCpu(benchmark::State &state) {
    const Crowd crowd;
    if (!crowd.IsComplete())
        return state.SkipWithError("not enough threads or semaphores");
    WatchService(state, &Service::CpuSeconds, 100, "% of a core", 60);
}

void CrowdPostAnswered(benchmark::State &state) {
    const Crowd crowd;
    if (!crowd.IsComplete())
        return state.SkipWithError("not enough threads or semaphores");
    MeasurePosts<VyxSem>(state, 100, 3000);
}

} // namespace

int main(int argc, char **argv) {
    bench::Figure("sem_timed_wait_post_to_return",
                  {{"raw", PostAnswered<RawSem>}, {"vyx", PostAnswered<VyxSem>}}, 5);
    bench::Figure("sem_timed_wait_overshoot_of_20ms",
                  {{"raw", SemOvershoot<RawSem>}, {"vyx", SemOvershoot<VyxSem>}}, 3);
    bench::Figure("idle_service_wake_ups", {{"vyx", IdleWakeUps}}, 3);
    bench::Figure("idle_service_cpu", {{"vyx", IdleCpu}}, 3);
    bench::Figure("1000_pending_service_cpu", {{"vyx", CrowdCpu}}, 3);
    bench::Figure("1000_pending_post_to_return", {{"vyx", CrowdPostAnswered}}, 3);
    return bench::Run(argc, argv);
}
