#include "base/platform.h"

// Thread-local variables are on the heap.
uint64_t VYX_StackTaken_Inter(void) {
    return 0;
}

// The platform names the calling thread only.
void VYX_NameThread_Inter(const char *szName) {
    (void)pthread_setname_np(szName);
}
