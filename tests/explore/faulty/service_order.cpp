// Fault: the plain lock order of a service that ends bounded waits. A waiter registers while it holds its own mutex, so
// it takes the registry's lock second; the service holds that lock and takes the waiter's mutex to wake it.
#include <pthread.h>
#include <time.h>

static pthread_mutex_t s_registry = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t s_condition = PTHREAD_COND_INITIALIZER;
static bool s_waits; // under the registry's lock, as the next
static bool s_stop;

static void Register(bool waits) {
    pthread_mutex_lock(&s_registry);
    s_waits = waits;
    pthread_mutex_unlock(&s_registry);
}

static void *Serve(void *) {
    const timespec pause = {0, 100000};
    for (bool stop = false; !stop;) {
        pthread_mutex_lock(&s_registry);
        if (s_waits) {
            pthread_mutex_lock(&s_mutex); // it may only be tried here
            pthread_cond_broadcast(&s_condition);
            pthread_mutex_unlock(&s_mutex);
        }
        stop = s_stop;
        pthread_mutex_unlock(&s_registry);
        nanosleep(&pause, nullptr);
    }
    return nullptr;
}

int main() {
    pthread_t service;
    pthread_create(&service, nullptr, Serve, nullptr);
    pthread_mutex_lock(&s_mutex);
    Register(true);
    pthread_cond_wait(&s_condition, &s_mutex);
    Register(false);
    pthread_mutex_unlock(&s_mutex);
    pthread_mutex_lock(&s_registry);
    s_stop = true;
    pthread_mutex_unlock(&s_registry);
    pthread_join(service, nullptr);
    return 0;
}
