#include "base/platform.h"

uint32_t vyx_inter::OwnerOf(const pthread_mutex_t & /*hMutex*/) {
    return 0;
}

vyx_inter::Holder vyx_inter::HolderOf(const pthread_mutex_t & /*hMutex*/) {
    return Holder::Unknown;
}
