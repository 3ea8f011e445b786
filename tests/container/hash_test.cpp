// Both hash tables: sizes, the described oddities of removal, and a comparison with a plain model of the same
// rules over random operations.
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "container/container_inter.h"

namespace {

void *Data(uintptr_t n) {
    return reinterpret_cast<void *>(n);
}

uint32_t SizeFor(uint32_t nCapacity) {
    void *pTable = nullptr;
    EXPECT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
    const uint32_t nSize = static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->size;
    EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
    return nSize;
}

TEST(HashTable, SizesFollowTheLooseTest) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 1},   {1, 1},     {2, 5},     {3, 5},
                                                   {4, 5},   {9, 11},    {10, 11},   {24, 29},
                                                   {25, 29}, {100, 101}, {121, 127}, {65536, 65537}};
    for (const auto &[nCapacity, nSize] : cases)
        EXPECT_EQ(SizeFor(nCapacity), nSize) << nCapacity;
    void *pTable = Data(1);
    EXPECT_EQ(VYX_SimpleHashCreate(UINT32_MAX, &pTable), VYX_ERROR) << "no size is that large";
    EXPECT_EQ(pTable, nullptr);
    EXPECT_EQ(VYX_SimpleHashCreate(1, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashDestroy(nullptr), VYX_ERROR);
}

TEST(HashTable, FullTableDuplicatesAndSingleSlot) {
    for (uint32_t nCapacity : {0U, 10U}) {
        void *pTable = nullptr;
        ASSERT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
        const uint32_t nSize = static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->size;
        for (uint32_t n = 0; n < nSize; ++n) {
            _VYX_INTITEM item = {UINT32_MAX - n * 7, Data(n + 1)};
            EXPECT_EQ(VYX_SimpleIntHashEnter(&item, pTable), VYX_OK);
            EXPECT_EQ(VYX_SimpleIntHashEnter(&item, pTable), VYX_OK) << "the same data again";
            item.data = Data(99);
            EXPECT_EQ(VYX_SimpleIntHashEnter(&item, pTable), VYX_ERROR) << "other data";
        }
        _VYX_INTITEM extra = {12345, Data(5)};
        EXPECT_EQ(VYX_SimpleIntHashEnter(&extra, pTable), VYX_ERROR);
        void *pData = Data(1);
        EXPECT_EQ(VYX_SimpleIntHashFind(12345, &pData, pTable), VYX_ERROR);
        EXPECT_EQ(pData, nullptr);
        EXPECT_EQ(VYX_SimpleIntHashFind(UINT32_MAX, &pData, pTable), VYX_OK);
        EXPECT_EQ(pData, Data(1));
        EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
    }
}

TEST(HashTable, RemovalKeepsTheCountWhenAnItemMoves) {
    void *pTable = nullptr;
    ASSERT_EQ(VYX_SimpleHashCreate(100, &pTable), VYX_OK);
    auto *pHeader = static_cast<struct VYX_HSEARCH_DATA *>(pTable);
    // Texts that differ behind their eighth place have the same hash, and so share one path.
    char szFirst[] = "commonly1";
    char szSecond[] = "commonly2";
    char szThird[] = "commonly3";
    _VYX_ENTRY items[] = {{szFirst, Data(1)}, {szSecond, Data(2)}, {szThird, Data(3)}};
    for (_VYX_ENTRY &item : items)
        ASSERT_EQ(VYX_SimpleHashEnter(&item, pTable), VYX_OK);
    EXPECT_EQ(VYX_SimpleHashRemove("commonly1", pTable), VYX_OK);
    EXPECT_EQ(pHeader->filled, 3U);
    void *pData = nullptr;
    EXPECT_EQ(VYX_SimpleHashFind("commonly1", &pData, pTable), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashFind("commonly3", &pData, pTable), VYX_OK);
    EXPECT_EQ(pData, Data(3));
    EXPECT_EQ(VYX_SimpleHashRemove("commonly2", pTable), VYX_OK)
        << "the last of the path is taken out plainly";
    EXPECT_EQ(pHeader->filled, 2U);
    EXPECT_EQ(VYX_SimpleHashRemove("commonly2", pTable), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashDestroy(pTable), VYX_OK);
}

