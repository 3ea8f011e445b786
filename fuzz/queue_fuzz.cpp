// Message queues: a program of operations against lists in the order of the priorities.
#include <cstring>
#include <utility>
#include <vyx/frame.h>
#include <vyx/msg.h>

#include "input.h"
#include "queue_model.h"

namespace {

struct Queue {
    VYX_HANDLE_MSGQ hQueue = nullptr; // null: none
    fuzz::QueueModel messages = {};
};

void Send(Queue *pQueue, int32_t iType, int32_t iPriority, int32_t iLength) {
    static VYX_MSG_BLOCK_T s_block;
    s_block.iMsgType = iType;
    s_block.iPriority = iPriority;
    s_block.iDataLen = iLength;
    const bool bGood = iLength >= 0 && iLength <= VYX_MSG_DATA_SIZE;
    const std::string sData(bGood ? static_cast<size_t>(iLength) : 0, static_cast<char>(iType));
    std::copy(sData.begin(), sData.end(), s_block.szData);
    REQUIRE(VYX_MsgQSendEx(pQueue->hQueue, &s_block) == (bGood ? VYX_OK : VYX_ERROR));
    if (bGood)
        pQueue->messages.Put({iType, iPriority, sData});
}

void SendSome(const fuzz::Row &row, Queue *pQueue) {
    for (unsigned n = 0; n < row.nMany; ++n)
        Send(pQueue, row.iType, static_cast<int32_t>(row.iPriority + int64_t{n} * row.iStep), row.iLength);
}

// A queue that is empty would be waited for.
void Receive(Queue *pQueue, int32_t iRoom, int32_t iTimeOut) {
    static VYX_MSG_BLOCK_T s_block;
    if (pQueue->messages.IsEmpty())
        return;
    const fuzz::Message first = pQueue->messages.Take();
    std::memset(&s_block, 0xEE, sizeof s_block);
    s_block.iDataLen = iRoom;
    const bool bFits = iRoom >= static_cast<int32_t>(first.sData.size()); // it is lost otherwise
    REQUIRE(VYX_MsgQReceiveEx(pQueue->hQueue, &s_block, iTimeOut) == (bFits ? VYX_OK : VYX_ERROR));
    REQUIRE(s_block.iMsgType == first.iType && s_block.iPriority == first.iPriority);
    REQUIRE(s_block.iDataLen == (bFits ? static_cast<int32_t>(first.sData.size()) : iRoom));
    std::string sExpected(VYX_MSG_DATA_SIZE, '\xEE');
    if (bFits)
        sExpected.replace(0, first.sData.size(), first.sData);
    REQUIRE(std::memcmp(s_block.szData, sExpected.data(), sExpected.size()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const bool s_bStarted = VYX_Init() == VYX_OK;
    REQUIRE(s_bStarted);
    fuzz::Input input(pData, nSize);
    Queue queues[3];
    const unsigned nSends = input.Pick(30); // of 30 operations
    while (!input.AtEnd()) {
        Queue &queue = queues[input.Pick(3)];
        const unsigned nChoice = input.Pick(32);
        if (queue.hQueue == nullptr)
            REQUIRE(VYX_MsgQCreateEx(&queue.hQueue) == VYX_OK);
        else if (nChoice < nSends)
            SendSome(fuzz::NextRow(&input), &queue);
        else if (nChoice < 30)
            Receive(&queue, input.Byte() * 32 - 32, nChoice % 2 == 0 ? 0 : -1);
        else
            REQUIRE(VYX_MsgQDestroyEx(std::exchange(queue, {}).hQueue) == VYX_OK);
    }
    for (Queue &queue : queues)
        if (queue.hQueue != nullptr) {
            while (!queue.messages.IsEmpty())
                Receive(&queue, VYX_MSG_DATA_SIZE, 1);
            REQUIRE(VYX_MsgQDestroyEx(queue.hQueue) == VYX_OK);
        }
    return 0;
}
