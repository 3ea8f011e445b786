// Fault: two locks taken in opposite order.
#include <pthread.h>

#include "run_threads.h"

static pthread_mutex_t s_from = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t s_to = PTHREAD_MUTEX_INITIALIZER;
static int s_balance[2] = {10, 10};

static void *Forth(void *) {
    pthread_mutex_lock(&s_from);
    pthread_mutex_lock(&s_to);
    s_balance[0]--, s_balance[1]++;
    pthread_mutex_unlock(&s_to);
    pthread_mutex_unlock(&s_from);
    return nullptr;
}

static void *Back(void *) {
    pthread_mutex_lock(&s_to);
    pthread_mutex_lock(&s_from);
    s_balance[1]--, s_balance[0]++;
    pthread_mutex_unlock(&s_from);
    pthread_mutex_unlock(&s_to);
    return nullptr;
}

int main() {
    RunThreads(Forth, Back);
    return s_balance[0] == 10 ? 0 : 1;
}
