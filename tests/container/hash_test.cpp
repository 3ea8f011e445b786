// Both hash tables: sizes, texts that change, and keys that crowd in one home. What a table answers and where it keeps it, the
// fuzz target compares with the rules.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/container.h>

namespace {

TEST(HashTable, SizesFollowTheLooseTest) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 1},   {1, 1},   {2, 5},     {3, 5},        {10, 11},
                                                   {24, 29}, {25, 29}, {121, 127}, {65536, 65537}};
    void *pTable = nullptr;
    for (const auto &[nCapacity, nSize] : cases) {
        ASSERT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
        EXPECT_EQ(static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->size, nSize) << nCapacity;
        EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
    }
    EXPECT_EQ(VYX_SimpleHashCreate(UINT32_MAX, &pTable), VYX_ERROR) << "no size is that large";
    EXPECT_EQ(pTable, nullptr);
    EXPECT_EQ(VYX_SimpleHashCreate(1, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashDestroy(nullptr), VYX_ERROR);
}

class TextTable {
  public:
    explicit TextTable(uint32_t nCapacity) { EXPECT_EQ(VYX_SimpleHashCreate(nCapacity, &m_pTable), VYX_OK); }
    ~TextTable() { EXPECT_EQ(VYX_SimpleHashDestroy(m_pTable), VYX_OK); }
    TextTable(const TextTable &) = delete;
    TextTable &operator=(const TextTable &) = delete;

    void Enter(const char *szKey) {
        _VYX_ENTRY item = {const_cast<char *>(szKey), this};
        EXPECT_EQ(VYX_SimpleHashEnter(&item, m_pTable), VYX_OK);
    }
    bool Has(const char *szKey) {
        void *pData = nullptr;
        return VYX_SimpleHashFind(szKey, &pData, m_pTable) == VYX_OK;
    }

  private:
    void *m_pTable = nullptr;
};

TEST(HashTable, TextsThatChangeInPlaceAreFoundAsTheyAreNow) {
    TextTable table(31);
    char szKey[] = "customer-1";
    table.Enter(szKey);
    szKey[9] = '2'; // the same home
    EXPECT_TRUE(table.Has("customer-2") && !table.Has("customer-1"));
    szKey[0] = 'C';
    EXPECT_FALSE(table.Has("Customer-2") || table.Has("customer-2"));
}

// Processor time of entering as many keys and of finding them and others, the least of some runs.
double SecondsOf(const std::string &before, const std::string &behind) {
    constexpr uint32_t kKeys = 40000;
    std::vector<std::string> keys;
    for (uint32_t n = 0; n < 2 * kKeys; ++n)
        keys.push_back(before + std::to_string(n) + behind);
    double fLeast = 1e9;
    for (int iRun = 0; iRun < 3; ++iRun) {
        const std::clock_t start = std::clock();
        TextTable table(kKeys);
        for (uint32_t n = 0; n < kKeys; ++n)
            table.Enter(keys[n].c_str());
        for (uint32_t n = 0; n < 2 * kKeys; ++n)
            EXPECT_EQ(table.Has(keys[n].c_str()), n < kKeys);
        fLeast = std::min(fLeast, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return fLeast;
}

TEST(HashTable, KeysThatShareAHomeAreNoSlower) {
    EXPECT_LT(SecondsOf("customer-", ""), 20 * SecondsOf("", "-customer"))
        << "a walk takes hundreds of times as long";
}

} // namespace
