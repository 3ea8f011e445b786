// Fault: the timer is told to stop, but nobody waits until it has: it may fire after its object has gone.
#include <cstdlib>
#include <pthread.h>
#include <time.h>

struct Connection {
    bool open = true;
};

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static bool s_stopped;
static Connection s_connection;

static void *Timer(void *) {
    const timespec period = {0, 10000000};
    for (;;) {
        nanosleep(&period, nullptr); // the timer's period, of the virtual clock
        pthread_mutex_lock(&s_mutex);
        const bool stopped = s_stopped;
        pthread_mutex_unlock(&s_mutex);
        if (stopped)
            return nullptr;
        if (!s_connection.open)
            abort();
    }
}

int main() {
    pthread_t timer;
    pthread_create(&timer, nullptr, Timer, nullptr);
    const timespec busy = {0, 25000000};
    nanosleep(&busy, nullptr); // the work, of the virtual clock
    pthread_mutex_lock(&s_mutex);
    s_stopped = true;
    pthread_mutex_unlock(&s_mutex);
    s_connection.open = false;
    pthread_join(timer, nullptr);
}
