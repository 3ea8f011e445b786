#include "sys/sys_inter.h"

// Since version 14.
bool VYX_IconvReplaces_Inter(void) {
    return true;
}
