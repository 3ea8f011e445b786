/*
 * The log service: lines from any thread, written by one background thread to up to three targets: standard
 * output, standard error (the debug output), and rotating files in a directory.
 *
 * A line is
 *   [2026-11-21 08:12:30.123][ERR][FILE:main.c][LINE:42] text
 * in local time, followed by a carriage return and a line feed. Callers never touch a file: WriteLog copies the line into
 * a ring of 2 MiB and returns. Nobody ever waits for room: when the ring is full a line is refused.
 *
 * A line for which WriteLog returned 0 reaches, whole and once, every target that was on at that moment: through file
 * changes, while targets are switched, through StopLogService and VYX_Fini, and at the end of the process by return
 * from main or exit. Lines are written in the order in which they were accepted. Only an error of the target itself loses
 * one: a file that cannot be opened, a full disk. Other ends of the process (_exit, quick_exit, abort, a signal) lose
 * what the writer had not written yet.
 *
 * After a fork, the child has the parent's settings except for the file target, which is off, and an empty queue: the
 * parent writes what was queued. The child's first line starts a writer of its own.
 *
 * The service needs no VYX_Init; VYX_Log switches the usual combinations on and off. Every function may be called from
 * any thread at any time, unless said otherwise; those that switch something off wait until the lines accepted before
 * have been written.
 */
#ifndef VYX_LOG_H
#define VYX_LOG_H

#include <stdbool.h>
#include <vyx/types.h>

/* How important a line is, and the least important one that passes: those with a higher value are refused. */
enum log_level VYX_ENUM32 {
    VYX_LOG_LEVEL_DISABLE = 0, /* "DISABLE": as threshold, only lines of this level pass */
    VYX_LOG_LEVEL_ERR = 1,     /* "ERR": errors */
    VYX_LOG_LEVEL_DBG = 2,     /* "DBG": debugging */
    VYX_LOG_LEVEL_INF = 3      /* "INF": information; the threshold at first */
};
typedef enum log_level log_level;

/* Where lines go. */
enum log_services VYX_ENUM32 {
    VYX_LOG_TARGET_CONSOLE = 0, /* standard output, as fputs writes it, without a flush */
    VYX_LOG_TARGET_DEBUG = 1,   /* standard error, through VYX_OutputDebugString */
    VYX_LOG_TARGET_FILE = 2     /* rotating files */
};
typedef enum log_services log_services;

VYX_BEGIN_DECLS

/*
 * Lets the service start again after a stop that blocked it. The writer thread starts with the first line.
 *
 * Result:  0.
 */
VYX_API int32_t StartLogService(void);

/*
 * Writes what is queued, ends the writer thread and switches the file target off; the other targets stay as they are.
 *   bBlock  refuse to start again until StartLogService; otherwise the next line starts the service
 *
 * Result:  0.
 */
VYX_API int32_t StopLogService(bool bBlock);

/*
 * Switches a target on. For the file target:
 *   pParam  the directory as a text of at most 256 bytes, made if only its last part is missing; '\' counts as '/'.
 *           Null is "./vyxlog/". A longer one is refused: the target stays as it was, and the result is 0 all the same.
 *   nSize   bytes of a file, above which no line is added to it; 0 = 2 MiB. A file holds one line at least.
 *   nWrap   0: files are numbered without end. Otherwise file 1 follows file 100, whose old content is deleted.
 * The other targets ignore them.
 *
 * Files: the current one is "vyx_log_N_w.log", and becomes "vyx_log_N.log" when it is full; a finished file of the same
 * number is deleted when the current one is opened. Stopping leaves the current file under its name; when the target
 * goes on again with the same number, the next line empties it. Whoever needs the files of a run changes the directory.
 * Switching to another directory while the target is on takes effect with the next file.
 *
 * Result:  0; -6 for an unknown target.
 */
VYX_API int32_t EnableTarget(log_services eTarget, const void *pParam, uint32_t nSize, uint32_t nWrap);

/*
 * Switches a target off, after what was queued for it has been written. The last one stops the service as
 * StopLogService(false) does.
 *
 * Result:  0; -6 for an unknown target.
 */
VYX_API int32_t DisableTarget(log_services eTarget);

/* Sets the threshold. Result: 0. */
VYX_API int32_t AdjustLogLevel(log_level eLevel);

/*
 * Queues one line.
 *   eLevel    0 to 3; others print "?"
 *   szFile    the caller's source file; only what follows the last '/' or '\' is shown
 *   iLine     the caller's line number
 *   szFormat  as of printf, with its arguments. Header and text have 2046 bytes together; a longer text is cut.
 *
 * Result:  0   accepted
 *          -6  szFile or szFormat is null
 *          -3  above the threshold
 *          -5  no target is on
 *          -2  the service is stopped, and blocked or just being stopped
 *          -1  no memory for the ring (2 MiB), or no thread
 *          -7  the text cannot be formatted
 *          -4  the ring is full, or memory is short: the line is dropped, and nobody is told but the caller. It may
 *              try again once the writer has caught up.
 * Failures of the targets come later and have no result: a file that cannot be opened is told on standard error as
 * "LogService OpenFile[NAME] failed", its line is lost for this target, and the next line tries again.
 *
 * Not for signal handlers. Clock: the wall clock, cut to milliseconds.
 */
VYX_API int32_t WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...)
    VYX_PRINTF(4, 5);

/*
 * Writes the header of a line, up to the blank before its text, with the current time.
 *   szBuf, nSize  receives at most nSize bytes with the zero; nSize 0 writes nothing
 *   szFile        null counts as empty
 *
 * Result:  the header's length, also when it was cut (snprintf); -1 if it cannot be formatted.
 */
VYX_API int32_t FormatTimeAndName(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile,
                                  int32_t iLine);

/* Just behind the last '/' or '\' of a path; the path itself if it has none. Not for null. */
VYX_API const char *FindLastSlash(const char *szPath);

VYX_END_DECLS

#ifdef __cplusplus

class LogService;

/* The one service object, made by the first call and stopped at exit. It is opaque to callers. */
VYX_API LogService &GetLogService();

#endif

#endif
