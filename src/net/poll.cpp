// Waiting for descriptors.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vyx/time.h>

#include "net/poll_limit.h"

int32_t VYX_FdIsSet(int32_t iFd, const void *pSet) {
    if (iFd < 0)
        return 0;
    const auto nFd = static_cast<uint32_t>(iFd);
    uint32_t nWord = 0;
    std::memcpy(&nWord, static_cast<const char *>(pSet) + nFd / 32 * sizeof nWord, sizeof nWord);
    return static_cast<int32_t>(nWord & (1U << nFd % 32));
}

int32_t VYX_Select(int32_t n, fd_set *pRead, fd_set *pWrite, fd_set *pExcept,
                   const struct timeval *pTimeOut) {
    if (pTimeOut == nullptr)
        return select(n, pRead, pWrite, pExcept, nullptr);
    struct timeval copy = *pTimeOut; // the platform may write into it
    return select(n, pRead, pWrite, pExcept, &copy);
}

int32_t VYX_SelectEx(int32_t n, fd_set *pRead, fd_set *pWrite, fd_set *pExcept, struct timeval *pTimeOut) {
    return select(n, pRead, pWrite, pExcept, pTimeOut);
}

int32_t VYX_Poll(struct pollfd *pFds, uint32_t nCount, int32_t iTimeOut) {
    return poll(pFds, nCount, iTimeOut);
}

int32_t VYX_PollEx(struct pollfd *pFds, uint32_t nCount, uint32_t *pTimeOut) {
    vyx_inter::PollLimit limit(pTimeOut == nullptr ? VYX_INFINITE : *pTimeOut);
    const int32_t iResult = limit.Poll(pFds, nCount);
    if (pTimeOut != nullptr)
        *pTimeOut = limit.Left();
    return iResult;
}

namespace vyx_inter {

PollLimit::PollLimit(uint32_t nTimeOut)
    : m_nLeft(nTimeOut), m_nTick(nTimeOut == VYX_INFINITE ? 0 : VYX_GetTimeTick()) {}

uint32_t PollLimit::Left() {
    if (IsInfinite())
        return m_nLeft;
    const uint32_t nTick = VYX_GetTimeTick();
    const auto iPassed = static_cast<int32_t>(nTick - m_nTick);
    m_nLeft = static_cast<int32_t>(m_nLeft) <= iPassed ? 0 : m_nLeft - static_cast<uint32_t>(iPassed);
    m_nTick = nTick;
    return m_nLeft;
}

int32_t PollLimit::Poll(struct pollfd *pFds, uint32_t nCount, uint32_t nMost) {
    for (;;) {
        // Without a limit -1; so is, for poll, any other number from 0x80000000 on.
        const int32_t iResult = poll(pFds, nCount, static_cast<int>(std::min(m_nLeft, nMost)));
        if (iResult != -1 || errno != EINTR || Left() == 0)
            return iResult;
    }
}

} // namespace vyx_inter
