#include "base/platform.h"

// The platform has no such call.
void VYX_PopulateMemory_Inter(void * /*pMemory*/, size_t /*nSize*/) {}
