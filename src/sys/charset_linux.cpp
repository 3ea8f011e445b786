#include "sys/sys_inter.h"

bool VYX_IconvReplaces_Inter(void) {
    return false;
}
