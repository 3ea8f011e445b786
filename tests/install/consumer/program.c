/* A C program at work with the library. The exit status names the first step that went wrong; 0 is success. */
#include <vyx/vyx.h>

static void *Post(void *pSem) {
    return VYX_SemPost((VYX_SEM_T *)pSem) == VYX_OK ? pSem : NULL;
}

int main(void) {
    VYX_SEM_T hSem;
    if (VYX_Init() != VYX_OK || VYX_GetVYXVersion() != VYX_VERSION || VYX_SemCreate(&hSem, 0) != VYX_OK)
        return 1;
    if (VYX_SemTimedWait(&hSem, 20) != VYX_ERROR)
        return 2;
    const VYX_THREAD_T hThread = VYX_Thread_Create(Post, &hSem, 0, 0, 0, 0);
    if (VYX_SemTimedWait(&hSem, 60000) != VYX_OK || VYX_Thread_Wait(hThread) != VYX_OK)
        return 3;
    return VYX_SemDestroy(&hSem) == VYX_OK && VYX_Fini() == VYX_OK ? 0 : 4;
}
