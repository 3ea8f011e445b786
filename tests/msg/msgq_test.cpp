// Message queues and vyx::vyx_msgq: who waits for how long, and what the end of a queue does to whom.
#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <vyx/frame.h>

#include "msg/msgq_inter.h"
#include "support/support.h"

namespace {

using support::WaitUntil;
using vyx_inter::LockGuard;

int32_t Send(VYX_HANDLE_MSGQ hQueue, int32_t iType) {
    const auto pBlock = std::make_unique<VYX_MSG_BLOCK_T>();
    pBlock->iMsgType = iType;
    return VYX_MsgQSendEx(hQueue, pBlock.get());
}

// Result: the message's type, or -1.
int32_t Receive(VYX_HANDLE_MSGQ hQueue, int32_t iTimeOut) {
    const auto pBlock = std::make_unique<VYX_MSG_BLOCK_T>();
    pBlock->iDataLen = VYX_MSG_DATA_SIZE;
    return VYX_MsgQReceiveEx(hQueue, pBlock.get(), iTimeOut) == VYX_OK ? pBlock->iMsgType : -1;
}

// Before main, when the library's objects in the program may come after this one.
const bool kWorksEarly = [] {
    VYX_HANDLE_MSGQ hQueue = nullptr;
    return VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&hQueue) == VYX_OK && Send(hQueue, 7) == VYX_OK &&
           Receive(hQueue, 1) == 7 && VYX_Fini() == VYX_OK;
}();
TEST(MsgQueueEarly, WorksInAStaticConstructor) {
    EXPECT_TRUE(kWorksEarly);
}

// The started library with one queue.
class MsgQueue : public testing::Test {
  protected:
    MsgQueue() {
        EXPECT_EQ(VYX_OK, VYX_Init());
        EXPECT_EQ(VYX_OK, VYX_MsgQCreateEx(&m_hQueue));
    }
    ~MsgQueue() override { EXPECT_EQ(VYX_OK, VYX_Fini()); }

    VYX_HANDLE_MSGQ m_hQueue = nullptr;
};

// A receiver on a thread of its own.
class Receiver {
  public:
    Receiver(VYX_HANDLE_MSGQ hQueue, int32_t iTimeOut)
        : m_thread([this, hQueue, iTimeOut] {
              m_iType = Receive(hQueue, iTimeOut);
              m_bDone = true;
          }) {}
    int32_t Join() {
        m_thread.join();
        return m_iType;
    }
    bool Done() const { return m_bDone; }

  private:
    int32_t m_iType = 0;
    std::atomic<bool> m_bDone{false};
    std::thread m_thread;
};

// Returns when one more sleeps: the flag is set before hQueueLock is released, and hRecvLock is held until the receiver
// sleeps.
void AwaitOneMore(VYX_HANDLE_MSGQ hQueue) {
    while (hQueue->bRecvWaits.load() == 0)
        std::this_thread::yield();
    const LockGuard guard(hQueue->hRecvLock);
    hQueue->bRecvWaits.store(0);
}

// Also beside a receiver that takes it: one send wakes all.
TEST_F(MsgQueue, TimeOutZeroWaitsForASendAndLeavesIt) {
    for (int32_t iType = 0; iType < 20; ++iType) { // the send comes within the first millisecond, or after
        const bool bTaken = iType % 2 != 0;
        m_hQueue->bRecvWaits.store(0); // the last look at the empty queue has left it
        Receiver watcher(m_hQueue, 0);
        AwaitOneMore(m_hQueue);
        Receiver other(m_hQueue, bTaken ? -1 : 0);
        AwaitOneMore(m_hQueue);
        EXPECT_FALSE(watcher.Done());
        m_hQueue->bRecvWaits.store(1);
        ASSERT_EQ(VYX_OK, Send(m_hQueue, iType));
        EXPECT_EQ(-1, watcher.Join());
        EXPECT_EQ(bTaken ? iType : -1, other.Join());
        EXPECT_EQ(bTaken ? -1 : iType, Receive(m_hQueue, 1));
    }
}

TEST_F(MsgQueue, TimeOutCountsOverAllWakeUps) {
    constexpr int32_t kTimeOut = 150; // milliseconds
    const double fTook = support::MillisecondsOf([&] {
        Receiver receiver(m_hQueue, kTimeOut);
        EXPECT_TRUE(WaitUntil([&] { // wakes it about once a millisecond
            m_hQueue->hRecvCond.Broadcast();
            return receiver.Done();
        }));
        EXPECT_EQ(-1, receiver.Join());
    });
    EXPECT_GE(fTook, kTimeOut - 1);
    EXPECT_LT(fTook, 10 * kTimeOut * support::TimeScale());
}

