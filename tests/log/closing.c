/*
 * Loads the library, logs, closes the library and ends.
 *   closing LIBRARY FOLDER LINES
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <vyx/log.h>

typedef int32_t (*ENABLE)(log_services, const void *, uint32_t, uint32_t);
typedef int32_t (*WRITE)(log_level, const char *, int32_t, const char *, ...);

int main(int argc, char **argv) {
    void *pLibrary = argc == 4 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (pLibrary == NULL)
        return 2;
    ENABLE enable;
    WRITE write;
    *(void **)&enable = dlsym(pLibrary, "EnableTarget");
    *(void **)&write = dlsym(pLibrary, "WriteLog");
    (void)enable(VYX_LOG_TARGET_FILE, argv[2], 0, 0);
    (void)enable(VYX_LOG_TARGET_CONSOLE, NULL, 0, 0);
    const int iLines = atoi(argv[3]);
    for (int n = 0; n < iLines; ++n)
        if (write(VYX_LOG_LEVEL_INF, "f", 1, "%d", n) != 0)
            return 3;
    return dlclose(pLibrary) == 0 ? 0 : 4;
}
