#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/platform.h"
#include "base/uncancelled.h"

// Where the C library has semaphores, and what it puts in front of their names.
#define SEM_DIRECTORY "/dev/shm"
#define SEM_FILE_PREFIX "sem."

void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial) {
    // A semaphore that was just created has its count already; looking first keeps a large one from costing
    // a platform call for every unit.
    int iCount = 0;
    if (sem_getvalue(pSem, &iCount) == 0 && static_cast<uint32_t>(iCount) == nInitial)
        return;
    while (sem_trywait(pSem) == 0) {
    }
    for (uint32_t i = 0; i < nInitial; ++i)
        (void)sem_post(pSem); // the platform accepted this count when it opened the semaphore
}

const char *VYX_SemNamePrefix_Inter() {
    return ""; // the C library takes names with and without a slash for the same
}

bool VYX_SemNameIsTaken_Inter(const char *szName) {
    char szPath[128];
    (void)std::snprintf(szPath, sizeof szPath, SEM_DIRECTORY "/" SEM_FILE_PREFIX "%s", szName);
    return access(szPath, F_OK) == 0;
}

// With the kernel's own call, which takes no memory: the C library's functions would make a new semaphore depend on more.
void VYX_EachSemName_Inter(void (*pfnName)(const char *szName, void *pContext), void *pContext) {
    constexpr size_t kPrefix = sizeof SEM_FILE_PREFIX - 1;
    const vyx_inter::Uncancelled uncancelled;
    const int iDirectory = open(SEM_DIRECTORY, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (iDirectory < 0)
        return;
    alignas(dirent64) char entries[2048];
    ssize_t iRead = 0;
    while ((iRead = getdents64(iDirectory, entries, sizeof entries)) > 0)
        for (ssize_t iAt = 0; iAt < iRead;) {
            const auto *pEntry = reinterpret_cast<const struct dirent64 *>(entries + iAt);
            iAt += pEntry->d_reclen;
            if (std::strncmp(pEntry->d_name, SEM_FILE_PREFIX, kPrefix) == 0)
                pfnName(pEntry->d_name + kPrefix, pContext);
        }
    (void)close(iDirectory);
}
