#include "base/platform.h"

bool VYX_IconvReplaces_Inter(void) {
    return false;
}
