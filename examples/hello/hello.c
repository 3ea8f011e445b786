#include <stdio.h>
#include <vyx/vyx.h>

static VYX_SEM_T ready;

static void *Greet(void *name) {
    char now[25];
    VYX_CTime(now, VYX_TimeNow());
    printf("Hello, %s, on %s\n", (const char *)name, now);
    VYX_SemPost(&ready);
    return NULL;
}

int main(void) {
    if (VYX_Init() != VYX_OK || VYX_SemCreate(&ready, 0) != VYX_OK)
        return 1;
    VYX_THREAD_T thread = VYX_Thread_Create(Greet, "world", 0, 0, 0, 0);
    int greeted = thread != VYX_INVALID_THREAD && VYX_SemTimedWait(&ready, 5000) == VYX_OK; /* at most 5 s */
    VYX_Thread_Wait(thread);
    VYX_SemDestroy(&ready);
    VYX_Fini();
    return greeted ? 0 : 1;
}
