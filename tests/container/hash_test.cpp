// Both hash tables: sizes, full tables, the oddities of removal.
#include <utility>

#include <gtest/gtest.h>

#include "container/container_inter.h"

namespace {

void *Data(uintptr_t n) {
    return reinterpret_cast<void *>(n);
}

TEST(HashTable, SizesFollowTheLooseTest) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 1}, {1, 1}, {2, 5}, {4, 5}, {9, 11}, {65536, 65537}};
    void *pTable = nullptr;
    for (const auto &[nCapacity, nSize] : cases) {
        EXPECT_EQ(VYX_SimpleIntHashCreate(nCapacity, &pTable), VYX_OK);
        EXPECT_EQ(static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->size, nSize) << nCapacity;
        EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
    }
    pTable = Data(1);
    EXPECT_EQ(VYX_SimpleHashCreate(UINT32_MAX, &pTable), VYX_ERROR) << "no size is that large";
    EXPECT_EQ(pTable, nullptr);
    EXPECT_EQ(VYX_SimpleHashCreate(1, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleHashDestroy(nullptr), VYX_ERROR);
}

TEST(HashTable, SingleSlot) {
    void *pTable = nullptr;
    ASSERT_EQ(VYX_SimpleIntHashCreate(0, &pTable), VYX_OK);
    _VYX_INTITEM item = {UINT32_MAX, Data(1)};
    _VYX_INTITEM other = {12345, Data(5)};
    void *pData = Data(9);
    EXPECT_EQ(VYX_SimpleIntHashEnter(&item, pTable), VYX_OK);
    EXPECT_EQ(VYX_SimpleIntHashEnter(&other, pTable), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleIntHashFind(12345, &pData, pTable), VYX_ERROR);
    EXPECT_EQ(pData, nullptr);
    EXPECT_EQ(VYX_SimpleIntHashRemove(12345, pTable), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleIntHashRemove(UINT32_MAX, pTable), VYX_OK);
    EXPECT_EQ(VYX_SimpleIntHashRemove(UINT32_MAX, pTable), VYX_ERROR);
    EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
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

TEST(HashTable, RemovalFromAFullTableFailsButTakesTheItem) {
    void *pTable = nullptr;
    ASSERT_EQ(VYX_SimpleIntHashCreate(5, &pTable), VYX_OK);
    for (uint32_t n = 1; n <= 5; ++n) { // all have the home 1
        _VYX_INTITEM item = {n * 5, Data(n)};
        ASSERT_EQ(VYX_SimpleIntHashEnter(&item, pTable), VYX_OK);
    }
    EXPECT_EQ(VYX_SimpleIntHashRemove(5, pTable), VYX_ERROR)
        << "there is no room for the item that would move";
    void *pData = nullptr;
    EXPECT_EQ(VYX_SimpleIntHashFind(5, &pData, pTable), VYX_ERROR);
    EXPECT_EQ(static_cast<struct VYX_HSEARCH_INTDATA *>(pTable)->filled, 5U);
    EXPECT_EQ(VYX_SimpleIntHashDestroy(pTable), VYX_OK);
}

// The home of a key is its hash modulo the size, or 1 for 0. Bytes count with their sign, those behind the eighth
// place not at all, and of the length no more than eight.
TEST(HashTable, HomesOfTexts) {
    const std::pair<const char *, uint32_t> cases[] = {
        {"", 1}, {"a", 12}, {"ab", 56}, {"\xC4\xFF", 32}, {"commonly", 26}, {"commonly and more", 26}};
    for (const auto &[szKey, nHome] : cases) {
        void *pTable = nullptr;
        ASSERT_EQ(VYX_SimpleHashCreate(100, &pTable), VYX_OK);
        _VYX_ENTRY item = {const_cast<char *>(szKey), Data(1)};
        EXPECT_EQ(VYX_SimpleHashEnter(&item, pTable), VYX_OK);
        EXPECT_EQ(static_cast<struct VYX_HSEARCH_DATA *>(pTable)->table[nHome].used, nHome) << szKey;
        EXPECT_EQ(VYX_SimpleHashDestroy(pTable), VYX_OK);
    }
}

} // namespace
