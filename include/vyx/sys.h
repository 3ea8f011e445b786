/*
 * Files, directories and dynamic modules; and system utilities: debug output, sleeping, random numbers, processor
 * count, UUIDs, and conversion between EUC-CN and UTF-8. Nothing here needs the started library. Unless a function
 * says otherwise it may be called from any thread, checks no pointer for null, and leaves errno as the platform's
 * call set it.
 */
#ifndef VYX_SYS_H
#define VYX_SYS_H

#include <vyx/types.h>

/* How to open a file, a set of bits. Reading, writing or both must be among them. */
#define VYX_OPEN_READ 0x01
#define VYX_OPEN_WRITE 0x02
#define VYX_OPEN_CREATE 0x04   /* make the file if it does not exist (O_CREAT) */
#define VYX_OPEN_APPEND 0x08   /* every write goes to the end (O_APPEND) */
#define VYX_OPEN_TRUNCATE 0x10 /* empty an existing file (O_TRUNC) */
#define VYX_OPEN_EXCL 0x40     /* fail if it exists (O_EXCL); without VYX_OPEN_CREATE it has no effect */

/*
 * Permissions of a file, a set of bits: the rights of the owner (U), the group (G) and all others (W), and attributes
 * that are short for rights of the owner. VYX_GSETID and VYX_ATTR_EXECUTE are the same bit: it is the owner's
 * right to execute where permissions are given, and the set-group-id bit where they are reported.
 */
#define VYX_USETID 0x8000        /* S_ISUID */
#define VYX_GSETID 0x4000        /* S_ISGID; only reported */
#define VYX_ATTR_EXECUTE 0x4000  /* S_IXUSR; only given */
#define VYX_ATTR_WRITE 0x2000    /* S_IWUSR; only given */
#define VYX_ATTR_READONLY 0x1000 /* S_IRUSR and nothing else, whatever other bits are given; never reported */
#define VYX_UREAD 0x0400
#define VYX_UWRITE 0x0200
#define VYX_UEXECUTE 0x0100
#define VYX_GREAD 0x0040
#define VYX_GWRITE 0x0020
#define VYX_GEXECUTE 0x0010
#define VYX_WREAD 0x0004
#define VYX_WWRITE 0x0002
#define VYX_WEXECUTE 0x0001

/* Kinds of files. */
#define VYX_TYPE_REG 512   /* regular file */
#define VYX_TYPE_DIR 256   /* directory */
#define VYX_TYPE_BLK 128   /* block device */
#define VYX_TYPE_LINK 64   /* symbolic link */
#define VYX_TYPE_PIPE 32   /* pipe */
#define VYX_TYPE_SOCK 16   /* socket */
#define VYX_TYPE_UNKNOWN 8 /* anything else */
#define VYX_TYPE_CHR 1     /* character device */

/*
 * What is known of a file, 64 bytes. The three times count from 1970-01-01 00:00:00 UTC: from VYX_FileStat in
 * seconds, from VYX_FindFileInDir in microseconds, always whole seconds.
 */
typedef struct VYX_FINFO_T {
    uint32_t type;  /* one of VYX_TYPE_... */
    uint32_t uid;   /* owner */
    uint32_t gid;   /* group */
    uint32_t perm;  /* permission bits, as VYX_GetPermByMode gives them */
    uint32_t rdev;  /* device number of a device, its low 32 bits */
    uint32_t nlink; /* number of hard links, its low 32 bits */
    uint64_t inode; /* serial number within the file system */
    int64_t size;   /* bytes */
    int64_t atime;  /* last access */
    int64_t ctime;  /* last change of status */
    int64_t mtime;  /* last modification */
} VYX_FINFO_T;

