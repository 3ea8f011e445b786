// The workers: take batches, classify their lines, and merge what they counted.
#ifndef LOGMILL_WORKER_H
#define LOGMILL_WORKER_H

#include <cstdint>
#include <vyx/sync.h>
#include <vyx/time.h>

#include "bounded_buffer.h"
#include "counts.h"

namespace logmill {

// What all workers together counted. To be read when they have ended.
struct Tally {
    VYX_Mutex mutex{VYX_MUTEX_NORMAL}; // guards what follows
    Counts counts;
    VYX_TIME_T done = 0;  // when the last batch was finished
    uint32_t working = 0; // workers that had at least one batch
    bool failed = false;  // one ran out of memory
};

// What a worker is handed; the buffer and the tally are shared and borrowed.
struct Worker {
    BoundedBuffer *buffer;
    Tally *tally;

    // The thread's routine; pWorker is the Worker.
    static void *Run(void *pWorker);
};

} // namespace logmill

#endif
