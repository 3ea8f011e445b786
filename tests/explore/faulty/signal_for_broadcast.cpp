// Fault: three threads wait on one condition, and a signal may wake the one that has nothing to do.
#include "run_threads.h"

static int s_turn; // the number of the thread whose turn it is

template <int mine>
static void Work() {
    const Guard guard;
    while (s_turn != mine)
        pthread_cond_wait(&g_changed, &g_mutex);
    s_turn++;
    pthread_cond_signal(&g_changed);
}

int main() {
    RunThreads(Work<0>, Work<1>, Work<2>);
}
