// Fault: two threads step back for each other, and may do so for ever.
#include <pthread.h>
#include <sched.h>

static pthread_mutex_t s_mutexes[2] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};

static void *Take(void *first) {
    pthread_mutex_t *own = &s_mutexes[first == nullptr ? 0 : 1];
    pthread_mutex_t *other = &s_mutexes[first == nullptr ? 1 : 0];
    for (;;) {
        pthread_mutex_lock(own);
        sched_yield();
        if (pthread_mutex_trylock(other) == 0)
            break;
        pthread_mutex_unlock(own);
        sched_yield();
    }
    pthread_mutex_unlock(other);
    pthread_mutex_unlock(own);
    return nullptr;
}

int main() {
    pthread_t threads[2];
    pthread_create(&threads[0], nullptr, Take, nullptr);
    pthread_create(&threads[1], nullptr, Take, &threads);
    for (pthread_t thread : threads)
        pthread_join(thread, nullptr);
}
