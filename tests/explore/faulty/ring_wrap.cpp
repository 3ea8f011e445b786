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

static void Write() {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_room);
        g_mutex.lock();
        const int count = s_count;
        const int end = s_begin + count;
        g_mutex.unlock();
        g_mutex.lock();
        s_ring[end % kPlaces] = item;
        s_count = end >= kPlaces ? count + 1 : s_count + 1; // wrapped: the old count
        g_mutex.unlock();
        sem_post(&s_filled);
    }
}

static void Read() {
    for (int item = 1; item <= kItems; item++) {
        sem_wait(&s_filled);
        const Guard guard(g_mutex);
        if (s_ring[s_begin] != item)
            abort();
        s_begin = (s_begin + 1) % kPlaces;
        s_count--;
        sem_post(&s_room);
    }
}

int main() {
    sem_init(&s_filled, 0, 0);
    sem_init(&s_room, 0, kPlaces);
    RunThreads(Write, Read);
    return s_count == 0 ? 0 : 1;
}
