// Fault: the wait stands under `if`: another consumer may have taken the item before the woken one has the mutex.
#include <cstdlib>
#include <pthread.h>

#include "run_threads.h"

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_filled = PTHREAD_COND_INITIALIZER;
static int s_items;

static void *Consume(void *) {
    pthread_mutex_lock(&s_mutex);
    if (s_items == 0)
        pthread_cond_wait(&s_filled, &s_mutex);
    if (--s_items < 0)
        abort();
    pthread_mutex_unlock(&s_mutex);
    return nullptr;
}

static void *Produce(void *) {
    for (int i = 0; i < 2; i++) {
        pthread_mutex_lock(&s_mutex);
        s_items++;
        pthread_cond_signal(&s_filled);
        pthread_mutex_unlock(&s_mutex);
    }
    return nullptr;
}

int main() {
    RunThreads(Consume, Consume, Produce);
}
