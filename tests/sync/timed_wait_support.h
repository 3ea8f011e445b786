// What the tests of bounded waits share.
#ifndef VYX_TESTS_SYNC_TIMED_WAIT_SUPPORT_H
#define VYX_TESTS_SYNC_TIMED_WAIT_SUPPORT_H

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

#include <vyx/vyx.h>

#include "support/support.h"

namespace support {

constexpr uint32_t kLong = 600000; // milliseconds; a wait that must not run out during a test

// A semaphore for the length of a block.
struct Semaphore {
    VYX_SEM_T h = nullptr;
    explicit Semaphore(uint32_t nInitial = 0) { (void)VYX_SemCreate(&h, nInitial); }
    ~Semaphore() { (void)VYX_SemDestroy(&h); }
    Semaphore(const Semaphore &) = delete;
    Semaphore &operator=(const Semaphore &) = delete;

    int32_t Wait(uint32_t nTimeOut) { return VYX_SemTimedWait(&h, nTimeOut); }
    int32_t Post() { return VYX_SemPost(&h); }
    // Takes what is left. Result: how many that were.
    int Drain() {
        int nTaken = 0;
        while (Wait(0) == VYX_OK)
            ++nTaken;
        return nTaken;
    }
};

// A mutex with a condition.
struct Monitor {
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    Monitor() {
        (void)VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL);
        (void)VYX_CondCreate(&cond);
    }
    ~Monitor() {
        (void)VYX_CondDestroy(&cond);
        (void)VYX_MutexDestroy(&mutex);
    }
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    void Lock() { (void)VYX_MutexLock(&mutex); }
    void Unlock() { (void)VYX_MutexUnlock(&mutex); }
    // One bounded wait, the mutex taken for it.
    int32_t Wait(uint32_t nTimeOut) {
        Lock();
        const int32_t iResult = VYX_CondTimedWait(&cond, &mutex, nTimeOut);
        Unlock();
        return iResult;
    }
};

// A call on a thread of its own, with its result.
class Async {
  public:
    template <class Call>
    explicit Async(Call call)
        : m_thread([this, call] {
              m_iTask = gettid();
              m_iResult = call();
              m_bDone = true;
          }) {}
    ~Async() {
        if (m_thread.joinable())
            m_thread.join();
    }
    Async(const Async &) = delete;
    Async &operator=(const Async &) = delete;

    bool Done() const { return m_bDone; }
    // Whether the call sleeps, as the kernel sees it.
    bool Asleep() const {
        std::ifstream status("/proc/self/task/" + std::to_string(m_iTask) + "/status");
        for (std::string strLine; std::getline(status, strLine);)
            if (strLine.rfind("State:\tS", 0) == 0)
                return true;
        return false;
    }
    pthread_t Handle() { return m_thread.native_handle(); }
    int32_t Result() {
        m_thread.join();
        return m_iResult;
    }

  private:
    std::atomic<pid_t> m_iTask{0};
    int32_t m_iResult = 12345;
    std::atomic<bool> m_bDone{false};
    std::thread m_thread;
};

} // namespace support

#endif
