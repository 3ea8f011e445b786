// Fault: the pointer is published before what it points to is ready. Instrumented build.
#include <atomic>
#include <cstdlib>

#include "run_threads.h"

static std::atomic<int> s_size;
static std::atomic<std::atomic<int> *> s_settings;

static int Size() {
    if (s_settings.load() == nullptr) {
        const Guard guard(g_mutex);
        if (s_settings.load() == nullptr) {
            s_settings.store(&s_size);
            s_size.store(64);
        }
    }
    return s_settings.load()->load();
}

static void Use() {
    if (Size() != 64)
        abort();
}

int main() {
    RunThreads(Use, Use);
}
