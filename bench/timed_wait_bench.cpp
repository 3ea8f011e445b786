// Bounded waits beside those of the platform: a count that is there, from a post to the return, how late a limit is, and
// what pending waits and the start of the library cost.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <semaphore.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vyx/frame.h>
#include <vyx/sync.h>
#include <vyx/thread.h>

#include "support/bench.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr uint32_t kLongWait = 600000; // milliseconds; never runs out here
constexpr uint32_t kLimit = 20;        // milliseconds; how late it is

struct timespec In(uint32_t nMilliseconds) {
    struct timespec end;
    (void)clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += nMilliseconds / 1000;
    end.tv_nsec += static_cast<long>(nMilliseconds % 1000) * 1000000;
    if (end.tv_nsec >= 1000000000) {
        end.tv_nsec -= 1000000000;
        ++end.tv_sec;
    }
    return end;
}

// The two sides under common names: a semaphore that starts empty, with post and bounded wait.
class RawSem {
  public:
    RawSem() {
        static std::atomic<int> s_nNext{0};
        const std::string name = "/vyx_bench_" + std::to_string(getpid()) + "_" + std::to_string(s_nNext++);
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
    int Try() { return sem_trywait(m_pSem); }
    int Wait(uint32_t nMilliseconds) {
        const struct timespec end = In(nMilliseconds);
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
    int Try() { return VYX_SemTimedWait(&m_hSem, 0); }
    int Wait(uint32_t nMilliseconds) { return VYX_SemTimedWait(&m_hSem, nMilliseconds); }

  private:
    VYX_SEM_T m_hSem = nullptr;
};

// A post, and taking its count in one way or another.
template <class Sem, int (Sem::*pfnPost)(), class Take>
void PostAndTake(benchmark::State &state, Take take) {
    Sem sem;
    if (!sem.IsOpen())
        return state.SkipWithError("no semaphore");
    for (auto _ : state) {
        benchmark::DoNotOptimize((sem.*pfnPost)());
        benchmark::DoNotOptimize(take(sem));
    }
}
template <class Sem>
void CountThere(benchmark::State &state) {
    PostAndTake<Sem, &Sem::Post>(state, [](Sem &sem) { return sem.Wait(kLongWait); });
}
template <class Sem>
void CountTried(benchmark::State &state) {
    PostAndTake<Sem, &Sem::Post>(state, [](Sem &sem) { return sem.Try(); });
}

// A thread that waits for a semaphore, again and again.
template <class Sem>
class Waiter {
  public:
    explicit Waiter(Sem &sem) : m_sem(sem), m_thread([this] { Loop(); }) {}
    ~Waiter() {
        m_bEnd = true;
        (void)m_sem.Post();
        m_thread.join();
    }
    Waiter(const Waiter &) = delete;
    Waiter &operator=(const Waiter &) = delete;

    // Microseconds from just before a post until the wait has returned.
    double Post() {
        const int64_t nBefore = m_nReturned.load();
        const auto start = bench::Clock::now();
        (void)m_sem.Post();
        while (m_nReturned.load() == nBefore)
            std::this_thread::sleep_for(microseconds(50));
        return std::chrono::duration<double, std::micro>(m_end - start).count();
    }

  private:
    void Loop() {
        while (!m_bEnd && m_sem.Wait(kLongWait) == 0) {
            m_end = bench::Clock::now();
            ++m_nReturned;
        }
    }
    Sem &m_sem;
    std::atomic<bool> m_bEnd{false};
    bench::Clock::time_point m_end; // of the last wait; published by the count
    std::atomic<int64_t> m_nReturned{0};
    std::thread m_thread;
};

template <class Sem>
void MeasurePosts(benchmark::State &state, int nSamples, double (*fnFigure)(std::vector<double> &)) {
    Sem sem;
    if (!sem.IsOpen())
        return state.SkipWithError("no semaphore");
    Waiter<Sem> waiter(sem);
    std::vector<double> samples;
    for (auto _ : state)
        for (int i = 0; i < nSamples; ++i) {
            std::this_thread::sleep_for(microseconds(200)); // until it sleeps
            samples.push_back(waiter.Post());
        }
    bench::Observed(state, fnFigure(samples), "us");
}

double Mean(std::vector<double> &samples) {
    double fSum = 0;
    for (const double fSample : samples)
        fSum += fSample;
    return fSum / static_cast<double>(samples.size());
}
double Percentile99(std::vector<double> &samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() * 99 / 100];
}

template <class Sem>
void PostMedian(benchmark::State &state) {
    MeasurePosts<Sem>(state, 500, bench::Median);
}
template <class Sem>
void PostMean(benchmark::State &state) {
    MeasurePosts<Sem>(state, 500, Mean);
}
template <class Sem>
void PostPercentile(benchmark::State &state) {
    MeasurePosts<Sem>(state, 2000, Percentile99);
}

// A wait for a condition that nobody signals.
struct Monitor {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
};
struct RawCond : Monitor {
    int Wait(uint32_t nMilliseconds) {
        const struct timespec end = In(nMilliseconds);
        (void)pthread_mutex_lock(&mutex);
        const int iResult = pthread_cond_timedwait(&cond, &mutex, &end);
        (void)pthread_mutex_unlock(&mutex);
        return iResult;
    }
};
struct VyxCond : Monitor {
    int Wait(uint32_t nMilliseconds) {
        (void)VYX_MutexLock(&mutex);
        const int iResult = VYX_CondTimedWait(&cond, &mutex, nMilliseconds);
        (void)VYX_MutexUnlock(&mutex);
        return iResult;
    }
};

// Every wait runs out of time. The figure is the time above the limit.
template <class Waited>
void Overshoot(benchmark::State &state) {
    Waited waited;
    std::vector<double> samples;
    for (auto _ : state)
        for (int i = 0; i < 25; ++i) {
            const auto start = bench::Clock::now();
            if (waited.Wait(kLimit) == 0)
                return state.SkipWithError("a wait on nothing succeeded");
            samples.push_back(bench::MicrosecondsSince(start) - kLimit * 1000.0);
        }
    bench::Observed(state, bench::Median(samples), "us");
}

// Threads that wait for semaphores, ten for each, until the object goes.
template <class Sem>
class Crowd {
  public:
    explicit Crowd(size_t nMembers) : m_semaphores((nMembers + 9) / 10) {
        for (size_t i = 0; i < nMembers; ++i) {
            m_members.push_back({&m_semaphores[i / 10], &m_nArrived});
        }
        for (Member &member : m_members)
            m_threads.push_back(VYX_Thread_Create(WaitLong, &member, 65536, 0, 0, 0));
        while (m_nArrived < nMembers)
            std::this_thread::sleep_for(milliseconds(1));
        std::this_thread::sleep_for(milliseconds(300)); // from there into the wait
    }
    ~Crowd() {
        for (const Member &member : m_members)
            (void)member.pSem->Post();
        for (const VYX_THREAD_T hThread : m_threads)
            (void)VYX_Thread_Wait(hThread);
    }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;

