// Fault: the pointer is published before what it points to is ready. Instrumented build.
#include <atomic>
#include <cstdlib>

#include "run_threads.h"

struct Settings {
    std::atomic<int> size{0};
};

static std::atomic<Settings *> s_settings;

static Settings *Get() {
    Settings *settings = s_settings.load();
    if (settings != nullptr)
        return settings;
    const Guard guard;
    settings = s_settings.load();
    if (settings == nullptr) {
        static Settings storage;
        settings = &storage;
        s_settings.store(settings);
        settings->size.store(64);
    }
    return settings;
}

static void Use() {
    if (Get()->size.load() != 64)
        abort();
}

int main() {
    RunThreads(Use, Use);
}
