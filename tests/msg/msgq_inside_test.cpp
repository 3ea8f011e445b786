// Message queues where it matters who waits when, and where memory is short.
#include <atomic>
#include <deque>
#include <map>
#include <new>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "msg/msgq_inter.h"
#include "msg/msgq_support.h"
#include "support/support.h"

namespace {

thread_local int t_nRefused = 0; // of this thread's next allocations that report failure instead of throwing

} // namespace

// The library allocates what it must not fail for through this form.
void *operator new(std::size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    if (t_nRefused > 0) {
        --t_nRefused;
        return nullptr;
    }
    return ::operator new(nSize);
}

namespace {

using msgq::Got;
using msgq::MsgQueue;
using msgq::NextType;
using msgq::Receive;
using msgq::Send;
using support::WaitUntil;
using vyx_inter::LockGuard;

// A receiver on a thread of its own.
class Receiver {
  public:
    Receiver(VYX_HANDLE_MSGQ hQueue, int32_t iTimeOut)
        : m_thread([this, hQueue, iTimeOut] {
              m_got = Receive(hQueue, iTimeOut);
              m_bDone.store(true);
          }) {}
    const Got &Join() {
        m_thread.join();
        return m_got;
    }
    bool Done() const { return m_bDone.load(); }

  private:
    Got m_got{};
    std::atomic<bool> m_bDone{false};
    std::thread m_thread;
};

// The flag is set before hQueueLock is released, and hRecvLock is held until the receiver sleeps.
bool SomebodyWaits(VYX_HANDLE_MSGQ hQueue) {
    if (!WaitUntil([hQueue] { return hQueue->bRecvWaits.load() != 0; }))
        return false;
    const LockGuard guard(hQueue->hRecvLock);
    return true;
}

TEST_F(MsgQueue, TimeOutZeroWaitsForASendAndLeavesIt) {
    for (int32_t iType = 0; iType < 20; ++iType) { // the send comes within the first millisecond, or after
        Receiver receiver(m_hQueue, 0);
        ASSERT_TRUE(SomebodyWaits(m_hQueue));
        EXPECT_FALSE(receiver.Done());
        ASSERT_EQ(VYX_OK, Send(m_hQueue, iType));
        EXPECT_EQ(VYX_ERROR, receiver.Join().iResult);
        EXPECT_EQ(iType, NextType(m_hQueue));
    }
}

// One send: those that only wait for it all learn of it, and the one that wants the message gets it.
TEST_F(MsgQueue, ASendWakesAllThatWait) {
    std::vector<std::unique_ptr<Receiver>> watchers;
    for (int i = 0; i < 4; ++i) {
        m_hQueue->bRecvWaits.store(0);
        watchers.push_back(std::make_unique<Receiver>(m_hQueue, 0));
        ASSERT_TRUE(SomebodyWaits(m_hQueue));
    }
    m_hQueue->bRecvWaits.store(0);
    Receiver taker(m_hQueue, -1);
    ASSERT_TRUE(SomebodyWaits(m_hQueue));
    ASSERT_EQ(VYX_OK, Send(m_hQueue, 42));
    EXPECT_EQ(42, taker.Join().pBlock->iMsgType);
    for (const auto &pWatcher : watchers)
        EXPECT_EQ(VYX_ERROR, pWatcher->Join().iResult);
}

TEST_F(MsgQueue, TimeOutCountsOverAllWakeUps) {
    constexpr int32_t kTimeOut = 150; // milliseconds
    const double fTook = support::MillisecondsOf([&] {
        Receiver receiver(m_hQueue, kTimeOut);
        EXPECT_TRUE(WaitUntil([&] { // wakes it about once a millisecond
            m_hQueue->hRecvCond.Broadcast();
            return receiver.Done();
        }));
        EXPECT_EQ(VYX_ERROR, receiver.Join().iResult);
    });
    EXPECT_GE(fTook, kTimeOut - 1);
    EXPECT_LT(fTook, 10 * kTimeOut * support::TimeScale());
}

TEST_F(MsgQueue, AMessageBetweenTheLookAndTheSleepEndsTheWait) {
    m_hQueue->hQueueLock.Acquire();
    EXPECT_EQ(VYX_OK, Send(m_hQueue, 1));
    EXPECT_TRUE(VYX_MsgQWaitTimeOut_Inter(m_hQueue, 1)) << "there is something to take";
    EXPECT_EQ(1, NextType(m_hQueue));
    const LockGuard guard(m_hQueue->hQueueLock);
    EXPECT_EQ(0U, m_hQueue->nBytes) << "as tools see it";
}

TEST_F(MsgQueue, TheEndOfTheQueueEndsItsReceivers) {
    for (const bool bStop : {false, true}) {
        Receiver forever(m_hQueue, -1);
        ASSERT_TRUE(SomebodyWaits(m_hQueue));
        m_hQueue->bRecvWaits.store(0);
        Receiver watcher(m_hQueue, 0);
        ASSERT_TRUE(SomebodyWaits(m_hQueue));
        ASSERT_EQ(VYX_OK, bStop ? VYX_Fini() : VYX_MsgQDestroyEx(m_hQueue));
        if (bStop) {
            ASSERT_EQ(VYX_OK, VYX_Init());
        }
        VYX_HANDLE_MSGQ hNext = nullptr;
        ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&hNext));
        ASSERT_EQ(m_hQueue, hNext);
        ASSERT_EQ(VYX_OK, Send(hNext, 5));
        EXPECT_EQ(VYX_ERROR, forever.Join().iResult);
        EXPECT_EQ(VYX_ERROR, watcher.Join().iResult);
        EXPECT_EQ(5, NextType(hNext)) << "a receiver of the destroyed queue took it";
    }
    for (const char *szData : {"taken", "left", "left"})
        ASSERT_EQ(VYX_OK, Send(m_hQueue, 1, 0, szData));
    EXPECT_EQ(1, NextType(m_hQueue));
    ASSERT_EQ(VYX_OK, VYX_MsgQDestroyEx(m_hQueue));
    ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&m_hQueue));
    const LockGuard guard(m_hQueue->hQueueLock);
    EXPECT_TRUE(m_hQueue->nSorted == 0 && m_hQueue->nBytes == 0) << "what tools show";
}