// The rules once more, written for clarity: every step over plain vectors, with text keys hashed over their
// whole length. An integer table is the same with other tests for "occupied" and "on the path".
class Model {
  public:
    Model(uint32_t nSize, bool bText) : m_nSize(nSize), m_bText(bText), m_slots(nSize + 1) {}

    struct Slot {
        bool bUsed = false;
        uint32_t nHome = 0;
        std::string key;
        uintptr_t nData = 0;
    };

    bool Enter(const std::string &key, uintptr_t nData) {
        uint32_t nAt = 0;
        if (Locate(key, &nAt))
            return m_slots[nAt].nData == nData;
        if (m_nFilled == m_nSize)
            return false;
        m_slots[nAt] = {true, HomeOf(key), key, nData};
        ++m_nFilled;
        return true;
    }
    bool Find(const std::string &key, uintptr_t *pData) {
        uint32_t nAt = 0;
        const bool bFound = Locate(key, &nAt);
        *pData = bFound ? m_slots[nAt].nData : 0;
        return bFound;
    }
    bool Remove(const std::string &key) {
        const uint32_t nHome = HomeOf(key);
        uint32_t nLast = 0;
        for (const uint32_t nIndex : PathOf(nHome)) {
            if (!m_slots[nIndex].bUsed)
                break;
            if (!m_bText || m_slots[nIndex].nHome == nHome)
                nLast = nIndex;
        }
        uint32_t nAt = 0;
        if (nLast == 0 || !Locate(key, &nAt))
            return false;
        const Slot moved = m_slots[nLast];
        m_slots[nAt] = {};
        if (nAt != nLast) {
            if (!Enter(moved.key, moved.nData))
                return false;
            m_slots[nLast] = {};
        }
        --m_nFilled;
        return true;
    }
    uint32_t Filled() const { return m_nFilled; }

  private:
    uint32_t HomeOf(const std::string &key) const {
        auto nHash = static_cast<uint32_t>(key.size());
        for (size_t i = key.size(); m_bText && i-- > 0;)
            nHash = nHash * 16 + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(key[i])));
        if (!m_bText)
            std::memcpy(&nHash, key.data(), sizeof nHash);
        return nHash % m_nSize == 0 ? 1 : nHash % m_nSize;
    }
    // Every slot that a home's probes visit, the home first, once around.
    std::vector<uint32_t> PathOf(uint32_t nHome) const {
        std::vector<uint32_t> path = {nHome};
        const int64_t iStep = m_nSize == 1 ? 1 : 1 + nHome % (m_nSize - 2);
        for (int64_t iNext = nHome;;) {
            iNext -= iStep;
            if (iNext <= 0)
                iNext += m_nSize;
            if (iNext == nHome)
                return path;
            path.push_back(static_cast<uint32_t>(iNext));
        }
    }
    bool Locate(const std::string &key, uint32_t *pAt) const {
        for (const uint32_t nIndex : PathOf(HomeOf(key))) {
            *pAt = nIndex;
            if (m_slots[nIndex].bUsed && m_slots[nIndex].key == key)
                return true;
            if (!m_slots[nIndex].bUsed)
                return false;
        }
        *pAt = HomeOf(key);
        return false;
    }

    uint32_t m_nSize;
    uint32_t m_nFilled = 0;
    bool m_bText;
    std::vector<Slot> m_slots;
};

constexpr int kOperations = 400000; // for each size and kind
// Operations on one table. Each removal that moves an item makes it seem fuller, in the end for good.
constexpr int kLifetime = 250;

