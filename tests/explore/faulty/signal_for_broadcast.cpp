// Fault: readers and the writer wait on one condition, and a signal may wake the one that has nothing to do.
#include <pthread.h>

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_changed = PTHREAD_COND_INITIALIZER;
static int s_turn; // 0 and 1: that worker's; 2: the end

static void *Work(void *number) {
    const int mine = static_cast<int>(reinterpret_cast<long>(number));
    pthread_mutex_lock(&s_mutex);
    while (s_turn != mine)
        pthread_cond_wait(&s_changed, &s_mutex);
    s_turn++;
    pthread_cond_signal(&s_changed);
    pthread_mutex_unlock(&s_mutex);
    return nullptr;
}

int main() {
    pthread_t workers[2];
    for (long i = 0; i < 2; i++)
        pthread_create(&workers[i], nullptr, Work, reinterpret_cast<void *>(i));
    pthread_mutex_lock(&s_mutex);
    while (s_turn != 2)
        pthread_cond_wait(&s_changed, &s_mutex);
    pthread_mutex_unlock(&s_mutex);
    for (pthread_t worker : workers)
        pthread_join(worker, nullptr);
}
