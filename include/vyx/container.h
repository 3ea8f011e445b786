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

/* A zero-filled header of a table with text keys. The library itself does not use it. */
extern VYX_API struct VYX_HSEARCH_DATA VYX_HSEARCH_DATA;

/* A zero-filled header of a table with integer keys. The library itself does not use it. */
extern VYX_API struct VYX_HSEARCH_INTDATA VYX_HSEARCH_INTDATA;

/* ---- Hash tables ------------------------------------------------------------------------------------------
 *
 * A table maps keys to one pointer each, in one allocation that never grows. It is used by one thread at a time or
 * under the caller's lock; no function takes one. pTable is what a create function stored; tables, keys and items are
 * not checked for null, except by destroy. errno is not set on purpose.
 *
 * Text keys are compared, never copied or freed: the table keeps the caller's pointer. A text that is changed, moved
 * or freed while its item is in the table makes the item unfindable, or found under another key.
 *
 * A look-up is short, however full the table is, until the first item is removed. From then on it walks from slot to
 * slot: tables that see removals need about twice the room, and text keys that differ in their first eight bytes.
 * What a removal does to other items stands at the remove functions.
 */

/*
 * Makes a table with text keys.
 *   nCapacity  items wished for; the table gets the least prime number of slots that is neither below it nor below 5:
 *              2 and 3 give 5, 9 and 10 give 11, 100 gives 101. 0 and 1 give 1
 *   ppTable    receives the table, to be given back with VYX_SimpleHashDestroy; null on failure
 *
 * Result:  VYX_OK; VYX_ERROR if ppTable is null or memory is short.
 * Threads: any.
 */
VYX_API int32_t VYX_SimpleHashCreate(uint32_t nCapacity, void **ppTable);

/*
 * Makes a table with integer keys.
 *   nCapacity  items wished for; the table gets the least prime number of slots that is neither below it nor below 5:
 *              2 and 3 give 5, 9 and 10 give 11, 100 gives 101. 0 and 1 give 1
 *   ppTable    receives the table, to be given back with VYX_SimpleIntHashDestroy; null on failure
 *
 * Result:  VYX_OK; VYX_ERROR if ppTable is null or memory is short.
 * Threads: any.
 */
VYX_API int32_t VYX_SimpleIntHashCreate(uint32_t nCapacity, void **ppTable);

/*
 * Adds an item with a text key. Data of a key that is present is never replaced.
 *   pItem   borrowed for the call; the key's text is kept by its pointer and must stay as it is and where it is while
 *           the item is in the table
 *   pTable  from VYX_SimpleHashCreate
 *
 * Result:  VYX_OK if the item is now present, also if it was with the same data; VYX_ERROR, with nothing changed, if
 *          the table is full or the key is present with other data.
 * Threads: one at a time for a table.
 */
VYX_API int32_t VYX_SimpleHashEnter(_VYX_ENTRY *pItem, void *pTable);

/*
 * Adds an item with an integer key. Data of a key that is present is never replaced.
 *   pItem   borrowed for the call
 *   pTable  from VYX_SimpleIntHashCreate
 *
 * Result:  VYX_OK if the item is now present, also if it was with the same data; VYX_ERROR, with nothing changed, if
 *          the table is full or the key is present with other data.
 * Threads: one at a time for a table.
 */
VYX_API int32_t VYX_SimpleIntHashEnter(_VYX_INTITEM *pItem, void *pTable);

/*
 * Looks a text key up.
 *   szKey   borrowed for the call
 *   ppData  receives the item's data, which stay the caller's; null if the key is absent
 *   pTable  from VYX_SimpleHashCreate
 *
 * Result:  VYX_OK; VYX_ERROR if the key is absent, or hidden by a removal (see VYX_SimpleHashRemove).
 * Threads: several may look up at once, while none changes the table.
 */
VYX_API int32_t VYX_SimpleHashFind(const char *szKey, void **ppData, void *pTable);

/*
 * Looks an integer key up.
 *   ppData  receives the item's data, which stay the caller's; null if the key is absent
 *   pTable  from VYX_SimpleIntHashCreate
 *
 * Result:  VYX_OK; VYX_ERROR if the key is absent, or hidden or lost by a removal (see VYX_SimpleIntHashRemove).
 * Threads: several may look up at once, while none changes the table.
 */
VYX_API int32_t VYX_SimpleIntHashFind(uint32_t nKey, void **ppData, void *pTable);

/*
 * Takes an item with a text key out; its key and data stay the caller's.
 *   szKey   borrowed for the call
 *   pTable  from VYX_SimpleHashCreate
 *
 * This has effects on other items. A table that must keep finding all of them is made anew from the items left.
 *   - The slot that becomes free is a gap in the paths of other keys that lead through it: their items behind it are
 *     not found until something fills the gap, and entering one of them again stores it a second time.
 *   - If items with the same hash lie behind it, the last of them is put back into the gap. That leaves the count by
 *     which a table is judged full as it was, so a table that sees many removals reports itself full early.
 *   - In a table that is judged full that item cannot be put back. The result is VYX_ERROR then, the key is gone all
 *     the same, and items behind the gap are not found until something fills it.
 *   - Look-ups take longer from then on, in the whole table.
 *
 * Result:  VYX_OK; VYX_ERROR if the key is absent or the item behind it could not be put back.
 * Threads: one at a time for a table.
 */
VYX_API int32_t VYX_SimpleHashRemove(const char *szKey, void *pTable);

