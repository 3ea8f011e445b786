// Fault: the waiter does not look whether it happened already, so a signal before its wait is lost.
#include <pthread.h>

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_ready = PTHREAD_COND_INITIALIZER;

static void *Prepare(void *) {
    pthread_mutex_lock(&s_mutex);
    pthread_cond_signal(&s_ready);
    pthread_mutex_unlock(&s_mutex);
    return nullptr;
}

int main() {
    pthread_t preparer;
    pthread_create(&preparer, nullptr, Prepare, nullptr);
    pthread_mutex_lock(&s_mutex);
    pthread_cond_wait(&s_ready, &s_mutex);
    pthread_mutex_unlock(&s_mutex);
    pthread_join(preparer, nullptr);
}
