// Plain data that goes from thread to thread in every way that orders it but a mutex: no race.
#include <atomic>
#include <memory>
#include <semaphore.h>

#include "../faulty/run_threads.h"

static int s_published;
static std::atomic<bool> s_ready;
static int s_fenced;
static std::atomic<bool> s_fence_ready;
static int s_posted;
static sem_t s_sem;

static void Give() {
    const auto own = std::make_unique<int>(1); // its memory may have been the other thread's
    s_published = s_posted + *own;
    s_ready.store(true, std::memory_order_release);
    s_fenced = 2;
    std::atomic_thread_fence(std::memory_order_release);
    s_fence_ready.store(true, std::memory_order_relaxed);
    s_posted = 3;
    sem_post(&s_sem);
}

static void Take() {
    auto own = std::make_unique<int>(0);
    if (s_ready.load(std::memory_order_acquire))
        *own += s_published;
    if (s_fence_ready.load(std::memory_order_relaxed)) {
        std::atomic_thread_fence(std::memory_order_acquire);
        *own += s_fenced;
    }
    sem_wait(&s_sem);
    s_posted += *own;
}

int main() {
    s_posted = sem_init(&s_sem, 0, 0); // before the threads are created
    RunThreads(Give, Take);
    return s_posted >= 3 ? 0 : 1;
}
