/*
 * The library's calls among its own functions do not reach functions of the same name in the program: this one
 * is linked with a file that has nearly all of them, each of which aborts.
 */
#include <stdio.h>
#include <vyx/frame.h>
#include <vyx/sync.h>

int main(void) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    VYX_SEM_T hSem;
    if (VYX_Init() != VYX_OK || VYX_SemCreate(&hSem, 1) != VYX_OK)
        return 1;
    const int32_t iTaken = VYX_SemTimedWait(&hSem, 60000);
    const int32_t iTimedOut = VYX_SemTimedWait(&hSem, 5);
    (void)pthread_mutex_lock(&mutex);
    const int32_t iCond = VYX_CondTimedWait(&cond, &mutex, 5);
    (void)pthread_mutex_unlock(&mutex);
    if (iTaken != VYX_OK || iTimedOut != VYX_ERROR || iCond != VYX_ERROR)
        return 2;
    return VYX_SemDestroy(&hSem) == VYX_OK && VYX_Fini() == VYX_OK ? 0 : 3;
}
