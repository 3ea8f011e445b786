// Aligned memory: the block's own address stands in the word before the aligned one.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vyx/container.h>

namespace {

constexpr int32_t kWordRoom = 8; // bytes before the result, room for one pointer

bool IsPowerOfTwo_Local(int32_t iValue) {
    return iValue > 0 && (iValue & (iValue - 1)) == 0;
}

} // namespace

void *VYX_AlignedMalloc(int32_t iSize, int32_t iAlignment) {
    if (iSize < 0 || !IsPowerOfTwo_Local(iAlignment))
        return nullptr;
    const int64_t iBytes = static_cast<int64_t>(iSize) + iAlignment + kWordRoom;
    void *pBlock = iBytes > INT32_MAX ? nullptr : std::calloc(1, static_cast<size_t>(iBytes));
    if (pBlock == nullptr)
        return nullptr;
    const auto nMask = static_cast<uintptr_t>(iAlignment) - 1;
    const uintptr_t nEarliest = reinterpret_cast<uintptr_t>(pBlock) + kWordRoom;
    char *pResult = static_cast<char *>(pBlock) + kWordRoom +
                    ((nEarliest + nMask) / (nMask + 1) * (nMask + 1) - nEarliest);
    std::memcpy(pResult - sizeof pBlock, &pBlock, sizeof pBlock);
    return pResult;
}

int32_t VYX_AlignedFree(void *pMemory) {
    void *pBlock = nullptr;
    std::memcpy(&pBlock, static_cast<char *>(pMemory) - sizeof pBlock, sizeof pBlock);
    std::free(pBlock);
    return VYX_OK;
}