/* One entry of a directory. */
typedef struct _FILE_FIND_INFO {
    /* The entry's own name without a path, zero-terminated; a longer name is cut at 259 bytes. */
    char name[260];
    /* What is known of it, with times in microseconds; all zeros if that cannot be told. */
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

/* ---- Files --------------------------------------------------------------------------------------------------- */

/*
 * Opens a file (open). The descriptor is the caller's until VYX_CloseFile; a program that is started later inherits
 * it.
 *   szPath  borrowed for the call
 *   nFlags  VYX_OPEN_... bits; any others are ignored
 *   nPerm   permission bits of a file that is made, less the process's file-creation mask; the low 16 bits count
 *
 * Result:  the descriptor; VYX_INVALID_FILE (-1) if that failed, for a null path, and with nothing touched for
 *          flags with neither VYX_OPEN_READ nor VYX_OPEN_WRITE. A signal handler may end the opening of a pipe or
 *          device early (EINTR).
 * Threads: any.
 */
VYX_API VYX_FILE_T VYX_OpenFile(const char *szPath, uint32_t nFlags, uint32_t nPerm);

/*
 * Closes the descriptor (close).
 *
 * Result:  0; -1 for VYX_INVALID_FILE or if that failed: it is closed all the same.
 * Threads: one; nobody may use the number afterwards. A thread that is cancelled closes it first.
 */
VYX_API int32_t VYX_CloseFile(VYX_FILE_T hFile);

/* Removes a file, a link or an empty directory (remove). Result: 0; -1 for a null path or with errno. Threads: any. */
VYX_API int32_t VYX_DeleteFile(const char *szPath);

/*
 * Reads at the file's position with one call of the platform (read), which may do less than asked: near the end of a
 * file, from pipes and devices, after a signal, and past 2147479552 bytes.
 *   nSize   bytes to read into pBuf
 *   pCount  receives the bytes read, 0 at the end of the file, -1 after a failed call; may be null
 *
 * Result:  0, also at the end; -1 with errno if the call failed; -1 for a null buffer or VYX_INVALID_FILE, *pCount
 *          untouched. A signal handler may end a wait early (EINTR); it is not begun again.
 * Threads: any; all descriptors of one opening share its position.
 */
VYX_API int32_t VYX_ReadFile(VYX_FILE_T hFile, void *pBuf, uint32_t nSize, int32_t *pCount);

/*
 * Writes at the file's position with one call of the platform (write), which may do less than asked: to pipes and
 * devices, on a full disk, after a signal, and past 2147479552 bytes.
 *   nSize   bytes at pBuf
 *   pCount  receives the bytes written, -1 after a failed call; may be null
 *
 * Result:  0; -1 with errno if the call failed; -1 for a null buffer or VYX_INVALID_FILE, *pCount untouched. A signal
 *          handler may end a wait early (EINTR); it is not begun again.
 * Threads: any; all descriptors of one opening share its position.
 */
VYX_API int32_t VYX_WriteFile(VYX_FILE_T hFile, const void *pBuf, uint32_t nSize, int32_t *pCount);

/*
 * Moves the file's position (lseek). Past the end is allowed: a write there leaves a gap that reads as zeros.
 *   iOffset    bytes, may be negative
 *   iWhence    from where: 0 the start, 1 the position, 2 the end; passed to the platform as it is
 *   pPosition  receives the new position, -1 after a failure; may be null
 *
 * Result:  0; -1 with errno. A failure prints "last error = N" with that errno to standard output, among the program's
 *          own: do not ask a pipe or a terminal for its position this way if that matters.
 * Threads: any; all descriptors of one opening share its position.
 */
VYX_API int32_t VYX_FileSeek(VYX_FILE_T hFile, int64_t iOffset, int32_t iWhence, int64_t *pPosition);

/*
 * Does not tell whether the end of a file is reached: that shows as a read of 0 bytes (VYX_ReadFile).
 *
 * Result:  always 1, whatever the file.
 * Threads: any.
 */
VYX_API int32_t VYX_FileIsEOF(VYX_FILE_T hFile);

/*
 * Fills the record with what is known of the open file (fstat), its times in whole seconds.
 *
 * Result:  0; -1 with the record untouched for a null record, VYX_INVALID_FILE, or with errno.
 * Threads: any.
 */
VYX_API int32_t VYX_FileStat(VYX_FILE_T hFile, VYX_FINFO_T *pInfo);

/* Waits until what was written is on disk (fsync). Result: 0; -1 for VYX_INVALID_FILE or with errno. Threads: any. */
VYX_API int32_t VYX_FileFlush(VYX_FILE_T hFile);

/*
 * Asks whether the process's real user may use the path (access).
 *   iMode  0 does it exist, 1 execute, 2 write, 4 read, or a sum of these; passed to the platform as it is
 *
 * Result:  0 yes; -1 no, or it cannot be told, with errno. A null path is -1 with EFAULT.
 * Threads: any.
 */
VYX_API int32_t VYX_AccessFile(const char *szPath, int32_t iMode);

/*
 * Renames a file or a directory (rename); an existing target is replaced in one step.
 *
 * Result:  0; -1 for a null path or with errno.
 * Threads: any.
 */
VYX_API int32_t VYX_RenameFile(const char *szOld, const char *szNew);

/*
 * Copies the content of a file; blocks until done, and at a pipe as the source until somebody opens it for writing.
 * Links are followed. A target that is made has the source's permissions less the process's file-creation mask; an
 * existing one keeps its own and must be both readable and writable. It is opened as it is, and emptied only when it is
 * known not to be the source. The size at the start of
 * the call is what is copied; gaps stay gaps.
 *   bFailIfExists  not 0: leave an existing target alone
 *
 * Result:  1 copied.
 *          -1 with nothing touched: a null path; bFailIfExists and the target exists; the source cannot be opened;
 *          both are the same file, whether by name or by link (EINVAL).
 *          -1 with the target left behind, empty or filled in part and not removed: the source is empty (EINVAL);
 *          it is neither a regular file nor a block device (ENODEV); it became shorter meanwhile (EIO, the rest
 *          of the target reads as zeros); memory, the disk or the platform failed. If the target is a pipe or a
 *          character device the result is -1, too.
 *          A change of the source during the call never ends the process; whether it shows in the copy is open.
 * Threads: any; of two that copy to one target at once, neither knows what it will hold. One that is cancelled in it
 *          leaves no descriptor open.
 */
VYX_API int32_t VYX_CopyFile(const char *szSource, const char *szTarget, int32_t bFailIfExists);

/*
 * Writes the full path of the running program's file, links resolved and zero-terminated.
 *   nSize  bytes at szBuf
 *
 * Result:  0; -1 with szBuf untouched: it is null (EINVAL), nSize is below the path's length plus 1 (ENOMEM), the
 *          path has 1024 bytes or more, the file is gone, or (Linux) /proc cannot be read.
 * Threads: any.
 */
VYX_API int32_t VYX_GetCurExePath(char *szBuf, uint32_t nSize);

/* ---- Directories --------------------------------------------------------------------------------------------- */

/*
 * Makes a directory with the rights rwxrw-rw-, whatever the process's file-creation mask (mkdir, chmod).
 *
 * Result:  0; -1 for a null path or with the errno of the call that failed; after a failed chmod the directory stays.
 * Threads: any.
 */
VYX_API int32_t VYX_MakeDir(const char *szPath);

/* Removes an empty directory; also a file (remove). Result: 0; -1 for a null path or with errno. Threads: any. */
VYX_API int32_t VYX_RemoveDir(const char *szPath);

/*
 * Opens a directory (opendir), whose entries VYX_FindFileInDir then gives one by one. The handle is the caller's until
 * VYX_CloseDir.
 *
 * Result:  the handle; null for a null path, or with errno if it cannot be opened or memory is short.
 * Threads: any.
 */
VYX_API VYX_DIR_T VYX_OpenDir(const char *szPath);

/*
 * Closes the directory (closedir); the handle is gone.
 *
 * Result:  0; -1 for null.
 * Threads: one; nobody may use the handle afterwards.
 */
VYX_API int32_t VYX_CloseDir(VYX_DIR_T hDir);

/*
 * Takes the next entry of the directory (readdir), in no order; those of the directory itself "." and of its parent
 * ".." are among them. Entries that come or go meanwhile may be missed. Links are followed: the information, with its
 * times in microseconds, is that of what they lead to (stat), looked up in the opened directory, even if it was renamed
 * since or the process is in another directory now.
 *
 * Result:  0, also without the information: of a broken link, or an entry that is gone already, "Get file stat failed!
 *          err:N" with the errno goes to standard output, and all of pInfo but the name is 0 (a type of 0 tells).
 *          -1 with pInfo untouched for a null, at the end, or if reading failed; at the end errno is as it was before.
 * Threads: one at a time for each handle; different handles are independent.
 */
VYX_API int32_t VYX_FindFileInDir(VYX_DIR_T hDir, _FILE_FIND_INFO *pInfo);

/* ---- The library's bits and the platform's ------------------------------------------------------------------- */

/*
 * Turns VYX_OPEN_... bits into flags for open.
 *
 * Result:  the flags; -1 with neither VYX_OPEN_READ nor VYX_OPEN_WRITE.
 * Threads: any.
 */
VYX_API int32_t VYX_GetOFlagByFlag(uint32_t nFlags);

/*
 * Turns permission bits into the platform's mode.
 *
 * Result:  the mode; S_IRUSR alone with VYX_ATTR_READONLY. It never has S_ISGID: 0x4000 becomes S_IXUSR. Bits without a
 *          meaning are dropped.
 * Threads: any.
 */
VYX_API uint16_t VYX_GetModeByPerm(uint32_t nPerm);

/*
 * Turns a platform's mode into permission bits.
 *
 * Result:  the bits. S_ISGID becomes VYX_GSETID (0x4000); the sticky bit and the type are dropped. Back through
 *          VYX_GetModeByPerm it gives the same rights, but for S_ISGID.
 * Threads: any.
 */
VYX_API uint32_t VYX_GetPermByMode(uint32_t nMode);

/* ---- Dynamic modules ----------------------------------------------------------------------------------------- */

/*
 * Loads a module (dlopen), binds all its symbols at once, and makes them visible to modules loaded later. A path
 * without a slash is searched for as the platform's loader does. The module's initialisers run within the call.
 *
 * Result:  the handle, to be given to VYX_UnloadDSo once; null for a null path, or if that failed, with the reason in
 *          dlerror.
 * Threads: any.
 */
VYX_API VYX_HANDLE_DSO VYX_LoadDSo(const char *szPath);

/*
 * Gives one handle back (dlclose); the module goes when nobody holds it any longer.
 *
 * Result:  0; -1 for null or if the platform refused, with the reason in dlerror.
 * Threads: any; nobody may use what was taken from a module that is gone.
 */
VYX_API int32_t VYX_UnloadDSo(VYX_HANDLE_DSO hDso);

/*
 * The address of a module's symbol (dlsym), valid while the module is loaded.
 *
 * Result:  null for a null, or if there is none, with the reason in dlerror.
 * Threads: any.
 */
VYX_API void *VYX_GetDsoSym(VYX_HANDLE_DSO hDso, const char *szName);

/* ---- Debug output -------------------------------------------------------------------------------------------- */

/* Accepts a format and arguments and does nothing: switched-off debug output. Threads: any. */
VYX_API void VYX_Debug(const char *szFormat, ...) VYX_PRINTF(1, 2);

/*
 * Formats as printf does, appends a line feed, and writes the text to standard error in one piece. A text that
 * ends in a line feed is thus followed by an empty line. At most 5117 bytes of the text are shown; the line
 * feed follows them. A zero byte in the text (from "%c") ends what is shown, line feed included.
 *
 * Result:  that of fputs: not negative, or EOF.
 * Threads: any; each text stays in one piece.
 */
VYX_API int32_t VYX_OutputDebug(const char *szFormat, ...) VYX_PRINTF(1, 2);

/* Writes the text to standard error as it is, without a line feed; it must not be null. Threads: any. */
VYX_API void VYX_OutputDebugString(const char *szText);

/* ---- The system ---------------------------------------------------------------------------------------------- */

/* Sleeps (usleep). Result: 0; -1 if a signal handler ended the sleep early (errno is EINTR). Threads: any. */
VYX_API int32_t VYX_USleep(uint32_t nMicroseconds);

/*
 * Sleeps (usleep). The milliseconds are multiplied by 1000 in 32 bits: 4294968 ms and more wrap around, to a shorter
 * sleep.
 *
 * Result:  0; -1 if a signal handler ended the sleep early (errno is EINTR).
 * Threads: any.
 */
VYX_API int32_t VYX_Sleep(uint32_t nMilliseconds);

/*
 * Gives a number that depends on the time (random). The process-wide generator is seeded with the millisecond tick at
 * every call: calls within one millisecond give the same number, and a program's own srandom is undone. Not
 * for secrets.
 *
 * Result:  0 to 2^31 - 1.
 * Threads: any, but they share the generator.
 */
VYX_API int32_t VYX_Rand(void);

/* Fills nLength bytes with 0 (memset). Result: pMemory, which must not be null. Threads: any. */
VYX_API void *VYX_ZeroMemory(void *pMemory, size_t nLength);

/* Counts the processors (sysconf on Linux, sysctl on Darwin). Result: those online; 1 if that cannot be told. Threads:
 * any. */
VYX_API int32_t VYX_GetCPUNumber(void);

/*
 * Writes a new random UUID of 16 bytes (version 4, from the kernel's random source).
 *   pUuid16  not checked for null
 *
 * Result:  0; -1 on Linux where the process may neither ask the kernel for random bytes nor read /dev/urandom: then
 *          there is no UUID.
 * Threads: any.
 */
VYX_API int32_t VYX_GetUUID(uint8_t *pUuid16);

/*
 * Prints a UUID as "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X". The first three groups are its bytes
 * 0-3, 4-5 and 6-7 read as integers in the processor's byte order, so that the same bytes print differently
 * on little-endian and big-endian processors.
 *   iSize  bytes at szOut; the whole text needs 37. At exactly 36 its last digit is cut off
 *
 * Result:  0; -1 with nothing written if iSize is below 36. Pointers are not checked for null.
 * Threads: any.
 */
VYX_API int32_t VYX_StringFromUUID(const uint8_t *pUuid16, char *szOut, int32_t iSize);

/*
 * A query that this platform does not support: clears the record.
 *
 * Result:  VYX_NOT_AVAILABLE (-2); VYX_ERROR (-1) for null.
 * Threads: any.
 */
VYX_API int32_t VYX_GetMemoryStatus(VYX_MEMORY_STATUS_T *pStatus);

/*
 * A query that this platform does not support: leaves the record alone.
 *
 * Result:  VYX_NOT_AVAILABLE (-2); VYX_ERROR (-1) for null.
 * Threads: any.
 */
VYX_API int32_t VYX_GetNetWorkFlowData(void *pRecord);

/*
 * A query that this platform does not support: leaves the records alone.
 *   pSize  bytes at pRecords; receives the bytes needed, the number of processors times 56
 *
 * Result:  VYX_NOT_AVAILABLE (-2); VYX_ERROR (-1) for a null pointer, or a *pSize below what is needed.
 * Threads: any.
 */
VYX_API int32_t VYX_GetCPUPerformance(VYX_CPU_PERFORMANCE_T *pRecords, uint32_t *pSize);

VYX_END_DECLS

#ifdef __cplusplus

#include <string>

/*
 * Converts a zero-terminated text from EUC-CN to UTF-8 (iconv).
 *
 * Result:  the converted text, owned by the caller; an empty one if szText is null or empty, holds an invalid or
 *          incomplete character, if the system has no such converter, or if memory is short.
 * Threads: any.
 */
VYX_API std::string VYX_A2UTF8(const char *szText);

/*
 * Converts a zero-terminated text from UTF-8 to EUC-CN (iconv).
 *
 * Result:  the converted text, owned by the caller; an empty one if szText is null or empty, holds an invalid or
 *          incomplete character or one that EUC-CN lacks, if the system has no such converter, or if memory is short.
 * Threads: any.
 */
VYX_API std::string VYX_UTF82A(const char *szText);

#endif

#endif
