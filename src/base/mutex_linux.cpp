#include <sys/syscall.h>
#include <unistd.h>

#include "base/describe.h"
#include "base/platform.h"

// The C library notes the holder in the mutex after it has taken it, and takes the note out before it gives it back.
uint32_t vyx_inter::OwnerOf(const pthread_mutex_t &hMutex) {
    return static_cast<uint32_t>(__atomic_load_n(&hMutex.__data.__owner, __ATOMIC_RELAXED));
}

vyx_inter::Holder vyx_inter::HolderOf(const pthread_mutex_t &hMutex) {
    const uint32_t nOwner = OwnerOf(hMutex);
    if (nOwner == 0)
        return Holder::AtEdge;
    return nOwner == static_cast<uint32_t>(syscall(SYS_gettid)) ? Holder::Self : Holder::Other;
}

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    {"mutex.state", offsetof(pthread_mutex_t, __data.__lock), sizeof(int), 0, nullptr}, // 0: free
    {"mutex.owner", offsetof(pthread_mutex_t, __data.__owner), sizeof(int), 0, nullptr},
};

} // namespace

VYX_DESCRIBE(mutexes, kRows)
