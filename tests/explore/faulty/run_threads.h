// What the faulty programs share: threads, a mutex and a condition.
#ifndef VYX_TESTS_RUN_THREADS_H
#define VYX_TESTS_RUN_THREADS_H

#include <cstddef>
#include <pthread.h>

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
    pthread_t threads[sizeof...(routines)];
    size_t count = 0;
    const auto start = [&](auto *routine) {
        const auto run = [](void *it) -> void * { return (*static_cast<decltype(routine)>(it))(), nullptr; };
        pthread_create(&threads[count++], nullptr, run, routine);
    };
    (start(&routines), ...);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
}

#endif
