// Signals, kept away from the calling thread.
#ifndef VYX_BASE_SIGNALS_H
#define VYX_BASE_SIGNALS_H

#include <csignal>

namespace vyx_inter {

// For the length of a block no signal's handler runs in the calling thread; what comes meanwhile is handled afterwards.
// Threads that are made in the block begin like that, and stay so.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t setAll;
        (void)sigfillset(&setAll);
        (void)pthread_sigmask(SIG_SETMASK, &setAll, &m_setOld);
    }
    ~SignalsBlocked() { (void)pthread_sigmask(SIG_SETMASK, &m_setOld, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

  private:
    sigset_t m_setOld{};
};

} // namespace vyx_inter

#endif
