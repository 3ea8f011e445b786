// The cycle buffer, also against a plain model, and aligned memory.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "container/container_inter.h"

namespace {

using Bytes = std::vector<uint8_t>;

// What a read handed over: one entry for each call of the callback.
struct Taken {
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    std::vector<Bytes> pieces;
    bool bWriteBack = false; // the callback adds a byte to the same ring
    bool bReadAgain = false; // and then reads it, once
};

int32_t Take(uint8_t *pData, uint32_t nLen, void *pUser) {
    auto *pTaken = static_cast<Taken *>(pUser);
    pTaken->pieces.emplace_back(pData, pData + nLen);
    const uint8_t byMark = 77;
    if (pTaken->bWriteBack) {
        EXPECT_EQ(VYX_CycleBufferWrite(pTaken->hBuffer, &byMark, 1), VYX_OK);
    }
    if (pTaken->bReadAgain) {
        pTaken->bReadAgain = pTaken->bWriteBack = false;
        EXPECT_EQ(VYX_CycleBufferRead(pTaken->hBuffer), VYX_OK);
        EXPECT_EQ(VYX_CycleBufferWrite(pTaken->hBuffer, &byMark, 1), VYX_OK);
    }
    return 0;
}

class CycleBuffer : public testing::Test {
  protected:
    // Makes the ring, with both counts about to begin anew.
    void Make(int32_t iCapacity) {
        ASSERT_EQ(VYX_CycleBufferInit(&m_taken.hBuffer, iCapacity, Take, &m_taken), VYX_OK);
        m_taken.hBuffer->nIn = m_taken.hBuffer->nOut = UINT32_MAX - 20;
    }
    ~CycleBuffer() override { VYX_CycleBufferDestroy(m_taken.hBuffer); }

