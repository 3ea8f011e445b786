// What the tests of bounded waits share.
#ifndef VYX_TESTS_SYNC_TIMED_WAIT_SUPPORT_H
#define VYX_TESTS_SYNC_TIMED_WAIT_SUPPORT_H

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vyx/vyx.h>

#include "support/support.h"

namespace support {

constexpr uint32_t kLong = 600000; // milliseconds; a wait that must not run out during a test

// A semaphore for the length of a block.
struct Semaphore {
    VYX_SEM_T h = nullptr;
    int32_t iCreated;
    explicit Semaphore(uint32_t nInitial = 0) : iCreated(VYX_SemCreate(&h, nInitial)) {}
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

// Ends the process if a block takes longer than ten (scaled) seconds: threads that block each other for good
// cannot be joined.
class Watchdog {
  public:
    explicit Watchdog(const char *szComplaint) : m_szComplaint(szComplaint), m_thread([this] { Watch(); }) {}
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_bDone = true;
        }
        m_done.notify_all();
        m_thread.join();
    }
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

  private:
    void Watch() {
        const auto end = Clock::now() + std::chrono::seconds(10) * TimeScale();
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_done.wait_until(lock, end, [this] { return m_bDone; }))
            return;
        (void)std::fprintf(stderr, "[  FAILED  ] %s\n", m_szComplaint);
        _exit(1);
    }

    const char *m_szComplaint;
    bool m_bDone = false;
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::thread m_thread;
};

// A call on a thread of its own, with its result.
class Async {
  public:
    template <class Call>
    explicit Async(Call call)
        : m_thread([this, call] {
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
    pthread_t Handle() { return m_thread.native_handle(); }
    int32_t Result() {
        m_thread.join();
        return m_iResult;
    }

  private:
    int32_t m_iResult = 12345;
    std::atomic<bool> m_bDone{false};
    std::thread m_thread;
};

// The names of the entries of a directory, "." and ".." left out.
inline std::vector<std::string> Entries(const std::string &strFolder) {
    std::vector<std::string> names;
    DIR *pFolder = opendir(strFolder.c_str());
    if (pFolder == nullptr)
        return names;
    for (const dirent *pEntry = readdir(pFolder); pEntry != nullptr; pEntry = readdir(pFolder))
        if (pEntry->d_name[0] != '.')
            names.emplace_back(pEntry->d_name);
    (void)closedir(pFolder);
    return names;
}

// The /proc folder of this process's thread of that name; empty if there is none.
inline std::string TaskNamed(const std::string &strName) {
    for (const std::string &strTask : Entries("/proc/self/task")) {
        std::string strFound;
        std::getline(std::ifstream("/proc/self/task/" + strTask + "/comm"), strFound);
        if (strFound == strName)
            return "/proc/self/task/" + strTask;
    }
    return {};
}

// One line's value in a task's status, for example "SigBlk".
inline std::string StatusOf(const std::string &strTask, const std::string &strField) {
    std::ifstream status(strTask + "/status");
    for (std::string strLine; std::getline(status, strLine);)
        if (strLine.rfind(strField + ":", 0) == 0)
            return strLine.substr(strLine.find_first_not_of(" \t", strField.size() + 1));
    return {};
}

} // namespace support

#endif
