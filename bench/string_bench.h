// The texts and numbers that every side of a case gets.
#ifndef VYX_BENCH_STRING_BENCH_H
#define VYX_BENCH_STRING_BENCH_H

#include <cinttypes>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/bench.h"

struct Texts {
    std::string a;       // small letters, then "end!"
    std::string almostA; // another last letter
    std::string upperA;  // capital letters
};

inline Texts TextsOf(size_t nLength) {
    Texts texts;
    for (size_t i = 0; i + 4 < nLength; ++i)
        texts.a += static_cast<char>('a' + (i * 7 + i / 26) % 26);
    texts.a += "end!";
    texts.almostA = texts.a;
    texts.almostA.back() = '?';
    for (const char c : texts.a)
        texts.upperA += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return texts;
}

// Level with another side: a call into the library costs the jump to the C library's function, which is all that
// is measurable of the shortest.
constexpr double kLevel = 1.1;

// Beside a function that the compiler builds into its caller.
constexpr double kBeside = 1.2;

// Registers one side of a case for texts of a length.
template <class Call>
void RegisterCall(const std::string &kase, const char *szSide, size_t nLength, Call call,
                  double fBound = kLevel) {
    const std::string name = kase + "_" + std::to_string(nLength) + "/" + szSide;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        Texts texts = TextsOf(nLength);
        for (auto _ : state) {
            benchmark::DoNotOptimize(texts);
            call(texts);
        }
        if (fBound > 0)
            state.counters["bound"] = fBound;
    });
}

template <class Ours, class Raw>
void RegisterCallPair(const char *szCase, Ours ours, Raw raw, double fBound = kLevel) {
    for (const size_t nLength : {size_t{8}, size_t{64}, size_t{1000}}) {
        RegisterCall(szCase, "vyx", nLength, ours);
        RegisterCall(szCase, "raw", nLength, raw, fBound);
    }
}

struct Number {
    int64_t iValue;
    int64_t iPositive;
    int32_t iValue32;
    char szDecimal[24];
    char szDecimal32[24];
    char szHex[24];
    size_t nDecimal32; // length of szDecimal32
};

// As many of each length in bits, of either sign.
inline std::vector<Number> MakeNumbers() {
    std::mt19937_64 random(1);
    std::vector<Number> numbers(1024);
    for (size_t i = 0; i < numbers.size(); ++i) {
        Number &n = numbers[i];
        n.iPositive = static_cast<int64_t>(random() >> (1 + i % 63));
        n.iValue = random() % 4 == 0 ? -n.iPositive : n.iPositive;
        n.iValue32 = static_cast<int32_t>(static_cast<uint32_t>(random()) >> (1 + i % 31));
        n.iValue32 = random() % 4 == 0 ? -n.iValue32 : n.iValue32;
        (void)std::snprintf(n.szDecimal, sizeof n.szDecimal, "%" PRId64, n.iValue);
        n.nDecimal32 =
            static_cast<size_t>(std::snprintf(n.szDecimal32, sizeof n.szDecimal32, "%" PRId32, n.iValue32));
        (void)std::snprintf(n.szHex, sizeof n.szHex, "%" PRIx64, n.iPositive);
    }
    return numbers;
}

template <class Call>
void RegisterNumber(const char *szCase, const char *szSide, Call call, double fBound = kLevel) {
    const std::string name = std::string(szCase) + "/" + szSide;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        const std::vector<Number> numbers = MakeNumbers();
        size_t i = 0;
        for (auto _ : state)
            call(numbers[++i % 1024]);
        if (fBound > 0)
            state.counters["bound"] = fBound;
    });
}

#endif