TEST_F(MsgQueue, TheEndOfTheQueueEndsItsReceivers) {
    for (const bool bStop : {false, true}) {
        Receiver forever(m_hQueue, -1);
        AwaitOneMore(m_hQueue);
        Receiver watcher(m_hQueue, 0);
        AwaitOneMore(m_hQueue);
        m_hQueue->bRecvWaits.store(1);
        ASSERT_EQ(VYX_OK, bStop ? VYX_Fini() : VYX_MsgQDestroyEx(m_hQueue));
        EXPECT_EQ(-1, forever.Join());
        EXPECT_EQ(-1, watcher.Join());
        if (bStop) {
            ASSERT_EQ(VYX_OK, VYX_Init());
        }
        const uint32_t nGeneration = m_hQueue->nGeneration.load();
        ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&m_hQueue));
        EXPECT_NE(m_hQueue->nGeneration.load(), nGeneration) << "another queue in the same place";
    }
    Receiver late(m_hQueue, -1);
    AwaitOneMore(m_hQueue);
    m_hQueue->nGeneration.fetch_add(1); // before it wakes up, there is another queue in the place
    m_hQueue->bRecvWaits.store(1);
    ASSERT_EQ(VYX_OK, Send(m_hQueue, 5));
    EXPECT_EQ(-1, late.Join());
    EXPECT_EQ(5, Receive(m_hQueue, 1));
    EXPECT_EQ(VYX_ERROR, VYX_MsgQSendEx(m_hQueue, nullptr));
    EXPECT_EQ(VYX_ERROR, VYX_MsgQReceiveEx(m_hQueue, nullptr, 0));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(VYX_OK, VYX_MsgQDestroyEx(m_hQueue));
    EXPECT_EQ(VYX_ERROR, Send(m_hQueue, 1));
    ASSERT_EQ(VYX_OK, VYX_Fini());
    EXPECT_EQ(VYX_ERROR, VYX_MsgQCreateEx(&m_hQueue));
    EXPECT_EQ(VYX_ERROR, VYX_MsgQDestroyEx(m_hQueue));
    ASSERT_EQ(VYX_OK, VYX_Init());
}

// Who looks from outside is told how full it is.
TEST_F(MsgQueue, CountsWhatItHolds) {
    const auto holds = [this] {
        const LockGuard guard(m_hQueue->hQueueLock);
        return std::pair<uint64_t, uint64_t>(m_hQueue->nSorted, m_hQueue->nBytes);
    };
    VYX_MSG_BLOCK_T block = {};
    for (const int32_t iLength : {10, 20, 30}) {
        block.iDataLen = iLength;
        ASSERT_EQ(VYX_MsgQSendEx(m_hQueue, &block), VYX_OK);
    }
    EXPECT_EQ(Receive(m_hQueue, 1), 0); // sorts them in
    EXPECT_EQ(holds(), (std::pair<uint64_t, uint64_t>(2, 50)));
    ASSERT_EQ(VYX_MsgQDestroyEx(m_hQueue), VYX_OK);
    EXPECT_EQ(holds(), (std::pair<uint64_t, uint64_t>(0, 0)));
}

TEST(MsgqClass, GivesBackThePointersInTheirOrderOrForgetsThem) {
    vyx::vyx_msgq queue;
    VYX_MSG_BLOCK_T blocks[2] = {};
    VYX_MSG_BLOCK_T *pOut = nullptr;
    EXPECT_EQ(-1, queue.getq(&pOut, 0));
    EXPECT_EQ(-1, queue.getq(&pOut, -5)) << "only -1 has no limit";
    EXPECT_EQ(-1, queue.getq(nullptr, 0));
    EXPECT_EQ(-1, queue.putq(nullptr));
    for (int (vyx::vyx_msgq::*pForget)() : {&vyx::vyx_msgq::reset, &vyx::vyx_msgq::init}) {
        EXPECT_EQ(0, queue.putq(&blocks[0]));
        EXPECT_EQ(0, (queue.*pForget)());
        EXPECT_EQ(-1, queue.getq(&pOut, 0));
    }
    EXPECT_EQ(0, queue.destroy());
    EXPECT_EQ(-1, queue.putq(&blocks[0]));
    EXPECT_EQ(-1, queue.getq(&pOut, -1));
    EXPECT_EQ(0, queue.reset());
    EXPECT_EQ(0, queue.init());
    for (VYX_MSG_BLOCK_T &block : blocks)
        EXPECT_EQ(0, queue.putq(&block));
    for (const int i : {0, 1}) {
        EXPECT_EQ(0, queue.getq(&pOut, -i));
        EXPECT_EQ(&blocks[i], pOut);
    }
}

TEST(MsgqClass, QuickLooksUseUpNoTime) {
    constexpr int kTimeOut = 100; // milliseconds
    vyx::vyx_msgq queue;
    VYX_MSG_BLOCK_T block = {};
    VYX_MSG_BLOCK_T *pOut = nullptr;
    std::atomic<bool> bDone{false};
    std::thread getter([&] {
        EXPECT_EQ(0, queue.getq(&pOut, kTimeOut));
        bDone.store(true);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * kTimeOut)); // it must not end meanwhile
    EXPECT_FALSE(bDone.load());
    EXPECT_EQ(0, queue.putq(&block));
    getter.join();
    EXPECT_EQ(&block, pOut);
}

} // namespace
