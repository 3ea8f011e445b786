// How the log service's writer sleeps and is woken.
#ifndef VYX_LOG_DOORBELL_H
#define VYX_LOG_DOORBELL_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vyx_inter {

// One sleeper; a ring that comes before it sleeps counts as well. The time-out is on the monotonic clock, so a jump
// of the wall clock neither prolongs nor shortens it.
class Doorbell {
  public:
    void Ring() {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_bRung = true;
        }
        m_cond.notify_one();
    }
    void Await() {
        std::unique_lock<std::mutex> guard(m_mutex);
        m_cond.wait(guard, [this] { return m_bRung; });
        m_bRung = false;
    }
    void Await(std::chrono::milliseconds most) {
        std::unique_lock<std::mutex> guard(m_mutex);
        (void)m_cond.wait_for(guard, most, [this] { return m_bRung; });
        m_bRung = false;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_bRung = false; // under m_mutex
};

} // namespace vyx_inter

#endif
