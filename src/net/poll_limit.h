// The time-out of a wait, or of several that share one.
#ifndef VYX_NET_POLL_LIMIT_H
#define VYX_NET_POLL_LIMIT_H

#include <vyx/net.h>

namespace vyx_inter {

// A caller's time-out in milliseconds, or VYX_INFINITE. It runs from the construction on, by VYX_GetTimeTick. It is no
// Deadline because VYX_PollEx hands callers what is left as a 32-bit number.
class PollLimit {
  public:
    explicit PollLimit(uint32_t nTimeOut);
    [[nodiscard]] bool IsInfinite() const { return m_nLeft == VYX_INFINITE; }
    // What is left now. Compared as a signed number: a clock that was set back leaves more time. A time-out from
    // 0x80000000 on, for which poll waits without a limit, has nothing left afterwards.
    uint32_t Left();
    // Calls poll with what was left at the last call of Left, or with nMost milliseconds if that is less. After a signal
    // handler it is called again while time is left. Result: poll's; -1 with EINTR if the time ran out meanwhile.
    int32_t Poll(struct pollfd *pFds, uint32_t nCount, uint32_t nMost = VYX_INFINITE);

  private:
    uint32_t m_nLeft;
    uint32_t m_nTick; // when m_nLeft was left
};

} // namespace vyx_inter

#endif