    int32_t Write(const Bytes &bytes) {
        return VYX_CycleBufferWrite(m_taken.hBuffer, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    std::vector<Bytes> Read(int32_t iExpected = VYX_OK) {
        m_taken.pieces.clear();
        EXPECT_EQ(VYX_CycleBufferRead(m_taken.hBuffer), iExpected);
        return m_taken.pieces;
    }
    uint32_t Count() {
        uint32_t nCount = 9999;
        EXPECT_EQ(VYX_CycleBufferValue(m_taken.hBuffer, &nCount), VYX_OK);
        return nCount;
    }
    Taken m_taken;
};

TEST_F(CycleBuffer, RefusesWhatItCannotHold) {
    Make(10);
    EXPECT_TRUE(Read(VYX_ERROR).empty());
    EXPECT_EQ(Write({1, 2, 3, 4}), VYX_OK);
    EXPECT_EQ(Write({5, 6, 7, 8, 9, 10, 11}), VYX_ERROR);
    EXPECT_EQ(Write({5, 6, 7, 8, 9, 10}), VYX_OK);
    EXPECT_EQ(Write({11}), VYX_ERROR);
    EXPECT_EQ(Count(), 10U);
    const uint8_t byOne = 1;
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, &byOne, UINT32_MAX), VYX_ERROR) << "a length that wraps";
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, &byOne, 0), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferWrite(m_taken.hBuffer, nullptr, 1), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferWrite(nullptr, &byOne, 1), VYX_ERROR);
    VYX_HANDLE_CYCLEBUFFER hOther = nullptr;
    EXPECT_EQ(VYX_CycleBufferInit(&hOther, 0, Take, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferInit(&hOther, 1, nullptr, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CycleBufferInit(nullptr, 1, Take, nullptr), VYX_ERROR);
}

TEST_F(CycleBuffer, WrappedReadKeepsItsTwoLengths) {
    Make(10);
    EXPECT_EQ(Write({1, 2, 3}), VYX_OK);
    EXPECT_EQ(Read(), (std::vector<Bytes>{{1, 2, 3}}));
    EXPECT_EQ(Write({11, 12, 13, 14, 15, 16, 17, 18, 19}), VYX_OK);
    EXPECT_EQ(Read(), (std::vector<Bytes>{{11}, {18, 19}})) << "capacity less count, then the write offset";
    EXPECT_EQ(Count(), 0U);
    EXPECT_EQ(Write({1, 2, 3, 4, 5, 6, 7}), VYX_OK) << "from offset 2 to 9";
    EXPECT_EQ(Read(), (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(Write({21, 22}), VYX_OK) << "one at the end, one at the start";
    EXPECT_EQ(Read(), (std::vector<Bytes>{{21}, {22}}))
        << "8 bytes long by its rule, but kept in the storage";
}

TEST_F(CycleBuffer, CallbackMayReadTheSameRing) {
    Make(16);
    EXPECT_EQ(Write({1, 2}), VYX_OK);
    m_taken.bWriteBack = m_taken.bReadAgain = true;
    EXPECT_EQ(Read(), (std::vector<Bytes>{{1, 2}, {1, 2, 77}})) << "the inner one drops all of them";
    EXPECT_EQ(Count(), 1U) << "written after the inner one";
    EXPECT_EQ(Read(), (std::vector<Bytes>{{77}}));
    const Bytes full(16, 5);
    EXPECT_EQ(Write(full), VYX_OK);
    m_taken.bReadAgain = true;
    (void)Read();
    EXPECT_EQ(Count(), 1U) << "a whole ring dropped leaves its start where it was";
    (void)Read();
    EXPECT_EQ(Write({3, 4}), VYX_OK);
    EXPECT_EQ(Read(), (std::vector<Bytes>{{3, 4}}));
}

TEST_F(CycleBuffer, AgreesWithTheModel) {
    std::mt19937 random(3);
    constexpr uint32_t kCapacity = 61;
    Make(kCapacity);
    Bytes storage(kCapacity); // the model: every byte set on its own
    uint32_t nRead = 0;
    uint32_t nWrite = 0;
    uint32_t nCount = 0;
    uint8_t byNext = 0;
    for (int i = 0; i < 300000; ++i) {
        if (random() % 3 != 0) {
            Bytes bytes(1 + random() % 40);
            for (uint8_t &by : bytes)
                by = ++byNext;
            const bool bFits = bytes.size() + nCount <= kCapacity;
            ASSERT_EQ(Write(bytes), bFits ? VYX_OK : VYX_ERROR);
            for (size_t k = 0; bFits && k < bytes.size(); ++k, ++nCount, nWrite = (nWrite + 1) % kCapacity)
                storage[nWrite] = bytes[k];
        } else {
            std::vector<Bytes> expected;
            const auto at = [&](uint32_t nFrom, uint32_t nTo) {
                return Bytes(&storage[0] + nFrom, &storage[0] + nTo);
            };
            if (nCount != 0 && nRead + nCount < kCapacity)
                expected = {at(nRead, nRead + nCount)};
            else if (nCount != 0)
                expected = {at(nRead, std::min(nRead + kCapacity - nCount, kCapacity)), at(0, nWrite)};
            m_taken.bWriteBack = nCount + 2 <= kCapacity && random() % 2 == 0;
            ASSERT_EQ(Read(nCount == 0 ? VYX_ERROR : VYX_OK), expected);
            if (nCount != 0)
                nRead = nWrite;
            nCount = 0;
            for (size_t k = 0; m_taken.bWriteBack && k < expected.size(); ++k, ++nCount) {
                storage[nWrite] = 77;
                nWrite = (nWrite + 1) % kCapacity;
            }
        }
        ASSERT_EQ(Count(), nCount);
    }
}

TEST_F(CycleBuffer, WritersAndAReaderMayWorkAtOnce) {
    constexpr uint8_t kWriters = 4;
    constexpr uint16_t kEach = 6000;
    constexpr int kPiece = 5; // the writer, its count in two bytes, and both once more as a check
    Make(70);                 // twice what is ever stored, so that nothing is dropped
    std::atomic<int> iPermits{70 / 2 / kPiece};
    std::vector<std::thread> writers;
    for (uint8_t byWriter = 0; byWriter < kWriters; ++byWriter)
        writers.emplace_back([this, byWriter, &iPermits] {
            for (uint16_t n = 0; n < kEach; ++n) {
                while (iPermits.fetch_sub(1) <= 0) {
                    ++iPermits;
                    std::this_thread::yield();
                }
                const auto byLow = static_cast<uint8_t>(n);
                const auto byHigh = static_cast<uint8_t>(n >> 8);
                const auto byCheck = static_cast<uint8_t>(byLow ^ byHigh);
                ASSERT_EQ(Write({byWriter, byLow, byHigh, byCheck, byWriter}), VYX_OK);
            }
        });
    std::atomic<bool> bDone{false};
    std::thread onlooker([this, &bDone] {
        for (; !bDone; std::this_thread::yield())
            ASSERT_LE(Count(), 70U / 2) << "never more than was there at one moment";
    });
    Bytes all;
    while (all.size() < size_t{kWriters} * kEach * kPiece) {
        const size_t nBefore = all.size();
        m_taken.pieces.clear();
        if (VYX_CycleBufferRead(m_taken.hBuffer) != VYX_OK)
            std::this_thread::yield();
        for (const Bytes &piece : m_taken.pieces)
            all.insert(all.end(), piece.begin(), piece.end());
        ASSERT_EQ((all.size() - nBefore) % kPiece, 0U) << "a piece comes whole";
        iPermits += static_cast<int>((all.size() - nBefore) / kPiece);
    }
    for (std::thread &writer : writers)
        writer.join();
    bDone = true;
    onlooker.join();
    uint16_t nDue[kWriters] = {};
    for (size_t i = 0; i < all.size(); i += kPiece) {
        ASSERT_LT(all[i], kWriters);
        ASSERT_EQ(all[i + 1] + all[i + 2] * 256, nDue[all[i]]++);
        ASSERT_EQ(all[i + 3], all[i + 1] ^ all[i + 2]);
        ASSERT_EQ(all[i + 4], all[i]);
    }
    EXPECT_EQ(Count(), 0U);
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
    for (int32_t iAlignment : {0, 3, 48, -1, INT32_MIN})
        EXPECT_EQ(VYX_AlignedMalloc(100, iAlignment), nullptr) << iAlignment;
    EXPECT_EQ(VYX_AlignedMalloc(INT32_MAX, 64), nullptr) << "the sum does not fit";
    EXPECT_EQ(VYX_AlignedMalloc(-1, 64), nullptr);
    EXPECT_EQ(VYX_AlignedFree(VYX_AlignedMalloc(0, 64)), VYX_OK);
}

} // namespace
