// Fault: the waiter does not look whether it happened already, so a signal before its wait is lost.
#include "run_threads.h"

static void Await() {
    Guard guard(g_mutex);
    g_changed.wait(guard);
}

static void Prepare() {
    Guard guard(g_mutex);
    g_changed.notify_one();
}

int main() {
    RunThreads(Await, Prepare);
}
