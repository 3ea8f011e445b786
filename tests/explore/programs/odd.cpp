// Fails, leaves behind or does for ever what the argument names. What is left behind is left only if the second thread
// runs before the first one looks; a call that fails, on purpose only, is exit status 3.
#include <atomic>
#include <cstdlib>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <string>
#include <unistd.h>

static std::atomic<bool> s_done;
static volatile bool s_spin;
static bool s_endless;

// A spinning thread makes no call, hence nothing that vyx-explore sees.
static void *Note(void *) {
    while (s_spin) {
    }
    while (s_endless)
        sched_yield();
    s_done = true;
    return nullptr;
}

static bool Make(const std::string &what) {
    static sem_t sem;
    static void *volatile block;
    int ends[2];
    if (what == "block")
        return (block = malloc(100)) != nullptr;
    if (what == "semaphore")
        return sem_init(&sem, 0, 0) == 0;
    return what != "descriptor" || pipe(ends) == 0;
}

int main(int, char **arguments) {
    const std::string what = arguments[1];
    pthread_t thread;
    s_spin = what == "spin";
    s_endless = what == "endless";
    if (pthread_create(&thread, nullptr, Note, nullptr) != 0)
        return 3;
    s_spin = false;
    if (what == "day")
        sleep(86400); // of the virtual clock, and tried itself
    const bool early = s_done;
    if (early && !Make(what))
        return 3;
    if (!early || what != "thread")
        pthread_join(thread, nullptr);
    return 0;
}
