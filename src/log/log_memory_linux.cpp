#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

#include "base/platform.h"

void VYX_PopulateMemory_Inter(void *pMemory, size_t nSize) {
    const auto nPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t nBegin = (reinterpret_cast<uintptr_t>(pMemory) + nPage - 1) / nPage * nPage;
    const uintptr_t nEnd = (reinterpret_cast<uintptr_t>(pMemory) + nSize) / nPage * nPage;
    (void)madvise(reinterpret_cast<void *>(nBegin), nEnd - nBegin, MADV_POPULATE_WRITE); // since Linux 5.14
}
