/*
 * System utilities: debug output, sleeping, random numbers, processor count, UUIDs, and conversion between
 * EUC-CN and UTF-8. Nothing here needs the started library. Unless a function says otherwise it may be called
 * from any thread and checks no pointer for null.
 */
#ifndef VYX_SYS_H
#define VYX_SYS_H

#include <vyx/types.h>

/* How to open a file. */
#define VYX_OPEN_READ 0x01
#define VYX_OPEN_WRITE 0x02
#define VYX_OPEN_CREATE 0x04
#define VYX_OPEN_APPEND 0x08
#define VYX_OPEN_TRUNCATE 0x10
#define VYX_OPEN_EXCL 0x40

/* Permissions and attributes of a file. VYX_GSETID and VYX_ATTR_EXECUTE are the same bit. */
#define VYX_USETID 0x8000
#define VYX_GSETID 0x4000
#define VYX_ATTR_EXECUTE 0x4000
#define VYX_ATTR_WRITE 0x2000
#define VYX_ATTR_READONLY 0x1000
#define VYX_UREAD 0x0400
#define VYX_UWRITE 0x0200
#define VYX_UEXECUTE 0x0100
#define VYX_GREAD 0x0040
#define VYX_GWRITE 0x0020
#define VYX_GEXECUTE 0x0010
#define VYX_WREAD 0x0004
#define VYX_WWRITE 0x0002
#define VYX_WEXECUTE 0x0001

/* Kinds of directory entries. */
#define VYX_TYPE_REG 512
#define VYX_TYPE_DIR 256
#define VYX_TYPE_BLK 128
#define VYX_TYPE_LINK 64
#define VYX_TYPE_PIPE 32
#define VYX_TYPE_SOCK 16
#define VYX_TYPE_UNKNOWN 8
#define VYX_TYPE_CHR 1

/* What is known of a file. */
typedef struct VYX_FINFO_T {
    uint32_t type;
    uint32_t uid;
    uint32_t gid;
    uint32_t perm;
    uint32_t rdev;
    uint32_t nlink;
    uint64_t inode;
    int64_t size;
    int64_t atime;
    int64_t ctime;
    int64_t mtime;
} VYX_FINFO_T;

/* One entry of a directory. */
typedef struct _FILE_FIND_INFO {
    char name[260];
    VYX_FINFO_T finfo;
} _FILE_FIND_INFO;

/* 48 bytes; cleared, never filled, on this platform. Sizes are in bytes. */
typedef struct VYX_MEMORY_STATUS_T {
    uint64_t nTotalPhys;
    uint64_t nAvailPhys;
    uint64_t nTotalSwap;
    uint64_t nAvailSwap;
    uint64_t nTotalVirtual;
    uint64_t nAvailVirtual;
} VYX_MEMORY_STATUS_T;

/* 56 bytes, one for each processor; never filled on this platform. */
typedef struct VYX_CPU_PERFORMANCE_T {
    uint64_t nIndex;
    uint64_t nUser;
    uint64_t nNice;
    uint64_t nSystem;
    uint64_t nIdle;
    uint64_t nReserved[2];
} VYX_CPU_PERFORMANCE_T;

VYX_BEGIN_DECLS

/* Accepts a format and arguments and does nothing: switched-off debug output. */
VYX_API void VYX_Debug(const char *szFormat, ...) VYX_PRINTF(1, 2);

/*
 * Formats as printf does, appends a line feed, and writes the text to standard error in one piece. A text that
 * ends in a line feed is thus followed by an empty line. At most 5117 bytes of the text are shown; the line
 * feed follows them. A zero byte in the text (from "%c") ends what is shown, line feed included.
 *
 * Result:  that of fputs: not negative, or EOF.
 */
VYX_API int32_t VYX_OutputDebug(const char *szFormat, ...) VYX_PRINTF(1, 2);

/* Writes the text to standard error as it is, without a line feed. */
VYX_API void VYX_OutputDebugString(const char *szText);

/*
 * Sleep (usleep). The milliseconds are multiplied by 1000 in 32 bits: 4294968 ms and more wrap around.
 *
 * Result:  0; -1 if a signal handler ended the sleep early (errno is EINTR).
 */
VYX_API int32_t VYX_USleep(uint32_t nMicroseconds);
VYX_API int32_t VYX_Sleep(uint32_t nMilliseconds);

/*
 * A number from 0 to 2^31 - 1. The process-wide generator of random() is seeded with the millisecond tick at
 * every call: calls within one millisecond give the same number, and a program's own srandom is undone. Not
 * for secrets.
 */
VYX_API int32_t VYX_Rand(void);

/* Fills nLength bytes with 0 and returns pMemory. */
VYX_API void *VYX_ZeroMemory(void *pMemory, size_t nLength);

/* Processors online (sysconf on Linux, sysctl on Darwin); 1 if that cannot be told. */
VYX_API int32_t VYX_GetCPUNumber(void);

/*
 * Writes a new random UUID of 16 bytes (version 4, from the kernel's random source).
 *
 * Result:  always 0.
 */
VYX_API int32_t VYX_GetUUID(uint8_t *pUuid16);

/*
 * Prints a UUID as "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X". The first three groups are its bytes
 * 0-3, 4-5 and 6-7 read as integers in the processor's byte order, so that the same bytes print differently
 * on little-endian and big-endian processors.
 *   iSize  bytes at szOut; the whole text needs 37. At exactly 36 its last digit is cut off
 *
 * Result:  0; -1 with nothing written if iSize is below 36.
 */
VYX_API int32_t VYX_StringFromUUID(const uint8_t *pUuid16, char *szOut, int32_t iSize);

/*
 * Queries that this platform does not support.
 *
 * VYX_GetMemoryStatus clears the record. VYX_GetNetWorkFlowData leaves it alone. VYX_GetCPUPerformance stores
 * the bytes needed, the number of processors times 56, in *pSize and leaves the records alone.
 *
 * Result:  VYX_NOT_AVAILABLE (-2). VYX_ERROR (-1) for a null pointer, or a *pSize below what is needed.
 */
VYX_API int32_t VYX_GetMemoryStatus(VYX_MEMORY_STATUS_T *pStatus);
VYX_API int32_t VYX_GetNetWorkFlowData(void *pRecord);
VYX_API int32_t VYX_GetCPUPerformance(VYX_CPU_PERFORMANCE_T *pRecords, uint32_t *pSize);

VYX_END_DECLS

#ifdef __cplusplus

#include <string>

/*
 * Convert a zero-terminated text from EUC-CN to UTF-8 and back (iconv).
 *
 * Result:  the converted text, owned by the caller; an empty one if szText is null or empty, holds an invalid,
 *          incomplete or (to EUC-CN) unrepresentable character, if the system has no such converter, or if
 *          memory is short.
 */
VYX_API std::string VYX_A2UTF8(const char *szText);
VYX_API std::string VYX_UTF82A(const char *szText);

#endif

#endif
