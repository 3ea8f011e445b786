// Runs each routine in a thread of its own and waits for all of them.
#ifndef VYX_TESTS_RUN_THREADS_H
#define VYX_TESTS_RUN_THREADS_H

#include <cstddef>
#include <pthread.h>

template <class... Routine>
void RunThreads(Routine... routines) {
    pthread_t threads[sizeof...(routines)];
    size_t count = 0;
    (pthread_create(&threads[count++], nullptr, routines, nullptr), ...);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
}

#endif
