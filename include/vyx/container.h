/*
 * Containers and memory: hash tables of fixed capacity, a byte ring, and aligned allocation. Nothing here needs
 * the started library or prints. Failures are VYX_ERROR or null; errno is not set on purpose.
 */
#ifndef VYX_CONTAINER_H
#define VYX_CONTAINER_H

#include <vyx/types.h>

/* An item of a string table. The caller owns the key's text and the data; both must outlive the item. */
typedef struct _VYX_ENTRY {
    char *key;
    void *data;
} _VYX_ENTRY;

/* An item of an integer table. The caller owns the data. */
typedef struct _VYX_INTITEM {
    uint32_t key;
    void *data;
} _VYX_INTITEM;

/*
 * The header of a table, which the create functions allocate together with its slots. No typedefs: the objects
 * below have the same names, so always write "struct".
 */
struct VYX_HSEARCH_DATA {
    struct VYX_HSLOT_S *table;
    uint32_t size;   /* slots */
    uint32_t filled; /* what "full" is judged by; see the remove functions */
};
struct VYX_HSEARCH_INTDATA {
    struct VYX_HINTSLOT_S *table;
    uint32_t size;
    uint32_t filled;
};

/* Takes nLen bytes that a ring held, for the length of the call. The result is ignored. */
typedef int32_t (*VYX_CYCLEBUFFER_PROC)(uint8_t *pData, uint32_t nLen, void *pUser);

VYX_BEGIN_DECLS

/* Zero-filled headers that the library itself does not use. */
extern VYX_API struct VYX_HSEARCH_DATA VYX_HSEARCH_DATA;
extern VYX_API struct VYX_HSEARCH_INTDATA VYX_HSEARCH_INTDATA;

/* ---- Hash tables ------------------------------------------------------------------------------------------
 *
 * A table maps keys to one pointer each, in one allocation that never grows. Keys are compared, never copied or
 * freed. A table is used by one thread at a time or under the caller's lock. pTable is what a create function
 * stored; it and the keys are not checked for null, except by destroy.
 */

/*
 * Make a table.
 *   nCapacity  wish; the table gets the least prime number of slots that is neither below it nor below 5: 2 and 3 give
 *              5, 9 and 10 give 11, 100 gives 101. 0 and 1 give 1
 *   ppTable    receives the table, to be given back with the destroy function; null on failure
 *
 * Result:  VYX_OK; VYX_ERROR if ppTable is null or memory is short.
 */
VYX_API int32_t VYX_SimpleHashCreate(uint32_t nCapacity, void **ppTable);
VYX_API int32_t VYX_SimpleIntHashCreate(uint32_t nCapacity, void **ppTable);

/*
 * Add an item. Data of a key that is present is never replaced.
 *   pItem  borrowed for the call; the key's text must stay as it is while the item is in the table
 *
 * Result:  VYX_OK if the item is now present, also if it was with the same data; VYX_ERROR if the table is full
 *          or the key is present with other data.
 */
VYX_API int32_t VYX_SimpleHashEnter(_VYX_ENTRY *pItem, void *pTable);
VYX_API int32_t VYX_SimpleIntHashEnter(_VYX_INTITEM *pItem, void *pTable);

/* Look a key up. VYX_OK with its data in *ppData; VYX_ERROR with null if it is absent. */
VYX_API int32_t VYX_SimpleHashFind(const char *szKey, void **ppData, void *pTable);
VYX_API int32_t VYX_SimpleIntHashFind(uint32_t nKey, void **ppData, void *pTable);

/*
 * Take an item out. If other items lie behind it on its probe path, the last of them is put back nearer to the
 * path's start. That leaves the count by which a table is judged full as it was, so a table that sees many
 * removals reports itself full early: make it larger than needed, or anew.
 *
 * In a table that is judged full the moved item cannot be put back. The result is VYX_ERROR then, the key is
 * gone all the same, and items behind the gap are not found until something fills it.
 *
 * The slot that becomes free is also a gap in the paths of other home slots that lead through it: their items behind
 * it are not found until something fills the gap, and entering one of them again stores it a second time. In an
 * integer table the item that is moved may besides belong to another home slot, and may then be lost. A table that
 * must keep finding everything else after a removal is made anew from the items that are left.
 *
 * Result:  VYX_OK; VYX_ERROR if the key is absent or the item behind it could not be put back.
 */
