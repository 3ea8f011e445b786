/*
 * Has one semaphore until standard input ends. From the first line on nobody but root may look into the process.
 */
#include <stdio.h>
#include <sys/prctl.h>
#include <vyx/sync.h>

int main(void) {
    VYX_SEM_T hSem = NULL;
    if (VYX_SemCreate(&hSem, 1) != VYX_OK)
        return 1;
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    (void)puts("ready");
    if (getchar() == '\n' && prctl(PR_SET_DUMPABLE, 0) == 0)
        (void)puts("hidden");
    while (getchar() != EOF) {
    }
    return VYX_SemDestroy(&hSem);
}
