// What both tests of the message queues share.
#ifndef VYX_TESTS_MSGQ_SUPPORT_H
#define VYX_TESTS_MSGQ_SUPPORT_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <vyx/frame.h>
#include <vyx/msg.h>

namespace msgq {

using Block = std::unique_ptr<VYX_MSG_BLOCK_T>;

inline Block MakeBlock(int32_t iType, int32_t iPriority, const std::string &data) {
    auto pBlock = std::make_unique<VYX_MSG_BLOCK_T>();
    pBlock->iMsgType = iType;
    pBlock->iPriority = iPriority;
    pBlock->iDataLen = static_cast<int32_t>(data.size());
    std::memcpy(pBlock->szData, data.data(), std::min<size_t>(data.size(), VYX_MSG_DATA_SIZE));
    return pBlock;
}

inline int32_t Send(VYX_HANDLE_MSGQ hQueue, int32_t iType, int32_t iPriority = 0,
                    const std::string &data = "") {
    return VYX_MsgQSendEx(hQueue, MakeBlock(iType, iPriority, data).get());
}

struct Got {
    int32_t iResult;
    Block pBlock;
    std::string Data() const { return {pBlock->szData, static_cast<size_t>(pBlock->iDataLen)}; }
};

// With all the room there can be.
inline Got Receive(VYX_HANDLE_MSGQ hQueue, int32_t iTimeOut) {
    Got got{0, MakeBlock(-77, -77, "")};
    got.pBlock->iDataLen = VYX_MSG_DATA_SIZE;
    got.iResult = VYX_MsgQReceiveEx(hQueue, got.pBlock.get(), iTimeOut);
    return got;
}

// The type of the first message of a queue that has one; -1 if it cannot be had.
inline int32_t NextType(VYX_HANDLE_MSGQ hQueue) {
    const Got got = Receive(hQueue, 1);
    return got.iResult == VYX_OK ? got.pBlock->iMsgType : -1;
}

// The started library with one queue.
class MsgQueue : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(VYX_OK, VYX_Init());
        ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&m_hQueue));
    }
    void TearDown() override { EXPECT_EQ(VYX_OK, VYX_Fini()); }

    VYX_HANDLE_MSGQ m_hQueue = nullptr;
};

} // namespace msgq

#endif
