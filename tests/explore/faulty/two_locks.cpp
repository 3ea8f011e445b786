// Fault: two locks taken in opposite order.
#include "run_threads.h"

static pthread_mutex_t s_other = PTHREAD_MUTEX_INITIALIZER;

static void Forth() {
    const Guard guard;
    pthread_mutex_lock(&s_other);
    pthread_mutex_unlock(&s_other);
}

static void Back() {
    pthread_mutex_lock(&s_other);
    { const Guard guard; }
    pthread_mutex_unlock(&s_other);
}

int main() {
    RunThreads(Forth, Back);
}
