// Fault: the wait stands under `if`: another consumer may have taken the item before the woken one has the mutex.
#include <cstdlib>

#include "run_threads.h"

static int s_items;

static void Consume() {
    const Guard guard;
    if (s_items == 0)
        pthread_cond_wait(&g_changed, &g_mutex);
    if (--s_items < 0)
        abort();
}

static void Produce() {
    for (int i = 0; i < 2; i++) {
        const Guard guard;
        s_items++;
        pthread_cond_signal(&g_changed);
    }
}

int main() {
    RunThreads(Consume, Consume, Produce);
}
