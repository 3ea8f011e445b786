// Fault: the data is published by a relaxed store, which orders nothing. Instrumented build, --races.
#include <atomic>

#include "run_threads.h"

static int s_data;
static std::atomic<bool> s_ready;

static void Publish() {
    s_data = 42;
    s_ready.store(true, std::memory_order_relaxed); // release is missing
}

static void Consume() {
    if (s_ready.load(std::memory_order_acquire))
        s_data++;
}

int main() {
    RunThreads(Publish, Consume);
}
