// Sleeping, random numbers, memory, processor count, UUIDs, and the queries that this platform lacks.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vyx/sys.h>
#include <vyx/time.h>

#include "base/platform.h"
#include "base/units.h"
#include "sys/c_library.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(sizeof(VYX_MEMORY_STATUS_T) == 48 && sizeof(VYX_CPU_PERFORMANCE_T) == 56);

int32_t VYX_USleep(uint32_t nMicroseconds) {
    return usleep(nMicroseconds);
}

int32_t VYX_Sleep(uint32_t nMilliseconds) {
    return VYX_USleep(nMilliseconds * uint32_t{vyx_inter::kMicrosPerMilli});
}

int32_t VYX_Rand(void) {
    // Deliberate: seeded anew at every call, so calls within one millisecond agree. Pinned by
    // System.RandRepeatsWithinAMillisecond.
    const vyx_inter::LockGuard guard(g_hCLibraryLock);
    srandom(VYX_GetTimeTick());
    return static_cast<int32_t>(random());
}

void *VYX_ZeroMemory(void *pMemory, size_t nLength) {
    return std::memset(pMemory, 0, nLength);
}

int32_t VYX_GetCPUNumber(void) {
    const int32_t iCount = VYX_CountProcessors_Inter();
    return iCount > 0 ? iCount : 1;
}

int32_t VYX_GetUUID(uint8_t *pUuid16) {
    return VYX_GenerateUuid_Inter(pUuid16);
}

int32_t VYX_StringFromUUID(const uint8_t *pUuid16, char *szOut, int32_t iSize) {
    constexpr int32_t kTextLength = 36;
    if (iSize < kTextLength)
        return VYX_ERROR;
    // Deliberate: the first three groups follow the processor's byte order. Pinned by
    // Uuid.FirstGroupsFollowTheByteOrder.
    uint32_t nFirst = 0;
    uint16_t nSecond = 0;
    uint16_t nThird = 0;
    std::memcpy(&nFirst, pUuid16, sizeof nFirst);
    std::memcpy(&nSecond, pUuid16 + 4, sizeof nSecond);
    std::memcpy(&nThird, pUuid16 + 6, sizeof nThird);
    const uint8_t *p = pUuid16 + 8;
    (void)std::snprintf(szOut, static_cast<size_t>(iSize), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                        static_cast<unsigned>(nFirst), static_cast<unsigned>(nSecond),
                        static_cast<unsigned>(nThird), p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
    return VYX_OK;
}

int32_t VYX_GetMemoryStatus(VYX_MEMORY_STATUS_T *pStatus) {
    if (pStatus == nullptr)
        return VYX_ERROR;
    *pStatus = {};
    return VYX_NOT_AVAILABLE;
}

int32_t VYX_GetNetWorkFlowData(void *pRecord) {
    return pRecord == nullptr ? VYX_ERROR : VYX_NOT_AVAILABLE;
}

int32_t VYX_GetCPUPerformance(VYX_CPU_PERFORMANCE_T *pRecords, uint32_t *pSize) {
    if (pSize == nullptr)
        return VYX_ERROR;
    const auto nNeeded = static_cast<uint32_t>(VYX_GetCPUNumber()) * static_cast<uint32_t>(sizeof *pRecords);
    const uint32_t nGiven = *pSize;
    *pSize = nNeeded;
    return nGiven < nNeeded || pRecords == nullptr ? VYX_ERROR : VYX_NOT_AVAILABLE;
}
