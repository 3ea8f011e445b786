// Records behind the hash tables and the cycle buffer.
#ifndef VYX_CONTAINER_CONTAINER_INTER_H
#define VYX_CONTAINER_CONTAINER_INTER_H

#include <vyx/container.h>

#include "container/whole_value.h"

VYX_BEGIN_DECLS

// What a search does with an absent key.
enum ACTION : int32_t { FIND = 0, ENTER = 1 };

struct VYX_HSLOT_S {
    uint32_t used; // 0 empty, otherwise the home index of the key
    _VYX_ENTRY entry;
};

struct VYX_HINTSLOT_S {
    uint32_t used; // occupied if it is the complement of the key
    _VYX_INTITEM entry;
};

// What of a ring is stored. It changes as one, so that it can be looked at without the lock. Aligned as a whole, or
// some compilers would call a library for it.
struct alignas(8) VYX_CYCLE_STORED_S {
    int32_t iRead;   // where the oldest byte lies
    uint32_t nCount; // bytes stored
};

struct VYX_CYCLE_BUFFER_T {
    uint8_t *pData;    // the storage, behind this record in the same block
    int32_t iCapacity; // bytes
    int32_t iWrite; // where the next byte goes, 0 to iCapacity - 1; always nCount bytes behind iRead, around
    vyx_inter::WholeValue<VYX_CYCLE_STORED_S> stored;
    std::atomic<uint32_t> nDrops; // reads that are done, around
    VYX_MUTEX_T hLock; // recursive; one writer at a time: guards iWrite and what is free of the storage
    VYX_CYCLEBUFFER_PROC fnCallback;
    void *pUser;
};

VYX_END_DECLS

#endif
