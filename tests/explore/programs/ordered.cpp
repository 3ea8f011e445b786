// Plain data that goes from thread to thread in every way that orders it: no race.
#include <atomic>
#include <memory>
#include <pthread.h>
#include <semaphore.h>

static int s_published;
static std::atomic<bool> s_ready;
static int s_fenced;
static std::atomic<bool> s_fence_ready;
static int s_counted;
static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_changed = PTHREAD_COND_INITIALIZER;
static int s_posted;
static sem_t s_sem;
static int s_joined;

static void Count(int change) {
    pthread_mutex_lock(&s_mutex);
    s_counted += change;
    pthread_cond_signal(&s_changed);
    pthread_mutex_unlock(&s_mutex);
}

static void *Give(void *start) {
    auto own =
        std::make_unique<int>(*static_cast<int *>(start)); // its memory may have been the other thread's
    s_published = *own;
    s_ready.store(true, std::memory_order_release);
    s_fenced = 2;
    std::atomic_thread_fence(std::memory_order_release);
    s_fence_ready.store(true, std::memory_order_relaxed);
    s_posted = 3;
    sem_post(&s_sem);
    Count(1);
    s_joined = 4;
    return nullptr;
}

static void *Take(void *) {
    auto own = std::make_unique<int>(0);
    if (s_ready.load(std::memory_order_acquire))
        *own += s_published;
    if (s_fence_ready.load(std::memory_order_relaxed)) {
        std::atomic_thread_fence(std::memory_order_acquire);
        *own += s_fenced;
    }
    sem_wait(&s_sem);
    *own += s_posted;
    pthread_mutex_lock(&s_mutex);
    while (s_counted == 0)
        pthread_cond_wait(&s_changed, &s_mutex);
    pthread_mutex_unlock(&s_mutex);
    return *own >= 3 ? nullptr : &s_posted;
}

int main() {
    int start = 1; // before the threads are created
    pthread_t threads[2];
    void *wrong = nullptr;
    if (sem_init(&s_sem, 0, 0) != 0 || pthread_create(&threads[0], nullptr, Give, &start) != 0 ||
        pthread_create(&threads[1], nullptr, Take, nullptr) != 0)
        return 2;
    pthread_join(threads[0], nullptr);
    pthread_join(threads[1], &wrong);
    return wrong == nullptr && s_joined == 4 ? 0 : 1;
}