TEST(HashTable, TextTableAgreesWithTheModel) {
    std::mt19937 random(7);
    bool bRemoved = false;
    int nRemoved = 0;
    std::deque<std::string> texts; // short and long ones, with bytes above 127; a deque keeps them in place
    for (int i = 0; i < 40; ++i)
        texts.push_back(std::string(static_cast<size_t>(i % 13), static_cast<char>(100 + i * 3)) +
                        std::to_string(i % 20));
    for (uint32_t nCapacity : {1U, 5U, 23U, 31U}) {
        void *pTable = nullptr;
        ASSERT_EQ(VYX_SimpleHashCreate(nCapacity, &pTable), VYX_OK);
        auto *pHeader = static_cast<struct VYX_HSEARCH_DATA *>(pTable);
        Model model(pHeader->size, true);
        for (int i = 0; i < kOperations; ++i) {
            if (i % kLifetime == 0) {
                VYX_SimpleHashDestroy(pTable);
                ASSERT_EQ(VYX_SimpleHashCreate(nCapacity, &pTable), VYX_OK);
                pHeader = static_cast<struct VYX_HSEARCH_DATA *>(pTable);
                model = Model(pHeader->size, true);
            }
            std::string &key = texts[random() % texts.size()];
            const uintptr_t nData = 1 + random() % 2;
            uintptr_t nExpected = 0;
            void *pData = nullptr;
            _VYX_ENTRY item = {key.data(), Data(nData)};
            switch (random() % 4) {
            case 0:
            case 1:
                ASSERT_EQ(VYX_SimpleHashEnter(&item, pTable) == VYX_OK, model.Enter(key, nData));
                break;
            case 2:
                bRemoved = model.Remove(key);
                nRemoved += bRemoved ? 1 : 0;
                ASSERT_EQ(VYX_SimpleHashRemove(key.c_str(), pTable) == VYX_OK, bRemoved);
                break;
            default:
                ASSERT_EQ(VYX_SimpleHashFind(key.c_str(), &pData, pTable) == VYX_OK,
                          model.Find(key, &nExpected));
                ASSERT_EQ(pData, Data(nExpected));
            }
            ASSERT_EQ(pHeader->filled, model.Filled());
        }
        VYX_SimpleHashDestroy(pTable);
    }
    EXPECT_GT(nRemoved, kOperations / 10) << "most tables were alive";
}

TEST(HashTable, IntegerTableAgreesWithTheModel) {
    std::mt19937 random(11);
    bool bRemoved = false;
    int nRemoved = 0;
    for (uint32_t nCapacity : {1U, 5U, 23U, 31U}) {
        void *pTable = nullptr;
        ASSERT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
        auto *pHeader = static_cast<struct VYX_HSEARCH_INTDATA *>(pTable);
        Model model(pHeader->size, false);
        for (int i = 0; i < kOperations; ++i) {
            if (i % kLifetime == 0) {
                VYX_SimpleIntHashDestroy(pTable);
                ASSERT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
                pHeader = static_cast<struct VYX_HSEARCH_INTDATA *>(pTable);
                model = Model(pHeader->size, false);
            }
            const auto nSmall = static_cast<uint32_t>(random() % 24);
            const uint32_t nKey = random() % 2 == 0 ? nSmall : UINT32_MAX - nSmall;
            const std::string key(reinterpret_cast<const char *>(&nKey), sizeof nKey);
            const uintptr_t nData = 1 + random() % 2;
            uintptr_t nExpected = 0;
            void *pData = nullptr;
            _VYX_INTITEM item = {nKey, Data(nData)};
            switch (random() % 4) {
            case 0:
            case 1:
                ASSERT_EQ(VYX_SimpleIntHashEnter(&item, pTable) == VYX_OK, model.Enter(key, nData));
                break;
            case 2:
                bRemoved = model.Remove(key);
                nRemoved += bRemoved ? 1 : 0;
                ASSERT_EQ(VYX_SimpleIntHashRemove(nKey, pTable) == VYX_OK, bRemoved);
                break;
            default:
                ASSERT_EQ(VYX_SimpleIntHashFind(nKey, &pData, pTable) == VYX_OK, model.Find(key, &nExpected));
                ASSERT_EQ(pData, Data(nExpected));
            }
            ASSERT_EQ(pHeader->filled, model.Filled());
        }
        VYX_SimpleIntHashDestroy(pTable);
    }
    EXPECT_GT(nRemoved, kOperations / 10) << "most tables were alive";
}

} // namespace
