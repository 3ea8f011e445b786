// Where the calling thread may be cancelled (pthread_cancel), and where not.
#ifndef VYX_BASE_UNCANCELLED_H
#define VYX_BASE_UNCANCELLED_H

#include <pthread.h>

namespace vyx_inter {

// For the length of a block the calling thread is not cancelled; it may be afterwards. For work that must not be left
// half done.
class Uncancelled {
  public:
    Uncancelled() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_iState); }
    ~Uncancelled() { (void)pthread_setcancelstate(m_iState, nullptr); }
    Uncancelled(const Uncancelled &) = delete;
    Uncancelled &operator=(const Uncancelled &) = delete;

  private:
    int m_iState = PTHREAD_CANCEL_ENABLE;
};

// The reverse, within an Uncancelled block: for a caller's routine on a thread of the library's.
class Cancellable {
  public:
    Cancellable() { (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &m_iState); }
    ~Cancellable() { (void)pthread_setcancelstate(m_iState, nullptr); }
    Cancellable(const Cancellable &) = delete;
    Cancellable &operator=(const Cancellable &) = delete;

  private:
    int m_iState = PTHREAD_CANCEL_DISABLE;
};

} // namespace vyx_inter

#endif
