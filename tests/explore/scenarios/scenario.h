// What the scenarios share: each runs for itself too, but is meant for vyx-explore, which tries its schedules.
#ifndef VYX_TESTS_SCENARIO_H
#define VYX_TESTS_SCENARIO_H

#include <functional>
#include <utility>
#include <vyx/vyx.h>

#include "../check.h"

// A thread of the library's that runs a routine and is waited for at the end of its scope.
class Runner {
  public:
    explicit Runner(std::function<void()> routine) : m_routine(std::move(routine)) {
        m_thread = VYX_Thread_Create(Run, this, 0, 0, 0, 0);
        CHECK(m_thread != VYX_INVALID_THREAD);
    }
    ~Runner() { CHECK(VYX_Thread_Wait(m_thread) == VYX_OK); }
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;

  private:
    static void *Run(void *runner) {
        static_cast<Runner *>(runner)->m_routine();
        return nullptr;
    }

    std::function<void()> m_routine;
    VYX_THREAD_T m_thread;
};

// Lets time pass; under vyx-explore, that of the virtual clock.
inline void Pass(uint32_t milliseconds) {
    (void)VYX_Sleep(milliseconds); // a scenario's subject is time itself
}

#endif
