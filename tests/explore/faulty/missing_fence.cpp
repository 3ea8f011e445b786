// Fault: the data is published by a relaxed store, which orders nothing. Instrumented build, --races.
#include <atomic>
#include <pthread.h>

#include "run_threads.h"

static int s_data;
static std::atomic<bool> s_ready;

static void *Publish(void *) {
    s_data = 42;
    s_ready.store(true, std::memory_order_relaxed); // release is missing
    return nullptr;
}

static void *Consume(void *) {
    if (s_ready.load(std::memory_order_acquire) && s_data != 42)
        return &s_data;
    return nullptr;
}

int main() {
    RunThreads(Publish, Consume);
}
