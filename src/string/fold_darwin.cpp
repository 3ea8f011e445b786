// Case tables, on Darwin: the platform does not offer those of a thread's own locale.
#include "base/platform.h"

const int32_t *VYX_UpperTable_Inter() {
    return nullptr;
}

const int32_t *VYX_LowerTable_Inter() {
    return nullptr;
}
