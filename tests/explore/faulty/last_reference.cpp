// Fault: the object is used after this thread's reference, which may have been the last, was given back.
#include <cstdlib>
#include <pthread.h>

#include "run_threads.h"

struct Object {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int references = 2;
    bool gone = false; // stands for the free store, so that the use shows without a sanitizer
    int uses = 0;
};

static Object s_object;

static void *Use(void *) {
    pthread_mutex_lock(&s_object.mutex);
    const bool last = --s_object.references == 0;
    pthread_mutex_unlock(&s_object.mutex);
    if (last)
        s_object.gone = true;
    pthread_mutex_lock(&s_object.mutex);
    if (!last && s_object.gone)
        abort();
    s_object.uses++;
    pthread_mutex_unlock(&s_object.mutex);
    return nullptr;
}

int main() {
    RunThreads(Use, Use);
}
