#include "worker.h"

#include <algorithm>
#include <new>

#include "mutex_holder.h"

namespace logmill {

namespace {

// The total is merged once, at the end, so that the workers do not meet at its mutex for every batch.
void Work(BoundedBuffer &buffer, Tally &tally) {
    Counts own;
    VYX_TIME_T done = 0;
    for (Batch batch; buffer.Take(batch); done = VYX_TimeNow())
        own.Add(batch);
    const MutexHolder holder(tally.mutex);
    tally.counts.Merge(own);
    tally.done = std::max(tally.done, done);
    tally.working += done != 0 ? 1 : 0;
}

} // namespace

void *Worker::Run(void *pWorker) {
    const auto *worker = static_cast<const Worker *>(pWorker);
    try {
        Work(*worker->buffer, *worker->tally);
    } catch (const std::bad_alloc &) {
        worker->buffer->Cancel();
        const MutexHolder holder(worker->tally->mutex);
        worker->tally->failed = true;
    }
    return nullptr;
}

} // namespace logmill
