// Fault: two locks taken in opposite order.
#include "run_threads.h"

static std::mutex s_other;

static void Forth() {
    const Guard guard(g_mutex);
    s_other.lock();
    s_other.unlock();
}

static void Back() {
    s_other.lock();
    { const Guard guard(g_mutex); }
    s_other.unlock();
}

int main() {
    RunThreads(Forth, Back);
}
