// The order in which a message queue delivers, and what it refuses.
#include <climits>
#include <cstring>
#include <memory>
#include <vyx/msg.h>

#include "transcript.h"

namespace transcript {

void Queues() {
    Section("queue");
    VYX_HANDLE_MSGQ hQueue = nullptr;
    (void)VYX_MsgQCreateEx(&hQueue);
    const auto pMsg = std::make_unique<VYX_MSG_BLOCK_T>();
    int nQueued = 0;
    for (int i = 0; i < 205; ++i) {
        if (Random(5) < 3) {
            pMsg->iMsgType = i;
            pMsg->iPriority =
                Random(10) == 0 ? (Random(2) == 0 ? INT_MIN : INT_MAX) : static_cast<int32_t>(Random(7)) - 3;
            pMsg->iDataLen = Random(12) == 0   ? VYX_MSG_DATA_SIZE + static_cast<int32_t>(Random(2))
                             : Random(12) == 0 ? -1
                                               : static_cast<int32_t>(Random(6));
            std::memset(pMsg->szData, 'a' + i % 26, sizeof pMsg->szData);
            const int32_t iSent = VYX_MsgQSendEx(hQueue, pMsg.get());
            nQueued += iSent == VYX_OK ? 1 : 0;
            Line("send %d priority %d length %d: %d", i, pMsg->iPriority, pMsg->iDataLen, iSent);
        } else if (nQueued > 0) {
            std::memset(pMsg->szData, '.', 8);
            const auto iRoom = Random(4) == 0 ? static_cast<int32_t>(Random(5)) : VYX_MSG_DATA_SIZE;
            pMsg->iDataLen = iRoom;
            const int32_t iReceived = VYX_MsgQReceiveEx(hQueue, pMsg.get(), 0);
            --nQueued;
            Line("receive into %d: %d type %d priority %d length %d %s", iRoom, iReceived, pMsg->iMsgType,
                 pMsg->iPriority, pMsg->iDataLen, Hex(pMsg->szData, 8).c_str());
        }
    }
    Line("destroy: %d", VYX_MsgQDestroyEx(hQueue));
}

} // namespace transcript
