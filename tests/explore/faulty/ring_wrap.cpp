// Fault: a ring whose writer reads the count in one step and puts it back in another. A reader that leaves between the
// two is forgotten when the ring wraps.
#include <cstdlib>
#include <pthread.h>
#include <semaphore.h>

#include "run_threads.h"

constexpr int kPlaces = 2;
constexpr int kItems = 3;
static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static sem_t s_filled;
static sem_t s_room;
static int s_ring[kPlaces];
static int s_begin;
static int s_count;

static void *Write(void *) {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_room);
        pthread_mutex_lock(&s_mutex);
        const int count = s_count;
        const int end = s_begin + count;
        pthread_mutex_unlock(&s_mutex);
        pthread_mutex_lock(&s_mutex);
        s_ring[end % kPlaces] = item;
        s_count = end >= kPlaces ? count + 1 : s_count + 1; // wrapped: the old count
        pthread_mutex_unlock(&s_mutex);
        sem_post(&s_filled);
    }
    return nullptr;
}

static void *Read(void *) {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_filled);
        pthread_mutex_lock(&s_mutex);
        const int got = s_ring[s_begin];
        s_begin = (s_begin + 1) % kPlaces;
        s_count--;
        pthread_mutex_unlock(&s_mutex);
        sem_post(&s_room);
        if (got != item)
            abort();
    }
    return nullptr;
}

int main() {
    sem_init(&s_filled, 0, 0);
    sem_init(&s_room, 0, kPlaces);
    RunThreads(Write, Read);
    return s_count == 0 ? 0 : 1;
}
