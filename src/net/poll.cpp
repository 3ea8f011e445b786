// Waiting for descriptors.
#include <cerrno>
#include <cstring>
#include <vyx/time.h>

#include "net/net_inter.h"

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
    const bool bInfinite = pTimeOut == nullptr || *pTimeOut == VYX_INFINITE;
    uint32_t nLeft = bInfinite ? 0 : *pTimeOut;
    uint32_t nElapsed = 0;
    int32_t iResult = 0;
    for (;;) {
        const uint32_t nStart = bInfinite ? 0 : VYX_GetTimeTick();
        iResult = poll(pFds, nCount, bInfinite ? -1 : static_cast<int>(nLeft));
        const bool bInterrupted = iResult == -1 && errno == EINTR;
        nElapsed = bInfinite ? 0 : VYX_GetTimeTick() - nStart;
        if (!bInterrupted)
            break;
        nLeft -= nElapsed;
        if (!bInfinite && static_cast<int32_t>(nLeft) <= 0)
            break;
    }
    // Deliberate: when interruptions used the time up, the last round is taken off once more here. Pinned by
    // Poll.TimeLeftNeverFallsBelowZero.
    if (!bInfinite)
        *pTimeOut = static_cast<int32_t>(nLeft) <= static_cast<int32_t>(nElapsed) ? 0 : nLeft - nElapsed;
    return iResult;
}
