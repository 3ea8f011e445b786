// Case tables, on Darwin: those of a thread's own locale are not to be had.
#include "base/platform.h"

const int32_t *VYX_UpperTable_Inter() {
    return nullptr;
}

const int32_t *VYX_LowerTable_Inter() {
    return nullptr;
}
