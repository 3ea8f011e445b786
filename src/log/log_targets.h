// What log lines go to. A target is an enumerator of log_services, a row of the table and its write function; the compiler
// names an enumerator without a row.
#ifndef VYX_LOG_LOG_TARGETS_H
#define VYX_LOG_LOG_TARGETS_H

#include <iterator>
#include <sys/uio.h>
#include <vyx/log.h>

#include "log/log_files.h"

// How the writer hands over the lines that it has taken out of the ring. A line goes to the targets in the order of the
// table, to those with ByBatch after all others.
enum class Handed : uint8_t {
    ByLine,  // one in each call
    ByBatch, // all of them
};

struct VYX_LOG_TARGET_S {
    char szName[12]; // for tools
    // Writes lines. They end in carriage return, line feed, and a zero that iov_len does not count. pLines may be changed.
    void (*fnWrite)(LogFiles &files, iovec *pLines, uint32_t nLines);
    Handed eHanded;
    // Makes ready for lines, with the last arguments of EnableTarget. Result: 0, or the target stays as it was. Null:
    // there is nothing to make ready.
    int (*fnOn)(LogFiles &files, const void *pParam, uint32_t nSize, uint32_t nWrap);
    // Undoes that; all lines are written. A target that has this is switched off when the service stops.
    void (*fnOff)(LogFiles &files);
};

// By the values of log_services.
extern const VYX_LOG_TARGET_S g_struLogTargets[];
extern const uint32_t g_nLogTargets;

#endif
