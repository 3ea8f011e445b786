// The bounded buffer between the reader and the workers.
//
// Two semaphores count its free and its filled places; the queue itself is under a mutex. The hand-over is in
// batches because it has a price: a VYX_Sema is a named semaphore, and a bounded wait that has to sleep ends
// when the library's service thread next looks, every 100 microseconds. On two processors a batch for each line
// (--batch 1) comes to some forty thousand lines a second, batches of 64 KiB to several million; larger ones
// gain little and cost memory.
#ifndef LOGMILL_BOUNDED_BUFFER_H
#define LOGMILL_BOUNDED_BUFFER_H

#include <deque>
#include <vyx/sync.h>

#include "batch.h"

namespace logmill {

class BoundedBuffer {
  public:
    explicit BoundedBuffer(unsigned int capacity);

    // Whether the system granted the semaphores. To be asked once, before any other thread uses the buffer.
    bool Usable();

    // For the one reader: waits for a free place. False if the buffer was cancelled meanwhile.
    bool Put(Batch &&batch);

    // For the reader: no batch will follow.
    void Close();

    // For the workers: waits for a batch. False if there is none and the buffer is closed or cancelled.
    bool Take(Batch &batch);

    // For whoever cannot go on: drops what is buffered; Put and Take end.
    void Cancel();

  private:
    enum class State { Open, Closed, Cancelled };
    State GetState();

    VYX_Sema m_free;   // places that the reader may fill
    VYX_Sema m_filled; // batches in m_queue
    VYX_Mutex m_mutex; // guards what follows
    std::deque<Batch> m_queue;
    State m_state = State::Open;
};

} // namespace logmill

#endif
