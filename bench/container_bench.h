// The work that every hash table gets. A table is a class, made for KeyCount() keys, with
//   void Enter(Key key, void *pData)
//   void *Find(Key key)               null if it is absent
// where Key is const char * or uint32_t. Tables borrow their keys, where the library allows that.
#ifndef VYX_BENCH_CONTAINER_BENCH_H
#define VYX_BENCH_CONTAINER_BENCH_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "support/bench.h"

constexpr uint32_t kKeys = 100000;      // in most cases
constexpr uint32_t kMostKeys = 1000000; // in the cases that have a size

// The keys of the case that runs.
inline uint32_t &KeyCount() {
    static uint32_t s_nKeys = kKeys;
    return s_nKeys;
}

// What hashes and compares texts in the tables that leave it to their user.
struct TextHash {
    size_t operator()(const char *szKey) const { return std::hash<std::string_view>()(szKey); }
};
struct TextEqual {
    bool operator()(const char *szA, const char *szB) const { return std::strcmp(szA, szB) == 0; }
};

// A table of libraries whose maps are made as those of the C++ library.
template <class Key, class Map>
class MapTable {
  public:
    MapTable() { m_map.reserve(KeyCount()); }
    void Enter(Key key, void *pData) { m_map.emplace(key, pData); }
    void *Find(Key key) {
        const auto at = m_map.find(key);
        return at == m_map.end() ? nullptr : at->second;
    }

  private:
    Map m_map;
};

// Keys of the tables, in the order in which they are entered; they are looked for in another one. A key is never the same
// twice. The second half of the list is for keys that are absent.
template <class Key>
const std::vector<Key> &Keys();

inline uint32_t Scrambled(uint32_t n) {
    return n * 2654435761U; // odd, so that no two come out alike
}

template <>
inline const std::vector<uint32_t> &Keys<uint32_t>() {
    static const std::vector<uint32_t> keys = [] {
        std::vector<uint32_t> made;
        for (uint32_t n = 0; n < 2 * kMostKeys; ++n)
            made.push_back(Scrambled(n));
        return made;
    }();
    return keys;
}

// Eight digits and a tail, as of identifiers.
template <>
inline const std::vector<const char *> &Keys<const char *>() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> made;
        char szText[32];
        for (uint32_t n = 0; n < 2 * kMostKeys; ++n) {
            (void)std::snprintf(szText, sizeof szText, "%08x/item", Scrambled(n));
            made.emplace_back(szText);
        }
        return made;
    }();
    static const std::vector<const char *> keys = [] {
        std::vector<const char *> made;
        for (const std::string &text : texts)
            made.push_back(text.c_str());
        return made;
    }();
    return keys;
}

inline void *DataOf(uint32_t n) {
    return reinterpret_cast<void *>(uintptr_t{n} + 1);
}

template <class Table, class Key>
void Fill(Table &table) {
    for (uint32_t n = 0; n < KeyCount(); ++n)
        table.Enter(Keys<Key>()[n], DataOf(n));
}

// One iteration: a table is made, filled and destroyed.
template <class Table, class Key>
void HashEnter(benchmark::State &state) {
    (void)Keys<Key>();
    for (auto _ : state) {
        Table table;
        Fill<Table, Key>(table);
        if (table.Find(Keys<Key>()[kKeys - 1]) != DataOf(kKeys - 1))
            state.SkipWithError("a key was lost");
    }
}

// One iteration: one key is looked for, of all in an order other than that of entering.
template <class Table, class Key, bool Present>
void HashFind(benchmark::State &state) {
    const uint32_t nKeys = KeyCount();
    Table table;
    Fill<Table, Key>(table);
    uint32_t n = 0;
    uint32_t nWrong = 0;
    for (auto _ : state) {
        n = (n + 61813) % nKeys; // a prime
        void *pData = table.Find(Keys<Key>()[Present ? n : kMostKeys + n]);
        nWrong += pData == (Present ? DataOf(n) : nullptr) ? 0U : 1U;
    }
    if (nWrong != 0)
        state.SkipWithError("wrong data");
}

// The same in a table of as many keys as the case's size says.
template <class Table, class Key>
void HashFindSized(benchmark::State &state) {
    KeyCount() = static_cast<uint32_t>(state.range(0));
    HashFind<Table, Key, true>(state);
    KeyCount() = kKeys;
}

template <class Table, class Key>
int RegisterSizes(const char *szSide) {
    const std::string kind = std::is_same_v<Key, uint32_t> ? "int" : "text";
    bench::Compare(
        ("hash_find_sized_" + kind).c_str(), {{szSide, HashFindSized<Table, Key>}}, [](auto *pBenchmark) {
            pBenchmark->Iterations(100000)->ArgName("keys")->RangeMultiplier(10)->Range(100, kMostKeys);
        });
    return 0;
}

// The side of one table in all cases of its kind of key. Result: of no use, so that a constant's initialiser can
// call it.
//   fBound  how many times its time a look-up in the library's tables may take; 0 = no bound
template <class Table, class Key>
int RegisterTable(const char *szSide, double fBound = 0) {
    const std::string kind = std::is_same_v<Key, uint32_t> ? "int" : "text";
    bench::Compare(("hash_enter_" + kind).c_str(), {{szSide, HashEnter<Table, Key>}},
                   [](auto *pBenchmark) { pBenchmark->Unit(benchmark::kMillisecond); });
    bench::Compare(("hash_find_" + kind).c_str(), {{szSide, HashFind<Table, Key, true>, fBound}});
    bench::Compare(("hash_miss_" + kind).c_str(), {{szSide, HashFind<Table, Key, false>, fBound}});
    return 0;
}

#endif