// Whoever needs one of the locks here waits for ever.
TEST_F(MsgQueue, NobodyIsSignalledWhoDoesNotWait) {
    {
        const LockGuard queue(m_hQueue->hQueueLock); // a sender never waits for receivers either
        const LockGuard receivers(m_hQueue->hRecvLock);
        EXPECT_EQ(VYX_OK, Send(m_hQueue, 1));
    }
    EXPECT_EQ(1, NextType(m_hQueue));
}

TEST_F(MsgQueue, OnlyASendNeedsMemory) {
    t_nRefused = 1;
    EXPECT_EQ(VYX_ERROR, Send(m_hQueue, 1));
    EXPECT_EQ(0, t_nRefused);
    for (const int32_t iPriority : {5, 7, 5, 6})
        ASSERT_EQ(VYX_OK, Send(m_hQueue, iPriority, iPriority));
    t_nRefused = 1; // what was sent is put in order without memory: nothing waits aside until there is some
    for (const int32_t iPriority : {7, 6, 5, 5})
        EXPECT_EQ(iPriority, NextType(m_hQueue));
    EXPECT_EQ(1, t_nRefused);
    VYX_MSG_BLOCK_T *pOut = nullptr;
    t_nRefused = 1;
    vyx::vyx_msgq queue;
    EXPECT_EQ(-1, queue.getq(&pOut, -1));
    EXPECT_EQ(0, queue.init());
    EXPECT_EQ(-1, queue.getq(&pOut, 0));
}

// Against a map of queues, in phases that fill and empty, with priorities that rise, fall and scatter: few that all have
// their own bucket, and many.
TEST(MsgIndex, KeepsTheOrderWhateverComes) {
    constexpr int32_t kSteps = 4000;
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same run each time
    for (int nRound = 0; nRound < 18; ++nRound) {
        vyx_inter::MsgIndex index;
        std::map<int32_t, std::deque<VYX_MQ_MSG_S *>, std::greater<>> model;
        std::deque<VYX_MQ_MSG_S> messages;
        const int32_t spreads[] = {20, 300, INT32_MAX};
        const int32_t iSpread = spreads[nRound / 3 % 3];
        for (int32_t i = 0; i < kSteps || !model.empty(); ++i) {
            const bool bGrow = i < kSteps && (i / 400 % 2 == 0 ? random() % 4 != 0 : random() % 4 == 0);
            if (bGrow) {
                const int32_t iScatter = static_cast<int32_t>(random()) % iSpread;
                const int32_t priorities[] = {iScatter, i, -i};
                VYX_MQ_MSG_S &message = messages.emplace_back();
                message.struMsg.iPriority = priorities[nRound % 3];
                index.Append(&message);
                model[message.struMsg.iPriority].push_back(&message);
            } else if (model.empty()) {
                ASSERT_EQ(nullptr, index.RemoveFirst());
            } else {
                ASSERT_EQ(model.begin()->second.front(), index.RemoveFirst()) << nRound;
                model.begin()->second.pop_front();
                if (model.begin()->second.empty())
                    model.erase(model.begin());
            }
        }
        EXPECT_EQ(nullptr, index.RemoveFirst());
    }
}

} // namespace
