// Message queues and vyx::vyx_msgq as callers see them.
#include <algorithm>
#include <atomic>
#include <climits>
#include <map>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/msg.h>

#include "msg/msgq_support.h"
#include "support/support.h"

namespace {

using msgq::Got;
using msgq::MakeBlock;
using msgq::MsgQueue;
using msgq::NextType;
using msgq::Receive;
using msgq::Send;

// Two pages of which the second cannot be read.
TEST_F(MsgQueue, SendReadsNoMoreThanTheLengthSays) {
    const auto nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pPages = mmap(nullptr, 2 * nPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, pPages);
    ASSERT_EQ(0, mprotect(static_cast<char *>(pPages) + nPage, nPage, PROT_NONE));
    for (const int32_t iDataLen : {0, 4, VYX_MSG_DATA_SIZE + 1, INT_MAX, -1, INT32_MIN}) {
        SCOPED_TRACE(iDataLen);
        const size_t nData = iDataLen == 4 ? 4 : 0; // what is there; leaves the block aligned
        char *pStart = static_cast<char *>(pPages) + nPage - offsetof(VYX_MSG_BLOCK_T, szData) - nData;
        const int32_t header[] = {1, 1, iDataLen};
        std::memcpy(pStart, header, sizeof header);
        EXPECT_EQ(iDataLen == 0 || iDataLen == 4 ? VYX_OK : VYX_ERROR,
                  VYX_MsgQSendEx(m_hQueue, reinterpret_cast<VYX_MSG_BLOCK_T *>(pStart)));
    }
    ASSERT_EQ(0, munmap(pPages, 2 * nPage));
}

TEST_F(MsgQueue, SmallBlockLosesTheMessage) {
    for (const int32_t iRoom : {VYX_MSG_DATA_SIZE - 1, 0, -1, INT32_MIN}) {
        SCOPED_TRACE(iRoom);
        ASSERT_EQ(VYX_OK, Send(m_hQueue, 1, 9, std::string(VYX_MSG_DATA_SIZE, 'a')));
        const std::string next(VYX_MSG_DATA_SIZE, 'n'); // which fits
        ASSERT_EQ(VYX_OK, Send(m_hQueue, 2, 8, next));
        const auto pBlock = MakeBlock(-7, -7, "untouched");
        pBlock->iDataLen = iRoom;
        EXPECT_EQ(VYX_ERROR, VYX_MsgQReceiveEx(m_hQueue, pBlock.get(), -1));
        EXPECT_EQ(1, pBlock->iMsgType);
        EXPECT_EQ(9, pBlock->iPriority);
        EXPECT_EQ(iRoom, pBlock->iDataLen);
        EXPECT_STREQ("untouched", pBlock->szData);
        EXPECT_EQ(next, Receive(m_hQueue, 0).Data());
    }
}

TEST_F(MsgQueue, RefusesWhatIsNoQueueAndNoBlock) {
    EXPECT_EQ(VYX_ERROR, VYX_MsgQSendEx(m_hQueue, nullptr));
    EXPECT_EQ(VYX_ERROR, VYX_MsgQReceiveEx(m_hQueue, nullptr, 0));
    EXPECT_EQ(VYX_OK, VYX_MsgQDestroyEx(m_hQueue));
    EXPECT_EQ(VYX_OK, VYX_MsgQDestroyEx(m_hQueue));
    EXPECT_EQ(VYX_ERROR, Send(m_hQueue, 1));
    EXPECT_EQ(VYX_ERROR, Receive(m_hQueue, -1).iResult);
}

TEST_F(MsgQueue, RegistryGivesOutTheLowestFreeEntryAlsoAfterARestart) {
    for (int nRound = 0; nRound < 2; ++nRound) {
        std::vector<VYX_HANDLE_MSGQ> queues{m_hQueue};
        for (size_t i = 1; i < VYX_MAX_MSGQ; ++i) {
            ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&queues.emplace_back()));
            ASSERT_GT(queues[i], queues[i - 1]);
        }
        VYX_HANDLE_MSGQ hOther = m_hQueue;
        EXPECT_EQ(VYX_ERROR, VYX_MsgQCreateEx(&hOther));
        EXPECT_EQ(m_hQueue, hOther) << "written, though there is none";
        for (const size_t i : {70U, 3U}) {
            ASSERT_EQ(VYX_OK, Send(queues[i], 1));
            ASSERT_EQ(VYX_OK, VYX_MsgQDestroyEx(queues[i]));
        }
        for (const size_t i : {3U, 70U}) {
            ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&hOther));
            EXPECT_EQ(queues[i], hOther);
            EXPECT_EQ(VYX_ERROR, Receive(hOther, 1).iResult) << "has the messages of its predecessor";
        }
        ASSERT_EQ(VYX_OK, Send(m_hQueue, 1));
        ASSERT_EQ(VYX_OK, VYX_Fini());
        EXPECT_EQ(VYX_ERROR, Send(m_hQueue, 1)) << "lives on after the stop";
        EXPECT_EQ(VYX_ERROR, VYX_MsgQCreateEx(&hOther));
        EXPECT_EQ(VYX_ERROR, VYX_MsgQDestroyEx(m_hQueue));
        ASSERT_EQ(VYX_OK, VYX_Init());
        ASSERT_EQ(VYX_OK, VYX_MsgQCreateEx(&hOther));
        EXPECT_EQ(m_hQueue, hOther);
        EXPECT_EQ(VYX_ERROR, Receive(hOther, 1).iResult);
    }
}

