// Fault: the data is published by a relaxed store, which orders nothing. Instrumented build, --races.
#include <atomic>
#include <pthread.h>

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
    pthread_t threads[2];
    pthread_create(&threads[0], nullptr, Publish, nullptr);
    pthread_create(&threads[1], nullptr, Consume, nullptr);
    for (pthread_t thread : threads)
        pthread_join(thread, nullptr);
    return 0;
}
