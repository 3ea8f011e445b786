// Records behind the hash tables and the cycle buffer.
#ifndef VYX_CONTAINER_CONTAINER_INTER_H
#define VYX_CONTAINER_CONTAINER_INTER_H

#include <atomic>
#include <vyx/container.h>

#include "base/lock.h"

VYX_BEGIN_DECLS

// Slots of the tables; hash_table.h says how they are used.
struct VYX_HSLOT_S {
    uint32_t home; // of the key
    uint32_t next; // 0 = the slot is free
    uint32_t near;
    uint32_t far;
    const char *key;
    void *data;
};

struct VYX_HINTSLOT_S {
    uint32_t key;
    uint32_t next; // 0 = the slot is free
    uint32_t near;
    uint32_t far;
    void *data;
};

struct VYX_CYCLE_BUFFER_T {
    uint8_t *pData; // the storage, behind this record in the same block
    uint32_t nCapacity;
    vyx_inter::Lock lock{vyx_inter::Rank::Ring}; // one writer at a time
    uint32_t nWrite VYX_GUARDED_BY(lock);        // where the next byte goes
    std::atomic<uint32_t> nIn;                   // bytes ever written, modulo 2^32
    std::atomic<uint32_t> nOut;                  // bytes ever dropped, modulo 2^32
    std::atomic<uint32_t> nRead;                 // where the oldest byte lies; the reader's
    VYX_CYCLEBUFFER_PROC fnCallback;
    void *pUser;
};

VYX_END_DECLS

#endif
