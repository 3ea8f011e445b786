// Both hash tables: sizes, random programs against the rules written once more, and keys that
// crowd in one home.
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/container.h>

#include "container/hash_model.h"

namespace {

using support::HashModel;

void *Data(uintptr_t n) {
    return reinterpret_cast<void *>(n);
}

char *ItemKey(const char *szKey) {
    return const_cast<char *>(szKey);
}

uint32_t ItemKey(uint32_t nKey) {
    return nKey;
}

template <class KeyType, class Item, class Header, auto fnCreate, auto fnEnter, auto fnFind, auto fnRemove,
          auto fnDestroy>
class Table {
  public:
    using Key = KeyType;

    explicit Table(uint32_t nCapacity) { EXPECT_EQ(fnCreate(nCapacity, &m_pTable), VYX_OK); }
    ~Table() { EXPECT_EQ(fnDestroy(m_pTable), VYX_OK); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    bool Enter(Key key, uintptr_t nData) {
        Item item = {ItemKey(key), Data(nData)};
        return fnEnter(&item, m_pTable) == VYX_OK;
    }
    // The data; 0 if the key is absent.
    uintptr_t Find(Key key) {
        void *pData = Data(99);
        const bool bFound = fnFind(key, &pData, m_pTable) == VYX_OK;
        EXPECT_EQ(bFound, pData != nullptr);
        return reinterpret_cast<uintptr_t>(pData);
    }
    bool Remove(Key key) { return fnRemove(key, m_pTable) == VYX_OK; }
    uint32_t Size() const { return static_cast<Header *>(m_pTable)->size; }
    uint32_t Filled() const { return static_cast<Header *>(m_pTable)->filled; }

  private:
    void *m_pTable = nullptr;
};

using TextTable = Table<const char *, _VYX_ENTRY, struct VYX_HSEARCH_DATA, VYX_SimpleHashCreate,
                        VYX_SimpleHashEnter, VYX_SimpleHashFind, VYX_SimpleHashRemove, VYX_SimpleHashDestroy>;
using IntTable =
    Table<uint32_t, _VYX_INTITEM, struct VYX_HSEARCH_INTDATA, VYX_SimpleIntHashCreate, VYX_SimpleIntHashEnter,
          VYX_SimpleIntHashFind, VYX_SimpleIntHashRemove, VYX_SimpleIntHashDestroy>;

TEST(HashTable, SizesFollowTheLooseTest) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 1},   {1, 1},     {2, 5},     {3, 5},
                                                   {4, 5},   {9, 11},    {10, 11},   {24, 29},
                                                   {25, 29}, {100, 101}, {121, 127}, {65536, 65537}};
    for (const auto &[nCapacity, nSize] : cases)
        EXPECT_EQ(IntTable(nCapacity).Size(), nSize) << nCapacity;
    void *pTable = Data(1);
    EXPECT_EQ(VYX_SimpleHashCreate(UINT32_MAX, &pTable), VYX_ERROR) << "no size is that large";
    EXPECT_EQ(pTable, nullptr);
    EXPECT_EQ(VYX_SimpleHashCreate(1, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashDestroy(nullptr), VYX_ERROR);
}

uint32_t Random(size_t nBelow) {
    static std::mt19937 s_random(7);
    return static_cast<uint32_t>(s_random() % nBelow);
}

constexpr int kTables = 600; // for each capacity
constexpr int kOperations =
    250; // on one table; each removal that moves an item makes it seem fuller, in the end for good

// Random programs. pfnEntered gives the key of the next item, pfnAsked that of the next question.
template <class Table, class Entered, class Asked>
void AgreesWithTheModel(uint32_t nCapacity, Entered fnEntered, Asked fnAsked) {
    for (int iTable = 0; iTable < kTables; ++iTable) {
        Table table(nCapacity);
        HashModel<typename Table::Key> model(table.Size());
        const uint32_t nRemovals = Random(3); // of ten operations; none in a third of the tables
        for (int i = 0; i < kOperations; ++i) {
            const uint32_t nChoice = Random(10);
            const uintptr_t nData = 1 + Random(2);
            const auto asked = fnAsked(table.Size());
            if (nChoice < nRemovals) {
                ASSERT_EQ(table.Remove(asked), model.Remove(asked));
            } else if (nChoice < 6) {
                const auto entered = fnEntered(table.Size());
                ASSERT_EQ(table.Enter(entered, nData), model.Enter(entered, nData));
            }
            ASSERT_EQ(table.Find(asked), model.Find(asked));
            ASSERT_EQ(table.Filled(), model.Filled());
        }
    }
}

TEST(HashTable, TextTableAgreesWithTheModel) {
    std::vector<std::string>
        texts; // short and long ones, with bytes above 127, and some alike in the first eight
    for (size_t i = 0; i < 40; ++i)
        texts.push_back(std::string(i % 13, static_cast<char>(100 + i * 3)) + std::to_string(i % 20));
    for (size_t i = 0; i < 20; ++i)
        texts.push_back("customer-" + std::to_string(i));
    const auto fnAny = [&](uint32_t /*nSize*/) { return texts[Random(texts.size())].c_str(); };
    for (const uint32_t nCapacity : {1U, 5U, 23U, 61U, 101U})
        AgreesWithTheModel<TextTable>(nCapacity, fnAny, fnAny);
}

TEST(HashTable, TextsThatChangeInPlaceAreFoundAsTheyAreNow) {
    // As many as a home keeps together: further ones are found as they were when they were entered.
    char szBuffers[4][16] = {};
    const auto fnText = [](uint32_t /*nSize*/) {
        static const std::string s_texts[] = {"",           "a",          "b",    "customer-1",
                                              "customer-2", "customer-3", "other"};
        return s_texts[Random(std::size(s_texts))].c_str();
    };
    const auto fnBuffer = [&](uint32_t nSize) {
        char *szBuffer = szBuffers[Random(std::size(szBuffers))];
        return Random(2) == 0 ? szBuffer : std::strcpy(szBuffer, fnText(nSize));
    };
    for (const uint32_t nCapacity : {5U, 11U, 31U})
        AgreesWithTheModel<TextTable>(nCapacity, fnBuffer, fnText);
}

TEST(HashTable, IntegerTableAgreesWithTheModel) {
    const auto fnAny = [](uint32_t nSize) {
        const auto nSmall = Random(24);
        const uint32_t nChoice = Random(3);
        return nChoice == 0   ? nSmall
               : nChoice == 1 ? UINT32_MAX - nSmall
                              : nSmall * nSize; // the last in one home
    };
    for (const uint32_t nCapacity : {1U, 5U, 23U, 31U, 61U})
        AgreesWithTheModel<IntTable>(nCapacity, fnAny, fnAny);
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
            EXPECT_TRUE(table.Enter(keys[n].c_str(), n + 1));
        for (uint32_t n = 0; n < 2 * kKeys; ++n)
            EXPECT_EQ(table.Find(keys[n].c_str()), n < kKeys ? n + 1 : 0);
        fLeast = std::min(fLeast, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return fLeast;
}

TEST(HashTable, KeysThatShareAHomeAreNoSlower) {
    EXPECT_LT(SecondsOf("customer-", ""), 20 * SecondsOf("", "-customer"))
        << "a walk takes hundreds of times as long";
}

} // namespace
