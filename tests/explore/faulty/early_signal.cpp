// Fault: the waiter does not look whether it happened already, so a signal before its wait is lost.
#include "run_threads.h"

static void Await() {
    const Guard guard;
    pthread_cond_wait(&g_changed, &g_mutex);
}

static void Prepare() {
    const Guard guard;
    pthread_cond_signal(&g_changed);
}

int main() {
    RunThreads(Await, Prepare);
}
