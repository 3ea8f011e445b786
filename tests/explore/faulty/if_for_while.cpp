// Fault: the wait stands under `if`: another consumer may have taken the item before the woken one has the mutex.
#include <cstdlib>

#include "run_threads.h"

static int s_items;

static void Consume() {
    Guard guard(g_mutex);
    if (s_items == 0)
        g_changed.wait(guard);
    if (--s_items < 0)
        abort();
}

static void Produce() {
    for (int i = 0; i < 2; i++) {
        Guard guard(g_mutex);
        s_items++;
        g_changed.notify_one();
    }
}

int main() {
    RunThreads(Consume, Consume, Produce);
}
