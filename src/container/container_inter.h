// Records behind the hash tables and the cycle buffer.
#ifndef VYX_CONTAINER_CONTAINER_INTER_H
#define VYX_CONTAINER_CONTAINER_INTER_H

#include <atomic>
#include <vyx/container.h>

#include "base/fork.h"

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
    uint32_t nEnd;                               // where both counts begin anew: a multiple of the capacity
    vyx_inter::Lock lock{vyx_inter::Rank::Ring}; // one writer at a time
    std::atomic<uint32_t> nForks;                // of the process, when the lock was made
    std::atomic<uint32_t> nIn;                   // bytes ever written, modulo nEnd
    std::atomic<uint32_t> nOut;                  // bytes ever dropped, modulo nEnd
    VYX_CYCLEBUFFER_PROC fnCallback;
    void *pUser;
};

extern const vyx_inter::ForkRow g_struRingForkRow;

VYX_END_DECLS

#endif
