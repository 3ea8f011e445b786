/*
 * A plug-in may be closed while the library that it brought along is still running: the code of the service
 * thread stays mapped, and so does everything else of it.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <vyx/sync.h>

typedef int32_t (*START)(void);
typedef int32_t (*CREATE)(VYX_SEM_T *, uint32_t);
typedef int32_t (*TIMED_WAIT)(VYX_SEM_T *, uint32_t);
typedef int32_t (*DESTROY)(VYX_SEM_T *);

int main(int argc, char **argv) {
    void *pLibrary = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (pLibrary == NULL) {
        (void)fprintf(stderr, "usage: dlopen_test LIBRARY (%s)\n", argc == 2 ? dlerror() : "no argument");
        return 1;
    }
    START start;
    CREATE create;
    TIMED_WAIT timedWait;
    DESTROY destroy;
    *(void **)&start = dlsym(pLibrary, "VYX_Init");
    *(void **)&create = dlsym(pLibrary, "VYX_SemCreate");
    *(void **)&timedWait = dlsym(pLibrary, "VYX_SemTimedWait");
    *(void **)&destroy = dlsym(pLibrary, "VYX_SemDestroy");
    VYX_SEM_T hSem;
    if (start() != VYX_OK || create(&hSem, 1) != VYX_OK || dlclose(pLibrary) != 0)
        return 2;
    /* Only the service thread ends such waits: it is still there. */
    const int32_t iTaken = timedWait(&hSem, 60000);
    const int32_t iTimedOut = timedWait(&hSem, 5);
    (void)destroy(&hSem);
    return iTaken == VYX_OK && iTimedOut == VYX_ERROR ? 0 : 3;
}
