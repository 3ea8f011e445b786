// A thread spins on a plain variable: no call, hence nothing that vyx-explore sees.
#include <pthread.h>

static volatile int s_go;

static void *Spin(void *) {
    while (s_go == 0) {
    }
    return nullptr;
}

int main() {
    pthread_t thread;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    if (pthread_create(&thread, nullptr, Spin, nullptr) != 0)
        return 2;
    pthread_mutex_lock(&mutex);
    s_go = 1;
    pthread_mutex_unlock(&mutex);
    return pthread_join(thread, nullptr);
}
