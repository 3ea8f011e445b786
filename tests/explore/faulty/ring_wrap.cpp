// Fault: a ring whose writer reads the count in one step and puts it back in another. A reader that leaves between the
// two is forgotten when the ring wraps.
#include <cstdlib>
#include <semaphore.h>

#include "run_threads.h"

constexpr int kPlaces = 2;
constexpr int kItems = 3;
static sem_t s_filled;
static sem_t s_room;
static int s_ring[kPlaces];
static int s_begin;
static int s_count;

static void Put(int item) {
    pthread_mutex_lock(&g_mutex);
    const int count = s_count;
    const int end = s_begin + count;
    pthread_mutex_unlock(&g_mutex);
    const Guard guard;
    s_ring[end % kPlaces] = item;
    s_count = end >= kPlaces ? count + 1 : s_count + 1; // wrapped: the old count
}

static int Get() {
    const Guard guard;
    const int got = s_ring[s_begin];
    s_begin = (s_begin + 1) % kPlaces;
    s_count--;
    return got;
}

static void Write() {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_room);
        Put(item);
        sem_post(&s_filled);
    }
}

static void Read() {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_filled);
        if (Get() != item)
            abort();
        sem_post(&s_room);
    }
}

int main() {
    sem_init(&s_filled, 0, 0);
    sem_init(&s_room, 0, kPlaces);
    RunThreads(Write, Read);
    return s_count == 0 ? 0 : 1;
}
