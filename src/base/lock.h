// The library's own locks, how they are held, and how a thread sleeps while it holds one.
#ifndef VYX_BASE_LOCK_H
#define VYX_BASE_LOCK_H

#include <pthread.h>

#include "base/annotations.h"
#include "base/deadline.h"
#include "base/ranks.h"

namespace vyx_inter {

// Whoever has locks has the handlers of a fork as well, also in a program linked with the archive.
extern const char g_cForkHandlers;
[[gnu::used]] static const char *const s_pForkHandlers = &g_cForkHandlers;

#if defined(VYX_CHECK_LOCKS)
// Notes that the calling thread takes or gives back a lock of that rank. Taking one out of order ends the process with
// a message that names both; a lock that was only tried cannot block, so its order is free.
void NoteAcquire(Rank eRank);
void NoteTried(Rank eRank);
void NoteRelease(Rank eRank);
#else
inline void NoteAcquire(Rank /*eRank*/) {}
inline void NoteTried(Rank /*eRank*/) {}
inline void NoteRelease(Rank /*eRank*/) {}
#endif

// What a thread does that finds a lock taken. Spin: it looks again for a moment before it goes to sleep. For locks that are
// taken often, and held for less time than going to sleep and being woken takes.
enum class Taken : uint8_t { Sleep, Spin };

// A platform without this kind of mutex has one kind only: all of its mutexes look again before they sleep, or none does.
#if defined(PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP)
inline constexpr pthread_mutex_t kSpinningMutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
#else
inline constexpr pthread_mutex_t kSpinningMutex = PTHREAD_MUTEX_INITIALIZER;
#endif
inline constexpr pthread_mutex_t kSleepingMutex = PTHREAD_MUTEX_INITIALIZER;

// A normal mutex, ready before any code runs. Locking and unlocking one that only the library knows cannot fail. One
// in a static is never destroyed; one in a record that is freed goes with Destroy.
class VYX_CAPABILITY("mutex") Lock {
  public:
    explicit constexpr Lock(Rank eRank, Taken eTaken = Taken::Sleep)
        : m_hMutex(eTaken == Taken::Spin ? kSpinningMutex : kSleepingMutex), m_eRank(eRank),
          m_eTaken(eTaken) {}
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    void Acquire() VYX_ACQUIRE() {
        NoteAcquire(m_eRank);
        (void)pthread_mutex_lock(&m_hMutex);
        ++m_nTaken;
    }
    bool TryAcquire() VYX_TRY_ACQUIRE(true) {
        if (pthread_mutex_trylock(&m_hMutex) != 0)
            return false;
        NoteTried(m_eRank);
        ++m_nTaken;
        return true;
    }
    void Release() VYX_RELEASE() {
        NoteRelease(m_eRank);
        (void)pthread_mutex_unlock(&m_hMutex);
    }
    void Destroy() { (void)pthread_mutex_destroy(&m_hMutex); }
    // The number by which the system knows the calling thread, which holds the lock; 0 where the platform does not tell.
    [[nodiscard]] uint32_t OwnThread() const VYX_REQUIRES(this) { return OwnerOf(m_hMutex); }

    // Around fork (base/fork.h), which takes all locks of one rank: without the check of the order.
    bool TryForFork() VYX_UNCHECKED { return pthread_mutex_trylock(&m_hMutex) == 0; }
    bool AwaitForFork(const Deadline &last) VYX_UNCHECKED { return LockUntil(&m_hMutex, last); }
    void ReleaseAfterFork() VYX_UNCHECKED { (void)pthread_mutex_unlock(&m_hMutex); }
    // In a forked child: free, whoever held it in the parent.
    void Renew() { m_hMutex = m_eTaken == Taken::Spin ? kSpinningMutex : kSleepingMutex; }

  private:
    friend class Condition;
    friend class ForkHold;
    friend struct LockRows;
    pthread_mutex_t m_hMutex;
    Rank m_eRank; // one byte, also where it is not looked at: all builds have the same records
    Taken m_eTaken;
    // How often it was taken, modulo 2^32: who reads what it guards from another process, and finds it free and this
    // unchanged before and after, has read what was true.
    uint32_t m_nTaken = 0;
};

// Holds a lock for the length of a block, also if the thread ends in it.
class VYX_SCOPED_CAPABILITY LockGuard {
  public:
    explicit LockGuard(Lock &lock) VYX_ACQUIRE(lock) : m_lock(lock) { m_lock.Acquire(); }
    ~LockGuard() VYX_RELEASE() { m_lock.Release(); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

  private:
    Lock &m_lock;
};

// Where threads sleep that hold a lock, which is free meanwhile. Any wait may end early: look again.
class Condition {
  public:
    constexpr Condition() = default;
    Condition(const Condition &) = delete;
    Condition &operator=(const Condition &) = delete;

    void Wait(Lock &lock) VYX_REQUIRES(lock) {
        const Retaken retaken(lock);
        (void)pthread_cond_wait(&m_hCond, &lock.m_hMutex);
    }
    // Result: false if the time is out. Without a limit: as Wait.
    bool WaitUntil(Lock &lock, const Deadline &deadline) VYX_REQUIRES(lock) {
        const Retaken retaken(lock);
        return CondWaitUntil(&m_hCond, &lock.m_hMutex, deadline);
    }
    void Signal() { (void)pthread_cond_signal(&m_hCond); }
    void Broadcast() { (void)pthread_cond_broadcast(&m_hCond); }
    void Destroy() { (void)pthread_cond_destroy(&m_hCond); }
    // In a forked child: nobody sleeps here.
    void Renew() { m_hCond = PTHREAD_COND_INITIALIZER; }

  private:
    // The end of a wait takes the lock, also if the thread is cancelled.
    class Retaken {
      public:
        explicit Retaken(Lock &lock) : m_lock(lock) {}
        ~Retaken() { ++m_lock.m_nTaken; }
        Retaken(const Retaken &) = delete;
        Retaken &operator=(const Retaken &) = delete;

      private:
        Lock &m_lock;
    };
    pthread_cond_t m_hCond = PTHREAD_COND_INITIALIZER;
};

} // namespace vyx_inter

#endif
