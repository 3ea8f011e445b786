// Fault: the object is used after this thread's reference, which may have been the last, was given back.
#include <cstdlib>

#include "run_threads.h"

static int s_references = 2;
static bool s_gone; // stands for the free store, so that the use shows without a sanitizer

static bool IsLast() {
    const Guard guard(g_mutex);
    return --s_references == 0;
}

static void Use() {
    const bool last = IsLast();
    if (last)
        s_gone = true;
    const Guard guard(g_mutex);
    if (!last && s_gone)
        abort();
}

int main() {
    RunThreads(Use, Use);
}
