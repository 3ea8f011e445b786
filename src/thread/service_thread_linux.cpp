#include <link.h>

#include "base/first_init.h"
#include "base/platform.h"

namespace {

int AddStorage_Local(dl_phdr_info *pInfo, size_t /*nSize*/, void *pSum) {
    for (size_t i = 0; i < pInfo->dlpi_phnum; ++i) {
        const auto &segment = pInfo->dlpi_phdr[i];
        if (segment.p_type == PT_TLS)
            *static_cast<uint64_t *>(pSum) += segment.p_memsz + segment.p_align;
    }
    return 0;
}

// The thread-local variables of the program and of all libraries that are loaded with it have their place in each
// thread's stack; those of libraries that are loaded later have not. Asked while this library is loaded, when nobody
// else can be in the loader.
struct Storage {
    uint64_t nSum = 0; // bytes
    Storage() { (void)dl_iterate_phdr(AddStorage_Local, &nSum); }
};
VYX_FIRST_INIT const Storage s_storage;

} // namespace

uint64_t VYX_StackTaken_Inter(void) {
    return s_storage.nSum;
}

void VYX_NameThread_Inter(const char *szName) {
    (void)pthread_setname_np(pthread_self(), szName);
}