VYX_API int32_t VYX_SimpleHashRemove(const char *szKey, void *pTable);
VYX_API int32_t VYX_SimpleIntHashRemove(uint32_t nKey, void *pTable);

/* Free a table, not its keys and data. VYX_OK; VYX_ERROR for null. */
VYX_API int32_t VYX_SimpleHashDestroy(void *pTable);
VYX_API int32_t VYX_SimpleIntHashDestroy(void *pTable);

/* ---- Cycle buffer: a ring of bytes ------------------------------------------------------------------------
 *
 * Writers add bytes, one reader at a time takes all of them through the callback given at creation. Every call is
 * safe from any thread: writers exclude each other by a recursive lock, readers wait for nobody. The callback runs
 * without the lock and may use the ring. If it reads the ring, it is handed the same bytes once more.
 */

/*
 * Makes a ring.
 *   phBuffer    receives the handle, to be given back with VYX_CycleBufferDestroy
 *   iCapacity   bytes, at least 1
 *   fnCallback  called by VYX_CycleBufferRead; pUser is handed to it
 *
 * Result:  VYX_OK; VYX_ERROR if phBuffer or fnCallback is null, iCapacity is below 1 or memory is short.
 */
VYX_API int32_t VYX_CycleBufferInit(VYX_HANDLE_CYCLEBUFFER *phBuffer, int32_t iCapacity,
                                    VYX_CYCLEBUFFER_PROC fnCallback, void *pUser);

/*
 * Copies nLen bytes into the ring, all or none.
 *
 * Result:  VYX_OK; VYX_ERROR if hBuffer or pData is null, nLen is 0, or there is not enough room.
 */
VYX_API int32_t VYX_CycleBufferWrite(VYX_HANDLE_CYCLEBUFFER hBuffer, const uint8_t *pData, uint32_t nLen);

/*
 * Hands the bytes stored at this moment to the callback and drops them. Bytes that run up to the storage's end
 * or past it come in two calls, the second from its start (with a length of 0 if nothing wrapped). Of such a
 * first call the length is the capacity less the bytes stored, though never past the storage's end: where more
 * bytes are stored than lie before the oldest of them, the rest of the first piece is dropped unseen. Callers that
 * need every byte make the ring at least twice as large as what is ever stored at once.
 *
 * Result:  VYX_OK; VYX_ERROR if hBuffer is null or nothing is stored (no callback then).
 * Threads: one reader at a time. Bytes written meanwhile stay for the next read.
 */
VYX_API int32_t VYX_CycleBufferRead(VYX_HANDLE_CYCLEBUFFER hBuffer);

/* The bytes stored, into *pCount. VYX_OK; VYX_ERROR for a null handle. */
VYX_API int32_t VYX_CycleBufferValue(VYX_HANDLE_CYCLEBUFFER hBuffer, uint32_t *pCount);

/* Frees the ring and what it holds. Nobody may be using it. VYX_OK; VYX_ERROR for a null handle. */
VYX_API int32_t VYX_CycleBufferDestroy(VYX_HANDLE_CYCLEBUFFER hBuffer);

/* ---- Aligned memory --------------------------------------------------------------------------------------- */

/*
 * Allocates zeroed memory at a multiple of an alignment (malloc underneath). Any thread.
 *   iSize       bytes, 0 or more
 *   iAlignment  bytes, a power of two
 *
 * Result:  the memory, to be given back with VYX_AlignedFree; null for any other alignment or size, and when
 *          memory is short or the sum of both does not fit 31 bits.
 */
VYX_API void *VYX_AlignedMalloc(int32_t iSize, int32_t iAlignment);

/* Frees what VYX_AlignedMalloc returned, which must not be null. Returns VYX_OK. */
VYX_API int32_t VYX_AlignedFree(void *pMemory);

VYX_END_DECLS

#endif
