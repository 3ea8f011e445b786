/*
 * The log service: any thread hands over a formatted line and goes on; one background thread of the library writes
 * the lines to those targets that are on: standard output, standard error, and rotating files. Nothing here needs
 * the started library. VYX_Log (vyx/frame.h) switches the usual targets with one call. docs/log.md says what
 * is written in the end, whichever way the process ends.
 *
 * A line, the same on every target:
 *
 *   [2026-11-21 09:21:26.042][INF][FILE:main.c][LINE:17] text<CR><LF>
 *
 * that is local time to the millisecond, the level's name, the caller's file without its folders, the caller's
 * line. Header and text together are cut after 2046 bytes; carriage return and line feed always follow.
 *
 * What is promised: a line that WriteLog took (result 0) reaches, whole, once and in the order of the takings, each
 * target that was on at that moment, unless the target itself refuses it. A target that is switched off, and
 * the service when it is stopped, first write what was taken for it. An end that leaves the writer no time (_exit,
 * quick_exit, abort, a signal, exec) keeps the lines up to some point; the last of them may be cut.
 *
 * Lines to standard output go through stdio, which keeps them to itself until its buffer is full, where standard output
 * is not a terminal: in a pipe, a file or a container's log they appear late, and a process that is killed loses them.
 * The cure is one call before the first line: setvbuf(stdout, NULL, _IOLBF, 0), or fflush(stdout) where it matters.
 */
#ifndef VYX_LOG_H
#define VYX_LOG_H

#include <stdbool.h>
#include <vyx/types.h>

/*
 * Levels, also as the threshold: a line passes if its level is not above it (compared as signed numbers). Other
 * values work as numbers do, but their printed name is "?".
 */
enum log_level VYX_ENUM32 {
    VYX_LOG_LEVEL_DISABLE = 0, /* "DISABLE"; as threshold: nothing but lines of this level */
    VYX_LOG_LEVEL_ERR = 1,     /* "ERR" */
    VYX_LOG_LEVEL_DBG = 2,     /* "DBG" */
    VYX_LOG_LEVEL_INF = 3      /* "INF"; the threshold at first */
};
typedef enum log_level log_level;

/* Targets; all are off at first. */
enum log_services VYX_ENUM32 {
    /* standard output, through stdio and not flushed (see above); up to the line's first zero byte */
    VYX_LOG_TARGET_CONSOLE = 0,
    /* VYX_OutputDebugString, that is standard error, without delay; up to the line's first zero byte */
    VYX_LOG_TARGET_DEBUG = 1,
    /* files in a directory */
    VYX_LOG_TARGET_FILE = 2
};
typedef enum log_services log_services;

VYX_BEGIN_DECLS

/*
 * Allows the service to start again after StopLogService(true). It starts nothing: the background thread, its
 * stack of 128 KiB and 2.75 MiB for the lines that wait for it come with the first line that passes.
 *
 * Result:  0.
 * Threads: any.
 */
VYX_API int32_t StartLogService(void);

/*
 * Stops the service if it is running: lines taken so far are written, the background thread ends, the file target
 * is switched off, the buffer is freed. The other targets stay as they are.
 *   bBlock  true: WriteLog answers -2 from now on, until StartLogService. false: the next line starts it again
 *
 * Result:  0.
 * Threads: any; blocks until the lines are written; no cancellation point. A WriteLog that meets the stop answers
 *          -2 or waits for its end. Not from a signal handler.
 */
VYX_API int32_t StopLogService(bool bBlock);

