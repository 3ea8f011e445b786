// What the faulty programs share: threads, a mutex and a condition.
#ifndef VYX_TESTS_RUN_THREADS_H
#define VYX_TESTS_RUN_THREADS_H

#include <pthread.h>
#include <thread>

inline pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
inline pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER;

// Holds the mutex until the end of its scope.
struct Guard {
    Guard() { pthread_mutex_lock(&g_mutex); }
    ~Guard() { pthread_mutex_unlock(&g_mutex); }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
};

// Runs each routine in a thread of its own and waits for all of them.
template <class... Routine>
void RunThreads(Routine... routines) {
    std::thread threads[] = {std::thread(routines)...};
    for (std::thread &thread : threads)
        thread.join();
}

#endif