  private:
    struct Member {
        Sem *pSem;
        std::atomic<size_t> *pArrived;
    };
    static void *WaitLong(void *pParam) {
        auto *pMember = static_cast<Member *>(pParam);
        ++*pMember->pArrived;
        (void)pMember->pSem->Wait(kLongWait);
        return nullptr;
    }
    std::atomic<size_t> m_nArrived{0};
    std::vector<Sem> m_semaphores;
    std::vector<Member> m_members;
    std::vector<VYX_THREAD_T> m_threads;
};

// Milliseconds of processor time that the whole process spends in a second while as many waits are pending as the size says.
template <class Sem>
void PendingCpu(benchmark::State &state) {
    constexpr milliseconds kWindow(500);
    const Crowd<Sem> crowd(static_cast<size_t>(state.range(0)));
    double fRate = 0;
    for (auto _ : state) {
        struct timespec before;
        struct timespec after;
        (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
        std::this_thread::sleep_for(kWindow);
        (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
        fRate = (static_cast<double>(after.tv_sec - before.tv_sec) * 1e3 +
                 static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e6) *
                1000 / static_cast<double>(kWindow.count());
    }
    bench::Observed(state, fRate, "ms/s", std::max(2.0, 0.002 * static_cast<double>(state.range(0))));
}

// What happens once in a process is looked at in processes of its own: this program, with the name of the look.
struct Look {
    const char *szName;
    double (*fnTake)();
};

// Kilobytes of memory that this process shares with nobody and has written to.
double PrivateKilobytes() {
    FILE *pFile = std::fopen("/proc/self/smaps_rollup", "r");
    long iFound = -1;
    for (char szLine[256]; pFile != nullptr && std::fgets(szLine, sizeof szLine, pFile) != nullptr;)
        if (std::sscanf(szLine, "Private_Dirty: %ld", &iFound) == 1)
            break;
    if (pFile != nullptr)
        (void)std::fclose(pFile);
    return static_cast<double>(iFound);
}

template <class Call>
double MicrosecondsOf(Call call) {
    const auto start = bench::Clock::now();
    (void)call();
    return bench::MicrosecondsSince(start);
}

// The median of what a call costs between a start and a stop that are repeated.
template <bool kStart>
double Again() {
    std::vector<double> samples;
    for (int i = 0; i < 200; ++i) {
        const double fStart = MicrosecondsOf(VYX_Init);
        std::this_thread::sleep_for(microseconds(200)); // until the service sleeps
        const double fStop = MicrosecondsOf(VYX_Fini);
        samples.push_back(kStart ? fStart : fStop);
    }
    return bench::Median(samples);
}

// The same of a plain thread that sleeps, is told to end, and is awaited: less than that no stop can cost that leaves no
// thread behind.
double Join() {
    std::vector<double> samples;
    for (int i = 0; i < 200; ++i) {
        sem_t end;
        (void)sem_init(&end, 0, 0);
        std::thread thread([&end] { (void)sem_wait(&end); });
        std::this_thread::sleep_for(microseconds(200)); // until it sleeps
        samples.push_back(MicrosecondsOf([&] {
            (void)sem_post(&end);
            thread.join();
            return 0;
        }));
        (void)sem_destroy(&end);
    }
    return bench::Median(samples);
}

constexpr int kStaleNames = 3000;
double FirstSemaphore() {
    VYX_SEM_T hSem = nullptr;
    const double fTook = MicrosecondsOf([&hSem] { return VYX_SemCreate(&hSem, 0); });
    (void)VYX_SemDestroy(&hSem);
    return fTook;
}

const Look kLooks[] = {
    {"first_start", [] { return MicrosecondsOf(VYX_Init); }},
    {"first_start_memory",
     [] {
         const double fBefore = PrivateKilobytes();
         (void)VYX_Init();
         return PrivateKilobytes() - fBefore;
     }},
    {"start_again", Again<true>},
    {"stop_again", Again<false>},
    {"first_semaphore", FirstSemaphore},
    {"join", Join},
};

// The figure that a process of its own has found. Negative if there was none.
double Ask(const char *szLook) {
    const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --look=" + szLook;
    FILE *pPipe = popen(command.c_str(), "r");
    double fFigure = -1;
    const bool bRead = pPipe != nullptr && std::fscanf(pPipe, "%lf", &fFigure) == 1;
    if (pPipe != nullptr)
        (void)pclose(pPipe);
    return bRead ? fFigure : -1;
}

template <int iLook>
void Asked(benchmark::State &state) {
    constexpr int kProcesses = iLook == 0 ? 9 : 1; // what happens once in a process needs several
    std::vector<double> figures;
    for (auto _ : state)
        for (int i = 0; i < kProcesses; ++i)
            figures.push_back(Ask(kLooks[iLook].szName));
    const double fFigure = bench::Median(figures);
    if (fFigure < 0)
        return state.SkipWithError("the process of its own did not answer");
    const double fLimits[] = {100, 100, 30, 10, 5000, 0};
    bench::Observed(state, fFigure, iLook == 1 ? "KiB" : "us", fLimits[iLook]);
}

std::string NameOf(int iNumber) {
    char szName[64];
    (void)std::snprintf(szName, sizeof szName, "vyx_named_semaphore_%05d", iNumber);
    return szName;
}

// Names that somebody else has left behind.
void AskBehindStaleNames(benchmark::State &state) {
    std::vector<std::string> names;
    for (int i = 0; i < kStaleNames; ++i) {
        sem_t *pSem = sem_open(NameOf(i).c_str(), O_CREAT | O_EXCL, 0600, 0);
        if (pSem == SEM_FAILED)
            continue; // it is already there
        names.push_back(NameOf(i));
        (void)sem_close(pSem);
    }
    Asked<4>(state);
    for (const std::string &name : names)
        (void)sem_unlink(name.c_str());
}

// Result: true if this process is one of those that look.
bool LookedFor(const char *szArgument) {
    for (const Look &look : kLooks)
        if (std::string("--look=") + look.szName == szArgument) {
            std::printf("%f\n", look.fnTake());
            return true;
        }
    return false;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && LookedFor(argv[1]))
        return 0;
    bench::Compare(
        "sem_timed_wait_count_there",
        {{"try", CountTried<VyxSem>, 1.5}, {"raw", CountThere<RawSem>}, {"vyx", CountThere<VyxSem>}});
    bench::Figure("sem_post_to_return_median",
                  {{"raw", PostMedian<RawSem>, 1.5}, {"vyx", PostMedian<VyxSem>}});
    bench::Figure("sem_post_to_return_mean", {{"raw", PostMean<RawSem>, 1.5}, {"vyx", PostMean<VyxSem>}});
    bench::Figure("sem_post_to_return_99_percent",
                  {{"raw", PostPercentile<RawSem>, 1.5}, {"vyx", PostPercentile<VyxSem>}});
    bench::Figure("sem_20ms_late", {{"raw", Overshoot<RawSem>, 1.1}, {"vyx", Overshoot<VyxSem>}});
    bench::Figure("cond_20ms_late", {{"raw", Overshoot<RawCond>, 1.1}, {"vyx", Overshoot<VyxCond>}});
    bench::Figure("pending_cpu", {{"raw", PendingCpu<RawSem>}, {"vyx", PendingCpu<VyxSem>}}, "waits",
                  {1, 10, 100, 1000, 10000});
    bench::Figure("first_start", {{"vyx", Asked<0>}});
    bench::Figure("first_start_memory", {{"vyx", Asked<1>}});
    bench::Figure("start_again", {{"vyx", Asked<2>}});
    bench::Figure("stop_again", {{"vyx", Asked<3>}, {"raw", Asked<5>}});
    bench::Figure("first_semaphore_3000_stale_names", {{"vyx", AskBehindStaleNames}});
    return bench::Run(argc, argv);
}
