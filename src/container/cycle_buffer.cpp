// The cycle buffer: a ring of bytes behind its record.
//
// Writers exclude each other by the ring's recursive lock. Where the stored bytes begin and how many there are is
// one atomic value: a writer adds to it after its bytes are in place, a reader takes off it after its callback is
// done with them, and neither waits for the other.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vyx/sync.h>

#include "container/container_inter.h"

namespace {

constexpr size_t kLine = 64; // bytes; storage that starts at such a multiple is copied to and from sooner

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

using Stored = VYX_CYCLE_STORED_S;

// The place nLen bytes behind another one, around the storage's end. nLen is at most the capacity.
uint32_t Behind_Local(const VYX_CYCLE_BUFFER_T &ring, uint32_t nAt, uint32_t nLen) {
    const auto nTail = static_cast<uint32_t>(ring.iCapacity) - nAt;
    return nLen >= nTail ? nLen - nTail : nAt + nLen;
}

// Drops the bytes of a read that began after nDrops others. If another read, perhaps from within the callback, dropped
// them already, they stay dropped once. Where it dropped a whole ring the place alone would not tell.
void Drop_Local(VYX_CYCLE_BUFFER_T &ring, const Stored &taken, uint32_t nDrops) {
    if (ring.nDrops.load(std::memory_order_relaxed) != nDrops)
        return;
    Stored now = ring.stored.load(std::memory_order_relaxed);
    Stored next;
    do {
        if (now.iRead != taken.iRead)
            return;
        const uint32_t nLen = std::min(taken.nCount, now.nCount);
        next = {static_cast<int32_t>(Behind_Local(ring, static_cast<uint32_t>(now.iRead), nLen)),
                now.nCount - nLen};
    } while (!ring.stored.compare_exchange_weak(now, next, std::memory_order_release));
    ring.nDrops.fetch_add(1, std::memory_order_relaxed);
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
    (void)ring.fnCallback(ring.pData, Behind_Local(ring, nRead, stored.nCount), ring.pUser);
}

} // namespace

int32_t VYX_CycleBufferInit(VYX_HANDLE_CYCLEBUFFER *phBuffer, int32_t iCapacity,
                            VYX_CYCLEBUFFER_PROC fnCallback, void *pUser) {
    if (phBuffer == nullptr || fnCallback == nullptr || iCapacity < 1)
        return VYX_ERROR;
    size_t nRoom = static_cast<size_t>(iCapacity) + kLine - 1;
    void *pBlock = std::calloc(1, sizeof(VYX_CYCLE_BUFFER_T) + nRoom);
    if (pBlock == nullptr)
        return VYX_ERROR;
    auto *pRing = new (pBlock) VYX_CYCLE_BUFFER_T{};
    void *pStorage = pRing + 1;
    pRing->pData = static_cast<uint8_t *>(std::align(kLine, static_cast<size_t>(iCapacity), pStorage, nRoom));
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
    Stored now = hBuffer->stored.load(std::memory_order_acquire);
    if (nLen > static_cast<uint32_t>(hBuffer->iCapacity) - now.nCount)
        return VYX_ERROR;
    const auto nAt = static_cast<uint32_t>(hBuffer->iWrite);
    const uint32_t nFirst = std::min(nLen, static_cast<uint32_t>(hBuffer->iCapacity) - nAt);
    std::memcpy(hBuffer->pData + nAt, pData, nFirst);
    if (nFirst != nLen)
        std::memcpy(hBuffer->pData, pData + nFirst, nLen - nFirst);
    hBuffer->iWrite = static_cast<int32_t>(Behind_Local(*hBuffer, nAt, nLen));
    while (!hBuffer->stored.compare_exchange_weak(now, {now.iRead, now.nCount + nLen},
                                                  std::memory_order_release, std::memory_order_relaxed)) {
    }
    return VYX_OK;
}

int32_t VYX_CycleBufferRead(VYX_HANDLE_CYCLEBUFFER hBuffer) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    const uint32_t nDrops = hBuffer->nDrops.load(std::memory_order_relaxed);
    const Stored stored = hBuffer->stored.load(std::memory_order_acquire);
    if (stored.nCount == 0)
        return VYX_ERROR;
    HandOver_Local(*hBuffer, stored);
    Drop_Local(*hBuffer, stored, nDrops);
    return VYX_OK;
}

int32_t VYX_CycleBufferValue(VYX_HANDLE_CYCLEBUFFER hBuffer, uint32_t *pCount) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    *pCount = hBuffer->stored.load(std::memory_order_acquire).nCount;
    return VYX_OK;
}

int32_t VYX_CycleBufferDestroy(VYX_HANDLE_CYCLEBUFFER hBuffer) {
    if (hBuffer == nullptr)
        return VYX_ERROR;
    (void)VYX_MutexDestroy(&hBuffer->hLock);
    std::free(hBuffer);
    return VYX_OK;
}
