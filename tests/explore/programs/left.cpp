// Leaves behind what the argument names, but only if the second thread runs before the first one looks.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

static std::atomic<bool> s_done;

static void *Set(void *) {
    s_done = true;
    return nullptr;
}

static void Leave(const char *what) {
    static sem_t sem;
    static void *volatile block;
    int ends[2];
    if (strcmp(what, "block") == 0 && (block = malloc(100)) == nullptr)
        abort();
    else if (strcmp(what, "semaphore") == 0)
        (void)sem_init(&sem, 0, 0);
    else if (strcmp(what, "descriptor") == 0)
        (void)!pipe(ends);
}

int main(int count, char **arguments) {
    const char *what = count > 1 ? arguments[1] : "";
    pthread_t thread;
    if (pthread_create(&thread, nullptr, Set, nullptr) != 0)
        return 2;
    const bool early = s_done;
    if (early)
        Leave(what);
    if (!early || strcmp(what, "thread") != 0)
        pthread_join(thread, nullptr);
    return 0;
}
