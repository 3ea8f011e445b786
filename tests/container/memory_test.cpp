// The cycle buffer's refusals and threads, and aligned memory. What a ring hands over, the fuzz target compares with a model.
#include <atomic>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/container.h>

namespace {

using Bytes = std::vector<uint8_t>;

// What a read handed over: one entry for each call of the callback.
struct Taken {
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    std::vector<Bytes> pieces;
    bool bReadAgain = false; // the callback adds a byte to the same ring, reads it and adds another one, once
};

int32_t Take(uint8_t *pData, uint32_t nLen, void *pUser) {
    auto *pTaken = static_cast<Taken *>(pUser);
    pTaken->pieces.emplace_back(pData, pData + nLen);
    const uint8_t byMark = 77;
    if (std::exchange(pTaken->bReadAgain, false)) {
        EXPECT_EQ(VYX_CycleBufferWrite(pTaken->hBuffer, &byMark, 1), VYX_OK);
        EXPECT_EQ(VYX_CycleBufferRead(pTaken->hBuffer), VYX_OK);
        EXPECT_EQ(VYX_CycleBufferWrite(pTaken->hBuffer, &byMark, 1), VYX_OK);
    }
    return 0;
}

class CycleBuffer : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(VYX_CycleBufferInit(&m_taken.hBuffer, 70, Take, &m_taken), VYX_OK); }
    ~CycleBuffer() override { VYX_CycleBufferDestroy(m_taken.hBuffer); }

    int32_t Write(const Bytes &bytes) {
        return VYX_CycleBufferWrite(m_taken.hBuffer, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    std::vector<Bytes> Read() {
        m_taken.pieces.clear();
        (void)VYX_CycleBufferRead(m_taken.hBuffer);
        return m_taken.pieces;
    }
    Taken m_taken;
};

TEST_F(CycleBuffer, RefusesWhatItCannotHold) {
    const uint8_t byOne = 1;
    EXPECT_EQ(Write({2}), VYX_OK);
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, &byOne, UINT32_MAX), VYX_ERROR) << "a length that wraps";
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, &byOne, 0), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, nullptr, 1), VYX_ERROR);
    VYX_HANDLE_CYCLEBUFFER hOther = nullptr;
    EXPECT_EQ(VYX_CycleBufferInit(&hOther, 0, Take, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferInit(&hOther, 1, nullptr, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferInit(nullptr, 1, Take, nullptr), VYX_ERROR);
}

TEST_F(CycleBuffer, CallbackMayReadTheSameRing) {
    EXPECT_EQ(Write({1, 2}), VYX_OK);
    m_taken.bReadAgain = true;
    EXPECT_EQ(Read(), (std::vector<Bytes>{{1, 2}, {1, 2, 77}})) << "the inner one drops all of them";
    EXPECT_EQ(Read(), (std::vector<Bytes>{{77}})) << "written after the inner one";
    EXPECT_TRUE(Read().empty());
}

TEST_F(CycleBuffer, WritersAndAReaderMayWorkAtOnce) {
    constexpr uint32_t kWriters = 4;
    constexpr uint32_t kEach = 6000;
    std::atomic<int> iPermits{8}; // less than half of the ring, so that nothing is dropped
    std::vector<std::thread> threads;
    for (uint32_t nWriter = 0; nWriter < kWriters; ++nWriter)
        threads.emplace_back([this, nWriter, &iPermits] {
            for (uint32_t n = 0; n < kEach; ++n) {
                while (iPermits.fetch_sub(1) <= 0) {
                    ++iPermits;
                    std::this_thread::yield();
                }
                const uint32_t nPiece = n * kWriters + nWriter;
                Bytes bytes(sizeof nPiece);
                std::memcpy(bytes.data(), &nPiece, sizeof nPiece);
                ASSERT_EQ(Write(bytes), VYX_OK);
            }
        });
    std::atomic<bool> bDone{false};
    threads.emplace_back([this, &bDone] {
        for (uint32_t nCount = 0; !bDone; std::this_thread::yield()) {
            ASSERT_EQ(VYX_CycleBufferValue(m_taken.hBuffer, &nCount), VYX_OK);
            ASSERT_LE(nCount, 8 * sizeof nCount) << "never more than was there at one moment";
        }
    });
    uint32_t nDue[kWriters] = {};
    for (size_t nDone = 0; nDone < kWriters * kEach;) {
        Bytes all;
        for (const Bytes &bytes : Read())
            all.insert(all.end(), bytes.begin(), bytes.end());
        for (size_t i = 0; i < all.size(); i += sizeof nDue[0], ++nDone, ++iPermits) {
            uint32_t nPiece = 0;
            std::memcpy(&nPiece, &all[i], sizeof nPiece);
            ASSERT_EQ(nPiece / kWriters, nDue[nPiece % kWriters]++);
        }
    }
    bDone = true;
    for (std::thread &thread : threads)
        thread.join();
}

TEST(AlignedMemory, IsAlignedZeroedAndWhole) {
    for (int32_t iAlignment : {1, 2, 4, 8, 16, 64, 4096, 1 << 20}) {
        auto *pMemory = static_cast<unsigned char *>(VYX_AlignedMalloc(100, iAlignment));
        ASSERT_NE(pMemory, nullptr) << iAlignment;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(pMemory) % static_cast<uintptr_t>(iAlignment), 0U);
        for (int i = 0; i < 100; ++i)
            ASSERT_EQ(pMemory[i], 0);
        std::memset(pMemory, 0xAB, 100);
        EXPECT_EQ(VYX_AlignedFree(pMemory), VYX_OK);
    }
    EXPECT_EQ(VYX_AlignedMalloc(100, INT32_MIN), nullptr) << "one bit, but negative";
    EXPECT_EQ(VYX_AlignedMalloc(INT32_MAX, 64), nullptr) << "the sum does not fit";
    EXPECT_EQ(VYX_AlignedFree(VYX_AlignedMalloc(0, 64)), VYX_OK);
}

} // namespace
