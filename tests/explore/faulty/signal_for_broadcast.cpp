// Fault: three threads wait on one condition, and a signal may wake the one that has nothing to do.
#include "run_threads.h"

static int s_turn; // the number of the thread whose turn it is

template <int mine>
static void Work() {
    Guard guard(g_mutex);
    while (s_turn != mine)
        g_changed.wait(guard);
    s_turn++;
    g_changed.notify_one();
}

int main() {
    RunThreads(Work<0>, Work<1>, Work<2>);
}
