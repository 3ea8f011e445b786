// Hash tables of 100,000 keys beside std::unordered_map and, where they are found at build time, the peers' tables
// (in files of their own); the cycle buffer beside memcpy.
#include <algorithm>
#include <unordered_map>

#include <vyx/vyx.h>

#include "container_bench.h"

namespace {

// With room for nRoom percent of the keys.
template <uint32_t nRoom>
class TextTable {
  public:
    TextTable() { (void)VYX_SimpleHashCreate(KeyCount() / 100 * nRoom, &m_pTable); }
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
    IntTable() { (void)VYX_SimpleIntHashCreate(KeyCount() / 100 * nRoom, &m_pTable); }
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

constexpr uint32_t kRing = 65536;    // bytes that the ring holds
constexpr uint32_t kMaxPiece = 4096; // bytes written at once

// What a piece is copied out to, where the case says so. Aligned as all that is copied here, so that no side has more lines
// to write than another.
constexpr size_t kLine = 64;
struct Outcome {
    alignas(kLine) uint8_t bytes[kMaxPiece];
    uint64_t nTaken = 0;
};

int32_t CopyOut(uint8_t *pData, uint32_t nLen, void *pUser) {
    auto *pOutcome = static_cast<Outcome *>(pUser);
    std::memcpy(pOutcome->bytes, pData, std::min(nLen, kMaxPiece));
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
template <VYX_CYCLEBUFFER_PROC fnCallback, uint32_t nPiece>
void CycleVyx(benchmark::State &state) {
    alignas(kLine) static uint8_t s_bytes[nPiece];
    Outcome outcome;
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    (void)VYX_CycleBufferInit(&hBuffer, kRing, fnCallback, &outcome);
    for (auto _ : state) {
        (void)VYX_CycleBufferWrite(hBuffer, s_bytes, nPiece);
        (void)VYX_CycleBufferRead(hBuffer);
    }
    (void)VYX_CycleBufferDestroy(hBuffer);
    if (outcome.nTaken != uint64_t{nPiece} * static_cast<uint64_t>(state.iterations()))
        state.SkipWithError("bytes were lost");
}

enum class By { Hand, Mutex };

// The same copies into storage of the same size and the same calls, without a ring around them, or as a ring that is
// made of a mutex: locked for the copy, and locked for what is handed over.
template <VYX_CYCLEBUFFER_PROC fnCallback, uint32_t nPiece, By eBy>
void CycleOwn(benchmark::State &state) {
    static pthread_mutex_t s_hLock = PTHREAD_MUTEX_INITIALIZER;
    alignas(kLine) static uint8_t s_bytes[nPiece];
    alignas(kLine) static uint8_t s_storage[kRing];
    Outcome outcome;
    VYX_CYCLEBUFFER_PROC fnOut = fnCallback;
    uint32_t nLen = nPiece;
    benchmark::DoNotOptimize(fnOut); // a ring is told both when it is made or used
    benchmark::DoNotOptimize(nLen);
    uint32_t nAt = 0;
    const auto lock = [] { return eBy == By::Mutex ? pthread_mutex_lock(&s_hLock) : 0; };
    const auto unlock = [] { return eBy == By::Mutex ? pthread_mutex_unlock(&s_hLock) : 0; };
    for (auto _ : state) {
        (void)lock();
        std::memcpy(s_storage + nAt, s_bytes, nLen);
        benchmark::ClobberMemory();
        (void)unlock();
        (void)lock();
        (void)fnOut(s_storage + nAt, nLen, &outcome);
        nAt = (nAt + nLen) % sizeof s_storage;
        (void)unlock();
    }
}

template <VYX_CYCLEBUFFER_PROC fnCallback, uint32_t nPiece>
void RegisterRing(const char *szCase) {
    bench::Compare(szCase, {{"vyx", CycleVyx<fnCallback, nPiece>},
                            {"mutex", CycleOwn<fnCallback, nPiece, By::Mutex>, 1 / 0.95},
                            {"raw", CycleOwn<fnCallback, nPiece, By::Hand>}});
}

// Keys that differ behind their eighth byte only: the fixed hash does not see that far and gives all of them one path.
template <class Table>
void HashFindAlike(benchmark::State &state) {
    std::vector<std::string> keys;
    for (uint32_t n = 0; n < kKeys; ++n)
        keys.push_back("customer-" + std::to_string(n));
    Table table;
    for (uint32_t n = 0; n < kKeys; ++n)
        table.Enter(keys[n].c_str(), DataOf(n));
    uint32_t n = 0;
    for (auto _ : state) {
        n = (n + 61813) % kKeys;
        if (table.Find(keys[n].c_str()) != DataOf(n))
            state.SkipWithError("wrong data");
    }
}

} // namespace

int main(int argc, char **argv) {
    RegisterTable<TextTable<200>, const char *>("vyx_half");
    RegisterTable<TextTable<105>, const char *>("vyx_95");
    RegisterTable<TextTable<100>, const char *>("vyx_full");
    RegisterTable<StdText, const char *>("std", 1);
    RegisterTable<IntTable<200>, uint32_t>("vyx_half");
    RegisterTable<IntTable<105>, uint32_t>("vyx_95");
    RegisterTable<IntTable<100>, uint32_t>("vyx_full");
    RegisterTable<StdInt, uint32_t>("std", 1);
    RegisterSizes<TextTable<200>, const char *>("vyx");
    RegisterSizes<StdText, const char *>("std");
    RegisterSizes<IntTable<200>, uint32_t>("vyx");
    RegisterSizes<StdInt, uint32_t>("std");
    bench::Compare("hash_find_text_alike",
                   {{"vyx", HashFindAlike<TextTable<200>>}, {"std", HashFindAlike<StdText>, 3}});
    RegisterRing<LookOnly, 64>("cycle_64_in");
    RegisterRing<CopyOut, 64>("cycle_64_in_out");
    RegisterRing<LookOnly, 4096>("cycle_4k_in");
    RegisterRing<CopyOut, 4096>("cycle_4k_in_out");
    return bench::Run(argc, argv);
}
