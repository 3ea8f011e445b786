// Case tables, on Linux: those of the C library, which its headers use themselves.
#include <cctype>

#include "base/platform.h"

const int32_t *VYX_UpperTable_Inter() {
    return *__ctype_toupper_loc();
}

const int32_t *VYX_LowerTable_Inter() {
    return *__ctype_tolower_loc();
}
