// Timers: how far their intervals are from the period, and what they cost.
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include <vyx/msg.h>

#include "timer_bench.h"

namespace {

class VyxTimers {
  public:
    bool Start(Tick *pTicks, int nTicks) {
        for (int n = 0; n < nTicks; ++n) {
            uint32_t nTimerId = 0;
            if (VYX_SetTimer([](uint32_t, void *pTick) { static_cast<Tick *>(pTick)->Call(); }, pTicks + n,
                             kPeriod, &nTimerId) != VYX_OK)
                return false;
            m_timers.push_back(static_cast<int32_t>(nTimerId));
        }
        return true;
    }
    void Run(std::chrono::milliseconds length) { std::this_thread::sleep_for(length); }
    void Stop() {
        for (const int32_t iTimerId : m_timers)
            (void)VYX_KillTimer(iTimerId);
    }

  private:
    std::vector<int32_t> m_timers;
};

// A thread for each timer, that sleeps on a condition of the platform's.
class RawTimers {
  public:
    bool Start(Tick *pTicks, int nTicks) {
        for (int n = 0; n < nTicks; ++n)
            m_timers.push_back(std::make_unique<Timer>(pTicks + n));
        return true;
    }
    void Run(std::chrono::milliseconds length) { std::this_thread::sleep_for(length); }
    void Stop() { m_timers.clear(); }

  private:
    class Timer {
      public:
        explicit Timer(Tick *pTick) : m_thread([this, pTick] { Loop(pTick); }) {}
        ~Timer() {
            {
                const std::lock_guard<std::mutex> guard(m_mutex);
                m_bStop = true;
            }
            m_stopped.notify_all();
            m_thread.join();
        }
        Timer(const Timer &) = delete;
        Timer &operator=(const Timer &) = delete;

      private:
        void Loop(Tick *pTick) {
            std::unique_lock<std::mutex> lock(m_mutex);
            while (!m_stopped.wait_for(lock, std::chrono::milliseconds(kPeriod), [this] { return m_bStop; }))
                pTick->Call();
        }

        std::mutex m_mutex;
        std::condition_variable m_stopped;
        bool m_bStop = false;
        std::thread m_thread; // last: it uses the others
    };

    std::vector<std::unique_ptr<Timer>> m_timers;
};

} // namespace

int main(int argc, char **argv) {
    (void)RegisterTimers<VyxTimers>("vyx");
    (void)RegisterTimers<RawTimers>("raw");
    return bench::Run(argc, argv);
}
