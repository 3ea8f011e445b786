#include <sys/socket.h>

#include "base/platform.h"

ssize_t VYX_SendNow_Inter(VYX_SOCK_T hSocket, const void *pBuf, size_t nLen) {
    return send(hSocket, pBuf, nLen, MSG_DONTWAIT);
}
