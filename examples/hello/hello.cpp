#include <cstdio>
#include <vyx/vyx.h>

struct Greeting {
    const char *name;
    VYX_Sema ready{0, 1};
};

static void *Greet(void *param) {
    auto *greeting = static_cast<Greeting *>(param);
    char now[25];
    VYX_CTime(now, VYX_TimeNow());
    std::printf("Hello, %s, on %s\n", greeting->name, now);
    greeting->ready.Post();
    return nullptr;
}

int main() {
    if (VYX_Init() != VYX_OK)
        return 1;
    Greeting greeting{"world"};
    VYX_Thread thread;
    if (thread.Create(Greet, &greeting, 0, 0, 0, 0) != VYX_OK)
        return 1;
    const bool greeted = greeting.ready.TimedWait(5000) == VYX_OK; // at most 5 s
    thread.Wait();
    VYX_Fini();
    return greeted ? 0 : 1;
}
