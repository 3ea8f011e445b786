// Work that must not be left half done.
#ifndef VYX_THREAD_UNCANCELLED_H
#define VYX_THREAD_UNCANCELLED_H

#include <pthread.h>

namespace vyx_inter {

// For the length of a block the calling thread is not cancelled (pthread_cancel); it may be afterwards.
class Uncancelled {
  public:
    Uncancelled() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_iState); }
    ~Uncancelled() { (void)pthread_setcancelstate(m_iState, nullptr); }
    Uncancelled(const Uncancelled &) = delete;
    Uncancelled &operator=(const Uncancelled &) = delete;

  private:
    int m_iState = PTHREAD_CANCEL_ENABLE;
};

} // namespace vyx_inter

#endif