/*
 * Switches a target on. The last three arguments are for VYX_LOG_TARGET_FILE only. Lines to VYX_LOG_TARGET_CONSOLE go
 * through stdio and are not flushed: call setvbuf(stdout, NULL, _IOLBF, 0) before the first one where they must not be
 * late.
 *   pParam  the directory, a zero-terminated path of at most 256 bytes, borrowed for the call; null = "./vyxlog/".
 *           Backslashes become slashes, and a slash is appended where the last one is missing (so "" is "/"). It
 *           is made if missing (VYX_MakeDir, one level). A longer path changes nothing but nWrap
 *   nSize   bytes a file may have; 0 = 2097152
 *   nWrap   not 0: after file 100 comes file 1 again; 0: numbers go on without end
 *
 * The file being written is DIRECTORY/vyx_log_N_w.log, N from 1 on. Before a line that would not fit any more it
 * is closed and renamed to vyx_log_N.log, and the next number is opened; a line is never split, and one that is
 * longer than nSize gets a file to itself. A new file first removes an old vyx_log_N.log and empties an
 * old vyx_log_N_w.log. N is kept through a stop, so that the file last written is emptied when files are written
 * again. The mode is 0200 less the process's file-creation mask: only the superuser may read it without chmod.
 * Where files are being written already, a new directory counts from the next file on, limit and wrap at once.
 *
 * If a file cannot be opened, "LogService OpenFile[NAME] failed" goes to standard error and that line is lost; if
 * it cannot be written (a full disk), the line is lost without a message, and none of it stays in the file.
 * The next line tries again.
 *
 * Result:  0, also for a directory that was refused or cannot be made; -6 for an unknown target.
 * Threads: any; may wait for a target that is just being switched off.
 */
VYX_API int32_t EnableTarget(log_services eTarget, const void *pParam, uint32_t nSize, uint32_t nWrap);

/*
 * Switches a target off. The lines taken for it are written before the call returns. The working file is closed and
 * keeps its name with "_w". When this was the last target, the service is stopped as with StopLogService, without
 * a change of what bBlock said last.
 *
 * Result:  0; -6 for an unknown target.
 * Threads: any; blocks until the lines are written; no cancellation point. Not from a signal handler.
 */
VYX_API int32_t DisableTarget(log_services eTarget);

/*
 * Sets the threshold for the lines to come; it stays over stops and starts of the service.
 *   eLevel  the highest level that passes; every number is allowed
 *
 * Result:  0.
 * Threads: any; waits for nobody.
 */
VYX_API int32_t AdjustLogLevel(log_level eLevel);

/*
 * Hands one line over. Starts the service if it is not running.
 *   eLevel    of the line
 *   szFile    the caller's file (__FILE__); what follows its last '/' or '\' is shown
 *   iLine     the caller's line (__LINE__)
 *   szFormat  as for printf, without a line feed at its end
 * Nothing is kept of the arguments.
 *
 * Result:   0  taken
 *          -1  the service has to start, and memory or a thread for it is short; the next line tries again
 *          -2  the service was stopped with StopLogService(true), is just being stopped, or the process is at its end
 *          -3  the level is above the threshold
 *          -4  the buffer of 2 MiB is full: the line is dropped. The call never waits for room
 *          -5  no target is on, or the last one is just being switched off
 *          -6  szFile or szFormat is null
 *          -7  the C library cannot format the text
 *          They are tested in the order -6, -3, -5, -2 or -1, -7, -4. No last error is set; errno stays as it was.
 * Threads: any number at once; no cancellation point. Not from a signal handler, as the C library's formatting is not;
 *          one that interrupts a WriteLog may call exit, which loses at most that line.
 * Fork:    a forked child begins with the service not running and the file target off; what the parent took, the
 *          parent writes. The child may use all of this header. To let it write files, give it a directory of
 *          its own.
 */
VYX_API int32_t WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...)
    VYX_PRINTF(4, 5);

/*
 * Prints the header of a line of this moment, blank at its end included, as snprintf does: at most nSize - 1 bytes
 * and a zero; szBuf may be null if nSize is 0.
 *
 * Result:  the characters of the whole header, also if they did not fit; -1 if szFile is null, szBuf is null with a
 *          size, or the time cannot be told.
 * Threads: any.
 */
VYX_API int32_t FormatTimeAndName(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile,
                                  int32_t iLine);

/*
 * The part of a path that the header shows.
 *   szPath  zero-terminated; the result points into it
 *
 * Result:  what follows the last '/' or '\', which is "" for a path that ends in one; the path itself where it has none;
 *          null for null.
 * Threads: any.
 */
VYX_API const char *FindLastSlash(const char *szPath);

VYX_END_DECLS

#ifdef __cplusplus

/* The service itself is of no use to callers: they have the functions above. */
class LogService;

/*
 * The process's one service.
 *
 * Result:  valid as long as the process lives, also at its end.
 * Threads: any.
 */
VYX_API LogService &GetLogService();

#endif

#endif
