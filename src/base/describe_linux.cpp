// What the description says of the C library's mutexes.
#include <pthread.h>

#include "base/describe.h"

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    {"mutex.state", offsetof(pthread_mutex_t, __data.__lock), sizeof(int), 0, nullptr}, // 0: free
    {"mutex.owner", offsetof(pthread_mutex_t, __data.__owner), sizeof(int), 0, nullptr},
};

} // namespace

VYX_DESCRIBE(mutexes, kRows)
