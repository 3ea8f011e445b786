// Fault: the timer is told to stop, but nobody waits until it has: it may fire after its object has gone.
#include <cstdlib>
#include <time.h>

#include "run_threads.h"

static bool s_stopped;
static bool s_open = true; // the object

static void Pass(long milliseconds) {
    const timespec span = {0, milliseconds * 1000000};
    nanosleep(&span, nullptr); // of the virtual clock
}

static bool Stop(bool stop) {
    const Guard guard(g_mutex);
    return s_stopped = s_stopped || stop;
}

static void Timer() {
    for (Pass(10); !Stop(false); Pass(10))
        if (!s_open)
            abort();
}

static void Close() {
    Pass(25);
    (void)Stop(true);
    s_open = false;
}

int main() {
    RunThreads(Timer, Close);
}
