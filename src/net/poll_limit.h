// The time-out of a wait, or of several that share one.
#ifndef VYX_NET_POLL_LIMIT_H
#define VYX_NET_POLL_LIMIT_H

#include <vyx/net.h>

namespace vyx_inter {

// Milliseconds that a caller gives, or VYX_INFINITE. They pass from the construction on, by the tick of VYX_GetTimeTick:
// VYX_PollEx hands callers what is left, in its own numbers, which a Deadline does not have.
class PollLimit {
  public:
    explicit PollLimit(uint32_t nTimeOut);
    [[nodiscard]] bool IsInfinite() const { return m_nLeft == VYX_INFINITE; }
    // What is left now. The numbers are compared as signed ones: a clock that was set back gives more time, and of a
    // time-out from 0x80000000 on, with which poll waits without a limit, nothing is left.
    uint32_t Left();
    // poll within what was left when Left was called, or within nMost milliseconds if that is less; repeated while there
    // is time when a signal handler interrupts it. Result: poll's; -1 with EINTR if the time ran out meanwhile.
    int32_t Poll(struct pollfd *pFds, uint32_t nCount, uint32_t nMost = VYX_INFINITE);

  private:
    uint32_t m_nLeft;
    uint32_t m_nTick; // when m_nLeft was left
};

} // namespace vyx_inter

#endif
