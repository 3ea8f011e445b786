// The cycle buffer: a ring of bytes behind its record, under a recursive lock.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vyx/sync.h>

#include "container/container_inter.h"

namespace {

// Holds a ring's lock for the length of a block.
class RingGuard {
  public:
    explicit RingGuard(VYX_CYCLE_BUFFER_T &ring) : m_ring(ring) { (void)VYX_MutexLock(&m_ring.hLock); }
    ~RingGuard() { (void)VYX_MutexUnlock(&m_ring.hLock); }
    RingGuard(const RingGuard &) = delete;
    RingGuard &operator=(const RingGuard &) = delete;

  private:
    VYX_CYCLE_BUFFER_T &m_ring;
};

// What a read found stored when it began.
struct Stored {
    int32_t iRead;
    int32_t iWrite;
    uint32_t nCount;
};

Stored Look_Local(VYX_CYCLE_BUFFER_T &ring) {
    const RingGuard guard(ring);
    return {ring.iRead, ring.iWrite, ring.nCount};
}

void HandOver_Local(const VYX_CYCLE_BUFFER_T &ring, const Stored &stored) {
    const auto nCapacity = static_cast<uint32_t>(ring.iCapacity);
    const auto nRead = static_cast<uint32_t>(stored.iRead);
    if (nRead + stored.nCount < nCapacity) {
        (void)ring.fnCallback(ring.pData + nRead, stored.nCount, ring.pUser);
        return;
    }
    // Deliberate: the first length is the capacity less what is stored, not less the read offset. It is only
    // kept from running past the storage. Pinned by CycleBuffer.WrappedReadKeepsItsTwoLengths.
    const uint32_t nFirst = std::min(nCapacity - stored.nCount, nCapacity - nRead);
    (void)ring.fnCallback(ring.pData + nRead, nFirst, ring.pUser);
    (void)ring.fnCallback(ring.pData, static_cast<uint32_t>(stored.iWrite), ring.pUser);
}

} // namespace

int32_t VYX_CycleBufferInit(VYX_HANDLE_CYCLEBUFFER *phBuffer, int32_t iCapacity,
                            VYX_CYCLEBUFFER_PROC fnCallback, void *pUser) {
    if (phBuffer == nullptr || fnCallback == nullptr || iCapacity < 1)
        return VYX_ERROR;
    void *pBlock = std::calloc(1, sizeof(VYX_CYCLE_BUFFER_T) + static_cast<size_t>(iCapacity));
    if (pBlock == nullptr)
        return VYX_ERROR;
    auto *pRing = static_cast<VYX_CYCLE_BUFFER_T *>(pBlock);
    pRing->pData = reinterpret_cast<uint8_t *>(pRing + 1);
    pRing->iCapacity = iCapacity;
    (void)VYX_MutexCreate(&pRing->hLock, VYX_MUTEX_RECURSIVE);
    pRing->fnCallback = fnCallback;
    pRing->pUser = pUser;
    *phBuffer = pRing;
    return VYX_OK;
}

int32_t VYX_CycleBufferWrite(VYX_HANDLE_CYCLEBUFFER hBuffer, const uint8_t *pData, uint32_t nLen) {
    if (hBuffer == nullptr || pData == nullptr || nLen == 0)
        return VYX_ERROR;
    const RingGuard guard(*hBuffer);
    if (nLen > static_cast<uint32_t>(hBuffer->iCapacity) - hBuffer->nCount)
        return VYX_ERROR;
    const auto nTail = static_cast<uint32_t>(hBuffer->iCapacity - hBuffer->iWrite);
    const uint32_t nFirst = std::min(nLen, nTail);
    std::memcpy(hBuffer->pData + hBuffer->iWrite, pData, nFirst);
    std::memcpy(hBuffer->pData, pData + nFirst, nLen - nFirst);
    hBuffer->iWrite =
        static_cast<int32_t>(nLen >= nTail ? nLen - nTail : static_cast<uint32_t>(hBuffer->iWrite) + nLen);
    hBuffer->nCount += nLen;
    return VYX_OK;
}

int32_t VYX_CycleBufferRead(VYX_HANDLE_CYCLEBUFFER hBuffer) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    const Stored stored = Look_Local(*hBuffer);
    if (stored.nCount == 0)
        return VYX_ERROR;
    HandOver_Local(*hBuffer, stored);
    const RingGuard guard(*hBuffer);
    hBuffer->nCount -= std::min(stored.nCount, hBuffer->nCount); // a second reader must not drive it below 0
    hBuffer->iRead = stored.iWrite;
    return VYX_OK;
}

int32_t VYX_CycleBufferValue(VYX_HANDLE_CYCLEBUFFER hBuffer, uint32_t *pCount) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    const RingGuard guard(*hBuffer);
    *pCount = hBuffer->nCount;
    return VYX_OK;
}

int32_t VYX_CycleBufferDestroy(VYX_HANDLE_CYCLEBUFFER hBuffer) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    (void)VYX_MutexDestroy(&hBuffer->hLock);
    std::free(hBuffer);
    return VYX_OK;
}
