#include <sys/sysctl.h>
#include <uuid/uuid.h>

#include "base/platform.h"

int32_t VYX_CountProcessors_Inter(void) {
    int iName[2] = {CTL_HW, HW_NCPU};
    int iCount = 0;
    size_t nSize = sizeof iCount;
    return sysctl(iName, 2, &iCount, &nSize, nullptr, 0) == 0 ? iCount : 0;
}

int32_t VYX_GenerateUuid_Inter(uint8_t *pUuid16) {
    uuid_generate(pUuid16);
    return VYX_OK;
}
