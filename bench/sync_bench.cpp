// Mutexes, semaphores and conditions beside the POSIX calls they rest on.
#include <fcntl.h>
#include <pthread.h>
#include <random>
#include <semaphore.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vyx/sync.h>

#include "support/bench.h"

namespace {

// The two sides under common names. Each function is one call.
struct Raw {
    static int Lock(pthread_mutex_t *pMutex) { return pthread_mutex_lock(pMutex); }
    static int Unlock(pthread_mutex_t *pMutex) { return pthread_mutex_unlock(pMutex); }
    static int Signal(pthread_cond_t *pCond) { return pthread_cond_signal(pCond); }
    static int Wait(pthread_cond_t *pCond, pthread_mutex_t *pMutex) {
        return pthread_cond_wait(pCond, pMutex);
    }
};

struct Vyx {
    static int Lock(pthread_mutex_t *pMutex) { return VYX_MutexLock(pMutex); }
    static int Unlock(pthread_mutex_t *pMutex) { return VYX_MutexUnlock(pMutex); }
    static int Signal(pthread_cond_t *pCond) { return VYX_CondSignal(pCond); }
    static int Wait(pthread_cond_t *pCond, pthread_mutex_t *pMutex) { return VYX_CondWait(pCond, pMutex); }
};

template <class Api>
void LockUnlock(benchmark::State &state, pthread_mutex_t *pMutex) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Api::Lock(pMutex));
        benchmark::DoNotOptimize(Api::Unlock(pMutex));
    }
}

template <class Api>
void NormalMutex(benchmark::State &state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    LockUnlock<Api>(state, &mutex);
    (void)pthread_mutex_destroy(&mutex);
}

template <class Api>
void RecursiveMutex(benchmark::State &state) {
    pthread_mutexattr_t attr;
    (void)pthread_mutexattr_init(&attr);
    (void)pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    (void)pthread_mutex_init(&mutex, &attr);
    (void)pthread_mutexattr_destroy(&attr);
    LockUnlock<Api>(state, &mutex);
    (void)pthread_mutex_destroy(&mutex);
}

void MutexClass(benchmark::State &state) {
    VYX_Mutex mutex;
    for (auto _ : state) {
        benchmark::DoNotOptimize(mutex.Lock());
        benchmark::DoNotOptimize(mutex.Unlock());
    }
}

// A named semaphore, since that is what the library's are.
void RawPostWait(benchmark::State &state) {
    const std::string name = "/vyx_bench_" + std::to_string(getpid());
    sem_t *pSem = sem_open(name.c_str(), O_CREAT | O_EXCL, 0600, 0);
    if (pSem == SEM_FAILED)
        return state.SkipWithError("no semaphore");
    (void)sem_unlink(name.c_str());
    for (auto _ : state) {
        benchmark::DoNotOptimize(sem_post(pSem));
        benchmark::DoNotOptimize(sem_wait(pSem));
    }
    (void)sem_close(pSem);
}

void VyxPostWait(benchmark::State &state) {
    VYX_SEM_T hSem = nullptr;
    if (VYX_SemCreate(&hSem, 0) != VYX_OK)
        return state.SkipWithError("no semaphore");
    for (auto _ : state) {
        benchmark::DoNotOptimize(VYX_SemPost(&hSem));
        benchmark::DoNotOptimize(VYX_SemWait(&hSem));
    }
    (void)VYX_SemDestroy(&hSem);
}

template <class Api>
void SignalNobody(benchmark::State &state) {
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    for (auto _ : state)
        benchmark::DoNotOptimize(Api::Signal(&cond));
    (void)pthread_cond_destroy(&cond);
}

// A thread that goes back to sleep on a condition whenever it has been woken.
class Sleeper {
  public:
    Sleeper() : m_thread([this] { Run(); }) {}
    ~Sleeper() {
        AwaitSleep(true);
        (void)Raw::Signal(&hCond);
        m_thread.join();
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;

    // Returns when the thread is asleep, with its leave to wake up.
    void AwaitSleep(bool bStop) {
        for (bool bAsleep = false; !bAsleep;) {
            (void)Raw::Lock(&m_hMutex);
            bAsleep = m_bWaiting;
            m_bWoken = bAsleep;
            m_bStop = bStop;
            (void)Raw::Unlock(&m_hMutex);
        }
        // The mutex was given up; the kernel needs a moment more to put the thread to sleep.
        for (const auto start = bench::Clock::now(); bench::MicrosecondsSince(start) < 20;) {
        }
    }

    pthread_cond_t hCond = PTHREAD_COND_INITIALIZER;

  private:
    void Run() {
        (void)Raw::Lock(&m_hMutex);
        for (bool bStop = false; !bStop; bStop = m_bStop) {
            m_bWaiting = true;
            while (!m_bWoken)
                (void)Raw::Wait(&hCond, &m_hMutex);
            m_bWaiting = false;
            m_bWoken = false;
        }
        (void)Raw::Unlock(&m_hMutex);
    }

    pthread_mutex_t m_hMutex = PTHREAD_MUTEX_INITIALIZER;
    bool m_bWaiting = false; // these three under the mutex
    bool m_bWoken = false;
    bool m_bStop = false;
    std::thread m_thread; // last, as it uses all of the above
};

template <class Api>
double MicrosecondsToSignal(Sleeper &sleeper) {
    sleeper.AwaitSleep(false);
    const auto start = bench::Clock::now();
    benchmark::DoNotOptimize(Api::Signal(&sleeper.hCond));
    return bench::MicrosecondsSince(start);
}

struct SignalTimes {
    std::vector<double> raw;
    std::vector<double> vyx;
};

// What waking a thread costs depends most on the processor that it sleeps on, and on what that does meanwhile: a virtual
// machine's may need ten times as long a second later. So both sides wake the same thread, in a random order: the system may
// move it at every second wake-up. Only the signal itself is timed.
SignalTimes TakeTurns() {
    SignalTimes times;
    Sleeper sleeper;
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i)
        if (random() % 2 == 0)
            times.raw.push_back(MicrosecondsToSignal<Raw>(sleeper));
        else
            times.vyx.push_back(MicrosecondsToSignal<Vyx>(sleeper));
    return times;
}

SignalTimes &Times() {
    static SignalTimes s_times = TakeTurns();
    return s_times;
}

template <std::vector<double> SignalTimes::*pSide>
void SignalSleeper(benchmark::State &state) {
    for (auto _ : state)
        bench::TimeOfMedian(state, Times().*pSide);
}

} // namespace

int main(int argc, char **argv) {
    bench::Compare("mutex_lock_unlock", {{"raw", NormalMutex<Raw>, 1.10}, {"vyx", NormalMutex<Vyx>}});
    bench::Compare("mutex_recursive_lock_unlock",
                   {{"raw", RecursiveMutex<Raw>, 1.10}, {"vyx", RecursiveMutex<Vyx>}});
    bench::Compare("mutex_class_lock_unlock", {{"raw", RecursiveMutex<Raw>, 1.10}, {"vyx", MutexClass}});
    bench::Compare("sem_post_wait", {{"raw", RawPostWait, 1.10}, {"vyx", VyxPostWait}});
    bench::Compare("cond_signal_nobody", {{"raw", SignalNobody<Raw>, 1.10}, {"vyx", SignalNobody<Vyx>}});
    bench::Compare(
        "cond_signal_sleeper",
        {{"raw", SignalSleeper<&SignalTimes::raw>, 1.10}, {"vyx", SignalSleeper<&SignalTimes::vyx>}},
        bench::ByHand);
    return bench::Run(argc, argv);
}