/*
 * Takes an item with an integer key out; its data stay the caller's.
 *   pTable  from VYX_SimpleIntHashCreate
 *
 * This has effects on other items. A table that must keep finding all of them is made anew from the items left.
 *   - The slot that becomes free is a gap in the paths of other keys that lead through it: their items behind it are
 *     not found until something fills the gap, and entering one of them again stores it a second time.
 *   - If items lie behind it on its path, the last of them, whatever its key, is taken out and entered again. It may
 *     be lost by that. It leaves the count by which a table is judged full as it was, so a table that sees many
 *     removals reports itself full early.
 *   - In a table that is judged full that item cannot be entered again. The result is VYX_ERROR then, the key is gone
 *     all the same, and items behind the gap are not found until something fills it.
 *   - Look-ups take longer from then on, in the whole table.
 *
 * Result:  VYX_OK; VYX_ERROR if the key is absent or the item behind it could not be entered again.
 * Threads: one at a time for a table.
 */
VYX_API int32_t VYX_SimpleIntHashRemove(uint32_t nKey, void *pTable);

/*
 * Frees a table with text keys, not its keys and data.
 *   pTable  from VYX_SimpleHashCreate; no longer a table after the call
 *
 * Result:  VYX_OK; VYX_ERROR for null.
 * Threads: nobody else may be using the table.
 */
VYX_API int32_t VYX_SimpleHashDestroy(void *pTable);

/*
 * Frees a table with integer keys, not its data.
 *   pTable  from VYX_SimpleIntHashCreate; no longer a table after the call
 *
 * Result:  VYX_OK; VYX_ERROR for null.
 * Threads: nobody else may be using the table.
 */
VYX_API int32_t VYX_SimpleIntHashDestroy(void *pTable);

/* ---- Cycle buffer: a ring of bytes ------------------------------------------------------------------------
 *
 * Writers add bytes, one reader at a time takes all of them through the callback given at creation. Writers exclude
 * each other by a lock, readers wait for nobody. The callback runs without the lock and may use the ring. If it reads
 * the ring, it is handed the same bytes once more, and they are dropped once.
 */

/*
 * Makes a ring.
 *   phBuffer    receives the handle, to be given back with VYX_CycleBufferDestroy; untouched on failure
 *   iCapacity   bytes, at least 1
 *   fnCallback  called by VYX_CycleBufferRead, on its thread; its result is ignored
 *   pUser       handed to the callback
 *
 * Result:  VYX_OK; VYX_ERROR if phBuffer or fnCallback is null, iCapacity is below 1 or memory is short.
 * Threads: any.
 */
VYX_API int32_t VYX_CycleBufferInit(VYX_HANDLE_CYCLEBUFFER *phBuffer, int32_t iCapacity,
                                    VYX_CYCLEBUFFER_PROC fnCallback, void *pUser);

/*
 * Copies bytes into the ring, all or none.
 *   pData  borrowed for the call
 *   nLen   bytes, at least 1
 *
 * Result:  VYX_OK; VYX_ERROR if hBuffer or pData is null, nLen is 0, or there is not enough room: it does not wait
 *          for it.
 * Threads: any number at once, beside a reader.
 */
VYX_API int32_t VYX_CycleBufferWrite(VYX_HANDLE_CYCLEBUFFER hBuffer, const uint8_t *pData, uint32_t nLen);

/*
 * Hands the bytes stored at this moment to the callback and drops them. Bytes that run up to the storage's end
 * or past it come in two calls, the second from its start (with a length of 0 if nothing wrapped). Of such a
 * first call the length is the capacity less the bytes stored, though never past the storage's end: where more
 * bytes are stored than lie before the oldest of them, the rest of the first piece is dropped unseen. Callers that
 * need every byte make the ring at least twice as large as what is ever stored at once.
 *
 * Result:  VYX_OK; VYX_ERROR if hBuffer is null or nothing is stored (no callback then): it does not wait for bytes.
 * Threads: one reader at a time, beside writers. Bytes written meanwhile stay for the next read.
 */
VYX_API int32_t VYX_CycleBufferRead(VYX_HANDLE_CYCLEBUFFER hBuffer);

/*
 * Tells how many bytes are stored.
 *   pCount  receives bytes; must not be null; untouched on failure
 *
 * Result:  VYX_OK; VYX_ERROR for a null handle.
 * Threads: any number at once.
 */
VYX_API int32_t VYX_CycleBufferValue(VYX_HANDLE_CYCLEBUFFER hBuffer, uint32_t *pCount);

/*
 * Frees the ring and what it holds.
 *
 * Result:  VYX_OK; VYX_ERROR for a null handle.
 * Threads: nobody else may be using the ring, nor a callback of it be running.
 */
VYX_API int32_t VYX_CycleBufferDestroy(VYX_HANDLE_CYCLEBUFFER hBuffer);

/* ---- Aligned memory --------------------------------------------------------------------------------------- */

/*
 * Allocates zeroed memory at a multiple of an alignment (malloc underneath).
 *   iSize       bytes, 0 or more
 *   iAlignment  bytes, a power of two
 *
 * Result:  the memory, to be given back with VYX_AlignedFree, not free(); null for any other alignment or size, and
 *          when memory is short or the sum of both and 8 does not fit 31 bits.
 * Threads: any.
 */
VYX_API void *VYX_AlignedMalloc(int32_t iSize, int32_t iAlignment);

/*
 * Frees aligned memory.
 *   pMemory  from VYX_AlignedMalloc, once; must not be null
 *
 * Result:  VYX_OK.
 * Threads: any.
 */
VYX_API int32_t VYX_AlignedFree(void *pMemory);

VYX_END_DECLS

#endif
