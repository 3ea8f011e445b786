// Ends with 3 when the call that the argument names fails, which it does on purpose only; with 0 otherwise.
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

static void *Nothing(void *) {
    return nullptr;
}

int main(int count, char **arguments) {
    const char *what = count > 1 ? arguments[1] : "";
    pthread_t thread;
    sem_t sem;
    int ends[2];
    bool good = true;
    if (strcmp(what, "malloc") == 0) {
        void *volatile block = malloc(100);
        good = block != nullptr;
        free(block);
    } else if (strcmp(what, "thread") == 0) {
        good = pthread_create(&thread, nullptr, Nothing, nullptr) == 0 && pthread_join(thread, nullptr) == 0;
    } else if (strcmp(what, "sem") == 0) {
        good = sem_init(&sem, 0, 0) == 0;
    } else if (strcmp(what, "io") == 0) {
        good = pipe(ends) == 0 && write(ends[1], "x", 1) == 1;
    }
    return good ? 0 : 3;
}
