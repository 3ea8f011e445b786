#include <sys/syscall.h>
#include <unistd.h>

#include "base/fork.h"

// The C library notes the holder in the mutex after it has taken it, and takes the note out before it gives it back.
vyx_inter::Holder vyx_inter::HolderOf(const pthread_mutex_t &hMutex) {
    const int iOwner = __atomic_load_n(&hMutex.__data.__owner, __ATOMIC_RELAXED);
    if (iOwner == 0)
        return Holder::AtEdge;
    return iOwner == syscall(SYS_gettid) ? Holder::Self : Holder::Other;
}
