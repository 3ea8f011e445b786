// Darwin does not look at MSG_DONTWAIT when it sends, only at the socket's own flag.
#include <fcntl.h>
#include <sys/socket.h>

#include "base/errno_keeper.h"
#include "base/platform.h"
#include "base/uncancelled.h"

ssize_t VYX_SendNow_Inter(VYX_SOCK_T hSocket, const void *pBuf, size_t nLen) {
    const int iFlags = fcntl(hSocket, F_GETFL, 0);
    if (iFlags == -1 || (iFlags & O_NONBLOCK) != 0)
        return send(hSocket, pBuf, nLen, 0);
    const vyx_inter::Uncancelled uncancelled; // or the flag would stay
    if (fcntl(hSocket, F_SETFL, iFlags | O_NONBLOCK) == -1)
        return -1;
    const ssize_t nResult = send(hSocket, pBuf, nLen, 0);
    const vyx_inter::ErrnoKeeper keeper;
    (void)fcntl(hSocket, F_SETFL, iFlags); // cannot fail: the one before did not
    return nResult;
}
