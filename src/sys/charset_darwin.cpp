#include "base/platform.h"

// Since version 14.
bool VYX_IconvReplaces_Inter(void) {
    return true;
}