// Each sender numbers its messages. Whatever receiver gets them, it gets those of one sender in order, and all
// receivers together get each exactly once.
TEST_F(MsgQueue, ManySendersAndReceiversLoseAndDoubleNothing) {
    constexpr int32_t kThreads = 16;
    constexpr int32_t kMessages = 1500; // type = number * kThreads + sender
    std::vector<std::atomic<int>> received(size_t{kThreads} * kMessages);
    std::vector<std::thread> threads;
    for (int32_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            std::map<int32_t, int32_t> next; // by sender, the least type that may come
            for (int32_t iType = 0; iType >= 0;) {
                const Got got = Receive(m_hQueue, i % 2 == 0 ? -1 : 5);
                if (got.iResult != VYX_OK)
                    continue; // a time-out
                iType = got.pBlock->iMsgType;
                if (iType < 0)
                    break;
                EXPECT_EQ(std::to_string(iType), got.Data());
                EXPECT_GE(iType, next[iType % kThreads]);
                next[iType % kThreads] = iType + 1;
                ++received.at(static_cast<size_t>(iType));
            }
        });
        threads.emplace_back([&, i] {
            for (int32_t n = 0; n < kMessages; ++n)
                EXPECT_EQ(VYX_OK, Send(m_hQueue, n * kThreads + i, 0, std::to_string(n * kThreads + i)));
            EXPECT_EQ(VYX_OK, Send(m_hQueue, -1, -1)); // the end for one receiver
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(static_cast<long>(received.size()), std::count(received.begin(), received.end(), 1));
}

TEST(MsgqClass, GivesBackThePointersInTheirOrder) {
    vyx::vyx_msgq queue;
    VYX_MSG_BLOCK_T blocks[3] = {};
    VYX_MSG_BLOCK_T *pOut = &blocks[2];
    EXPECT_EQ(-1, queue.getq(&pOut, 0));
    EXPECT_EQ(-1, queue.getq(&pOut, -5)) << "only -1 has no limit";
    EXPECT_EQ(-1, queue.getq(nullptr, 0));
    EXPECT_EQ(-1, queue.putq(nullptr));
    EXPECT_EQ(&blocks[2], pOut);
    EXPECT_EQ(0, queue.putq(&blocks[0]));
    EXPECT_EQ(0, queue.putq(&blocks[1]));
    for (const int i : {0, 1}) {
        EXPECT_EQ(0, queue.getq(&pOut, -i));
        EXPECT_EQ(&blocks[i], pOut);
    }
}

TEST(MsgqClass, ForgetsItsPointers) {
    vyx::vyx_msgq queue;
    VYX_MSG_BLOCK_T block = {};
    VYX_MSG_BLOCK_T *pOut = nullptr;
    for (int (vyx::vyx_msgq::*pForget)() : {&vyx::vyx_msgq::reset, &vyx::vyx_msgq::init}) {
        EXPECT_EQ(0, queue.putq(&block));
        EXPECT_EQ(0, (queue.*pForget)());
        EXPECT_EQ(-1, queue.getq(&pOut, 0));
    }
    EXPECT_EQ(0, queue.putq(&block));
    EXPECT_EQ(0, queue.destroy());
    EXPECT_EQ(-1, queue.putq(&block));
    EXPECT_EQ(-1, queue.getq(&pOut, -1));
    EXPECT_EQ(0, queue.reset());
    EXPECT_EQ(0, queue.init());
    EXPECT_EQ(0, queue.putq(&block));
    EXPECT_EQ(0, queue.getq(&pOut, 0));
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
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * kTimeOut)); // time that must not end it
    EXPECT_FALSE(bDone.load());
    EXPECT_EQ(0, queue.putq(&block));
    getter.join();
    EXPECT_EQ(&block, pOut);
}

} // namespace
