// All timers are kept by one loop on one thread, and none has a thread of its own. Time is that of the loop, in whole
// milliseconds.
#include <uv.h>

#include "timer_bench.h"

namespace {

class UvTimers {
  public:
    UvTimers() { (void)uv_loop_init(&m_loop); }
    ~UvTimers() { (void)uv_loop_close(&m_loop); }
    UvTimers(const UvTimers &) = delete;
    UvTimers &operator=(const UvTimers &) = delete;

    bool Start(Tick *pTicks, int nTicks) {
        m_timers.resize(static_cast<size_t>(nTicks) + 1);
        for (uv_timer_t &timer : m_timers)
            if (uv_timer_init(&m_loop, &timer) != 0)
                return false;
        for (int n = 0; n < nTicks; ++n) {
            uv_timer_t *pTimer = &m_timers[static_cast<size_t>(n)];
            pTimer->data = pTicks + n;
            if (uv_timer_start(
                    pTimer, [](uv_timer_t *pDue) { static_cast<Tick *>(pDue->data)->Call(); }, kPeriod,
                    kPeriod) != 0)
                return false;
        }
        return true;
    }
    void Run(std::chrono::milliseconds length) {
        (void)uv_timer_start(
            &m_timers.back(), [](uv_timer_t *pDue) { uv_stop(pDue->loop); },
            static_cast<uint64_t>(length.count()), 0);
        (void)uv_run(&m_loop, UV_RUN_DEFAULT);
    }
    void Stop() {
        for (uv_timer_t &timer : m_timers)
            uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
        (void)uv_run(&m_loop, UV_RUN_DEFAULT);
    }

  private:
    uv_loop_t m_loop;
    std::vector<uv_timer_t> m_timers;
};

const int kRegistered = RegisterTimers<UvTimers>("libuv");

} // namespace
