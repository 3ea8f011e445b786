/*
 * Types and constants that every libvyx header shares. Nothing here needs the started library.
 *
 * Conventions of the whole interface:
 *   results    0 (VYX_OK) for success and -1 (VYX_ERROR) for failure, unless a function says otherwise
 *   time-outs  unsigned 32-bit milliseconds; VYX_INFINITE means no limit
 *   pointers   borrowed for the call, and the caller's, unless a function says that it keeps or hands over what is there
 *   texts      bytes up to a zero, in no encoding of the library's own
 *   handles    the invalid value of a thread or a storage key has all bits set, of a descriptor is -1
 */
#ifndef VYX_TYPES_H
#define VYX_TYPES_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define VYX_BEGIN_DECLS extern "C" {
#define VYX_END_DECLS }
#define VYX_ENUM32 : int32_t
#else
#define VYX_BEGIN_DECLS
#define VYX_END_DECLS
#define VYX_ENUM32
#endif

/* Marks what the shared library exports; everything else in it is hidden. */
#define VYX_API __attribute__((visibility("default")))
/* Lets the compiler check a printf-like call: position of the format and of its first argument. */
#define VYX_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#define VYX_NORETURN __attribute__((noreturn))

/* Results. */
#define VYX_OK 0
#define VYX_ERROR (-1)         /* failure; all 32 bits set */
#define VYX_NOT_AVAILABLE (-2) /* the operation does not exist on this platform */

/* Answers, where a function's comment names them. */
#define VYX_TRUE 1
#define VYX_FALSE 0

#define VYX_INFINITE 0xFFFFFFFFu /* time-out without a limit; unsigned, becomes -1 in an int32_t */

/* Microseconds since 1970-01-01 00:00:00 UTC, 64 bits on every processor. */
typedef int64_t VYX_TIME_T;

typedef int VYX_SOCK_T;                /* platform descriptor */
typedef int VYX_FILE_T;                /* platform descriptor */
typedef struct _DIR_INFO_T *VYX_DIR_T; /* an open directory; null is none */

/* Storage of mutexes and conditions belongs to the caller; the flat functions take its address. */
typedef pthread_mutex_t VYX_MUTEX_T;
typedef pthread_cond_t VYX_COND_T;

/* A caller-owned slot that VYX_SemCreate fills with the library's record. */
typedef struct VYX_SEM_S *VYX_SEM_T;

typedef pthread_t VYX_THREAD_T;  /* a thread */
typedef pthread_key_t VYX_TLS_T; /* a key of thread-local storage */

/* Handles of records that the library owns; null is none. */
typedef struct VYX_EVENT_T *VYX_EVENT;                     /* an event */
typedef struct THREAD_POOL_T *VYX_HANDLE_THREADPOOL;       /* a fixed pool */
typedef void *VYX_HANDLE_THREADPOOLFLEX;                   /* a flexible pool */
typedef struct VYX_MQ_INTER *VYX_HANDLE_MSGQ;              /* a message queue */
typedef struct VYX_CYCLE_BUFFER_T *VYX_HANDLE_CYCLEBUFFER; /* a ring of bytes */
typedef void *VYX_HANDLE_DSO;                              /* a loaded module */

/* A thread's or a work item's routine. */
typedef void *(*VYX_THREAD_PROC)(void *pParam);

/* What stands for none. */
#define VYX_INVALID_THREAD ((VYX_THREAD_T)(intptr_t)-1)
#define VYX_INVALID_TLS ((VYX_TLS_T)-1)
#define VYX_INVALID_SOCKET (-1)
#define VYX_INVALID_FILE (-1)

#endif
