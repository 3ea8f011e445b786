// Fault: the pointer is published before what it points to is ready. Instrumented build.
#include <atomic>
#include <cstdlib>
#include <pthread.h>

#include "run_threads.h"

struct Settings {
    std::atomic<int> size{0};
};

static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static std::atomic<Settings *> s_settings;

static Settings *Get() {
    Settings *settings = s_settings.load();
    if (settings != nullptr)
        return settings;
    pthread_mutex_lock(&s_mutex);
    settings = s_settings.load();
    if (settings == nullptr) {
        static Settings storage;
        settings = &storage;
        s_settings.store(settings);
        settings->size.store(64);
    }
    pthread_mutex_unlock(&s_mutex);
    return settings;
}

static void *Use(void *) {
    if (Get()->size.load() != 64)
        abort();
    return nullptr;
}

int main() {
    RunThreads(Use, Use);
}
