// Message queues: a program of operations against lists in the order of the priorities.
#include <algorithm>
#include <cstring>
#include <list>
#include <vyx/frame.h>
#include <vyx/msg.h>

#include "input.h"

namespace {

struct Message {
    int32_t iType;
    int32_t iPriority;
    std::string sData;
};

struct Queue {
    VYX_HANDLE_MSGQ hQueue = nullptr; // null: none
    std::list<Message> messages = {};
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
    if (!bGood)
        return;
    auto itAt = pQueue->messages.begin();
    while (itAt != pQueue->messages.end() && itAt->iPriority >= iPriority)
        ++itAt;
    pQueue->messages.insert(itAt, {iType, iPriority, sData});
}

// One message, or a row of them whose priorities rise or fall.
void SendSome(fuzz::Input *pInput, Queue *pQueue) {
    const auto iType = static_cast<int32_t>(pInput->Byte());
    const unsigned nSpread = pInput->Pick(4);
    int64_t iPriority = nSpread == 0  ? static_cast<int32_t>(pInput->Pick(3))
                        : nSpread < 3 ? pInput->Number<int8_t>()
                                      : pInput->Number<int32_t>();
    // -1 to 8128: below and above what is allowed.
    const auto iLength = std::max(-1, static_cast<int32_t>(pInput->Byte()) * 32 - 32);
    const auto iStep = pInput->Number<int8_t>();
    for (unsigned n = iType % 4 == 0 ? pInput->Pick(64) : 1; n > 0; --n, iPriority += iStep)
        Send(pQueue, iType, static_cast<int32_t>(iPriority), iLength);
}

// A queue that is empty would be waited for.
void Receive(Queue *pQueue, int32_t iRoom, int32_t iTimeOut) {
    static const std::string s_sUntouched(VYX_MSG_DATA_SIZE, '\xEE');
    static VYX_MSG_BLOCK_T s_block;
    if (pQueue->messages.empty())
        return;
    const Message first = pQueue->messages.front();
    pQueue->messages.pop_front();
    std::memset(&s_block, 0xEE, sizeof s_block);
    s_block.iDataLen = iRoom;
    const bool bFits = iRoom >= static_cast<int32_t>(first.sData.size()); // it is lost otherwise
    REQUIRE(VYX_MsgQReceiveEx(pQueue->hQueue, &s_block, iTimeOut) == (bFits ? VYX_OK : VYX_ERROR));
    REQUIRE(s_block.iMsgType == first.iType && s_block.iPriority == first.iPriority);
    REQUIRE(s_block.iDataLen == (bFits ? static_cast<int32_t>(first.sData.size()) : iRoom));
    const size_t nCopied = bFits ? first.sData.size() : 0;
    REQUIRE(std::memcmp(s_block.szData, first.sData.data(), nCopied) == 0);
    REQUIRE(s_sUntouched.compare(nCopied, std::string::npos, s_block.szData + nCopied,
                                 sizeof s_block.szData - nCopied) == 0);
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
        if (queue.hQueue == nullptr) {
            REQUIRE(VYX_MsgQCreateEx(&queue.hQueue) == VYX_OK);
        } else if (nChoice < nSends) {
            SendSome(&input, &queue);
        } else if (nChoice < 30) {
            Receive(&queue, static_cast<int32_t>(input.Byte()) * 32 - 32, nChoice % 2 == 0 ? 0 : -1);
        } else {
            REQUIRE(VYX_MsgQDestroyEx(queue.hQueue) == VYX_OK);
            queue = {};
        }
    }
    for (Queue &queue : queues)
        if (queue.hQueue != nullptr) {
            while (!queue.messages.empty())
                Receive(&queue, VYX_MSG_DATA_SIZE, 1);
            REQUIRE(VYX_MsgQDestroyEx(queue.hQueue) == VYX_OK);
        }
    return 0;
}
