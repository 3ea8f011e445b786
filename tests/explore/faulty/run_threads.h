// What the faulty programs share: threads, a mutex and a condition.
#ifndef VYX_TESTS_RUN_THREADS_H
#define VYX_TESTS_RUN_THREADS_H

#include <condition_variable>
#include <mutex>
#include <thread>

using Guard = std::unique_lock<std::mutex>;

inline std::mutex g_mutex;
inline std::condition_variable g_changed;

// Runs each routine in a thread of its own and waits for all of them.
template <class... Routine>
void RunThreads(Routine... routines) {
    std::thread threads[] = {std::thread(routines)...};
    for (std::thread &thread : threads)
        thread.join();
}

#endif
