// Hash tables of 100,000 keys beside std::unordered_map and, where they are found at build time, the peers' tables
// (in files of their own); the cycle buffer beside memcpy.
#include <algorithm>
#include <unordered_map>

#include <vyx/vyx.h>

#include "container_bench.h"

namespace {

// With room for nRoom times as many keys. The looser a table, the shorter its probes.
template <uint32_t nRoom>
class TextTable {
  public:
    TextTable() { (void)VYX_SimpleHashCreate(kKeys * nRoom, &m_pTable); }
    ~TextTable() { (void)VYX_SimpleHashDestroy(m_pTable); }
    TextTable(const TextTable &) = delete;
    TextTable &operator=(const TextTable &) = delete;

    void Enter(const char *szKey, void *pData) {
        _VYX_ENTRY item = {const_cast<char *>(szKey), pData};
        (void)VYX_SimpleHashEnter(&item, m_pTable);
    }
    void *Find(const char *szKey) {
        void *pData = nullptr;
        (void)VYX_SimpleHashFind(szKey, &pData, m_pTable);
        return pData;
    }

  private:
    void *m_pTable = nullptr;
};

template <uint32_t nRoom>
class IntTable {
  public:
    IntTable() { (void)VYX_SimpleIntHashCreate(kKeys * nRoom, &m_pTable); }
    ~IntTable() { (void)VYX_SimpleIntHashDestroy(m_pTable); }
    IntTable(const IntTable &) = delete;
    IntTable &operator=(const IntTable &) = delete;

    void Enter(uint32_t nKey, void *pData) {
        _VYX_INTITEM item = {nKey, pData};
        (void)VYX_SimpleIntHashEnter(&item, m_pTable);
    }
    void *Find(uint32_t nKey) {
        void *pData = nullptr;
        (void)VYX_SimpleIntHashFind(nKey, &pData, m_pTable);
        return pData;
    }

  private:
    void *m_pTable = nullptr;
};

using StdText = MapTable<const char *, std::unordered_map<const char *, void *, TextHash, TextEqual>>;
using StdInt = MapTable<uint32_t, std::unordered_map<uint32_t, void *>>;

constexpr uint32_t kPiece = 4096;
constexpr uint32_t kPieces = 16; // that the ring holds

// What a piece is copied out to, where the case says so.
struct Outcome {
    uint8_t bytes[kPiece];
    uint64_t nTaken = 0;
};

int32_t CopyOut(uint8_t *pData, uint32_t nLen, void *pUser) {
    auto *pOutcome = static_cast<Outcome *>(pUser);
    std::memcpy(pOutcome->bytes, pData, std::min(nLen, kPiece));
    benchmark::DoNotOptimize(pOutcome->bytes);
    pOutcome->nTaken += nLen;
    return 0;
}

int32_t LookOnly(uint8_t *pData, uint32_t nLen, void *pUser) {
    benchmark::DoNotOptimize(pData);
    static_cast<Outcome *>(pUser)->nTaken += nLen;
    return 0;
}

// One piece in, and out through the callback.
template <VYX_CYCLEBUFFER_PROC fnCallback>
void CycleVyx(benchmark::State &state) {
    static uint8_t s_bytes[kPiece];
    Outcome outcome;
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    (void)VYX_CycleBufferInit(&hBuffer, kPiece * kPieces, fnCallback, &outcome);
    for (auto _ : state) {
        (void)VYX_CycleBufferWrite(hBuffer, s_bytes, kPiece);
        (void)VYX_CycleBufferRead(hBuffer);
    }
    (void)VYX_CycleBufferDestroy(hBuffer);
    if (outcome.nTaken != uint64_t{kPiece} * static_cast<uint64_t>(state.iterations()))
        state.SkipWithError("bytes were lost");
}

// The same copies into storage of the same size, without a ring around them; under a mutex, if bLocked.
template <VYX_CYCLEBUFFER_PROC fnCallback, bool bLocked = false>
void CycleRaw(benchmark::State &state) {
    static pthread_mutex_t s_hLock = PTHREAD_MUTEX_INITIALIZER;
    static uint8_t s_bytes[kPiece];
    static uint8_t s_storage[kPiece * kPieces];
    Outcome outcome;
    uint32_t nAt = 0;
    for (auto _ : state) {
        if (bLocked)
            (void)pthread_mutex_lock(&s_hLock);
        std::memcpy(s_storage + nAt, s_bytes, kPiece);
        benchmark::ClobberMemory();
        if (bLocked)
            (void)pthread_mutex_unlock(&s_hLock);
        (void)fnCallback(s_storage + nAt, kPiece, &outcome);
        nAt = (nAt + kPiece) % sizeof s_storage;
    }
}

constexpr uint32_t kAlikeKeys = 2000;

// Keys that differ behind their eighth byte only: the fixed hash does not see that far and gives all of them one path.
template <class Table>
void HashFindAlike(benchmark::State &state) {
    std::vector<std::string> keys;
    for (uint32_t n = 0; n < kAlikeKeys; ++n)
        keys.push_back("customer-" + std::to_string(n));
    Table table;
    for (uint32_t n = 0; n < kAlikeKeys; ++n)
        table.Enter(keys[n].c_str(), DataOf(n));
    uint32_t n = 0;
    for (auto _ : state) {
        n = (n + 619) % kAlikeKeys;
        if (table.Find(keys[n].c_str()) != DataOf(n))
            state.SkipWithError("wrong data");
    }
}

} // namespace

int main(int argc, char **argv) {
    RegisterTable<TextTable<2>, const char *>("vyx");
    RegisterTable<TextTable<1>, const char *>("vyx_full");
    RegisterTable<StdText, const char *>("std");
    RegisterTable<IntTable<2>, uint32_t>("vyx");
    RegisterTable<IntTable<1>, uint32_t>("vyx_full");
    RegisterTable<StdInt, uint32_t>("std");
    bench::Compare("hash_find_text_alike",
                   {{"vyx", HashFindAlike<TextTable<2>>}, {"std", HashFindAlike<StdText>}});
    bench::Compare("cycle_4k_in", {{"vyx", CycleVyx<LookOnly>},
                                   {"raw", CycleRaw<LookOnly>, 1.3},
                                   {"raw_locked", CycleRaw<LookOnly, true>}});
    bench::Compare("cycle_4k_in_out", {{"vyx", CycleVyx<CopyOut>}, {"raw", CycleRaw<CopyOut>, 1.3}});
    return bench::Run(argc, argv);
}
