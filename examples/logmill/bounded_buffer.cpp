#include "bounded_buffer.h"

#include <utility>

#include "mutex_holder.h"

namespace logmill {

namespace {

// How long a thread sleeps, in milliseconds, before it looks whether the other side is still there.
constexpr unsigned int kPatience = 10;

// Takes a count. It tries first: a bounded wait goes through the library's service thread, a try does not.
bool TryThenWait(VYX_Sema &sema) {
    return sema.TimedWait(0) == VYX_OK || sema.TimedWait(kPatience) == VYX_OK;
}

} // namespace

BoundedBuffer::BoundedBuffer(unsigned int capacity)
    : m_free(capacity, capacity), m_filled(0, capacity), m_mutex(VYX_MUTEX_NORMAL) {}

bool BoundedBuffer::Usable() {
    // A semaphore that the system refused answers every wait with -1, at once.
    const bool free = m_free.TimedWait(0) == VYX_OK && m_free.Post() == VYX_OK;
    const bool filled = m_filled.Post() == VYX_OK && m_filled.TimedWait(0) == VYX_OK;
    return free && filled;
}

bool BoundedBuffer::Put(Batch &&batch) {
    while (!TryThenWait(m_free))
        if (GetState() == State::Cancelled)
            return false;
    {
        const MutexHolder holder(m_mutex);
        if (m_state == State::Cancelled)
            return false;
        m_queue.push_back(std::move(batch));
    }
    return m_filled.Post() == VYX_OK;
}

bool BoundedBuffer::Take(Batch &batch) {
    for (;;) {
        // Looked at before the wait: if the buffer was closed by then, a wait in vain means that it is empty.
        const State state = GetState();
        if (state == State::Cancelled)
            return false;
        if (!(state == State::Open ? TryThenWait(m_filled) : m_filled.TimedWait(0) == VYX_OK)) {
            if (state == State::Closed)
                return false;
            continue;
        }
        {
            const MutexHolder holder(m_mutex);
            if (m_queue.empty()) // cancelled meanwhile
                return false;
            batch = std::move(m_queue.front());
            m_queue.pop_front();
        }
        return m_free.Post() == VYX_OK;
    }
}

void BoundedBuffer::Close() {
    const MutexHolder holder(m_mutex);
    if (m_state == State::Open)
        m_state = State::Closed;
}

void BoundedBuffer::Cancel() {
    const MutexHolder holder(m_mutex);
    m_state = State::Cancelled;
    m_queue.clear();
}

BoundedBuffer::State BoundedBuffer::GetState() {
    const MutexHolder holder(m_mutex);
    return m_state;
}

} // namespace logmill
