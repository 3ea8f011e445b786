// Byte strings and numbers beside the C library's functions that mean the same for these arguments, and beside peers.
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include <vyx/vyx.h>

#include "string_bench.h"

namespace {

char s_szOut[1024];

// Strings are compared, searched and copied in three lengths; the function is called through the benchmark's own
// pointer, so that the compiler cannot replace the C library's with code of its own.
template <class Function>
void Register(const char *szCase, std::initializer_list<std::pair<const char *, Function>> sides,
              void (*pfnCall)(Function, const Texts &), double fBound = kLevel) {
    for (const size_t nLength : {size_t{8}, size_t{64}, size_t{1000}})
        for (const auto &[szSide, pfnFunction] : sides)
            RegisterCall(
                szCase, szSide, nLength,
                [pfnCall, pfn = pfnFunction](const Texts &texts) { pfnCall(pfn, texts); }, fBound);
}

template <class Result>
void Keep(Result result) {
    benchmark::DoNotOptimize(result);
}

void RegisterCopies() {
    Register<char *(*)(char *, const char *)>(
        "strcpy", {{"vyx", VYX_Strcpy}, {"raw", std::strcpy}},
        [](auto pfn, const Texts &texts) { Keep(pfn(s_szOut, texts.a.c_str())); });
    RegisterCallPair(
        "strncpy", [](const Texts &t) { Keep(VYX_Strncpy(s_szOut, t.a.c_str(), 1000)); },
        [](const Texts &t) { Keep(std::strncpy(s_szOut, t.a.c_str(), 1000)); });
    Register<char *(*)(const char *)>("strdup", {{"vyx", VYX_Strdup}, {"raw", strdup}},
                                      [](auto pfn, const Texts &t) { std::free(pfn(t.a.c_str())); });
}

void RegisterComparisons() {
    using Compare = int (*)(const char *, const char *);
    const auto call = [](Compare pfn, const Texts &t) { Keep(pfn(t.a.c_str(), t.almostA.c_str())); };
    Register<Compare>("strcmp", {{"vyx", VYX_Strcmp}, {"raw", std::strcmp}}, call);
    // No bound: the C library folds downwards, which gives another order and no difference of folded bytes.
    Register<Compare>("strcasecmp", {{"vyx", VYX_Strcasecmp}, {"raw", strcasecmp}}, call, 0);
    Register<Compare>(
        "strcasecmp_other_case", {{"vyx", VYX_Strcasecmp}, {"raw", strcasecmp}},
        [](auto pfn, const Texts &t) { Keep(pfn(t.a.c_str(), t.upperA.c_str())); }, 0);
    RegisterCallPair(
        "strncmp", [](const Texts &t) { Keep(VYX_Strncmp(t.a.c_str(), t.almostA.c_str(), 900)); },
        [](const Texts &t) { Keep(std::strncmp(t.a.c_str(), t.almostA.c_str(), 900)); });
    RegisterCallPair(
        "strncasecmp", [](const Texts &t) { Keep(VYX_Strncasecmp(t.a.c_str(), t.almostA.c_str(), 900)); },
        [](const Texts &t) { Keep(strncasecmp(t.a.c_str(), t.almostA.c_str(), 900)); }, 0);
}

void RegisterSearches() {
    RegisterCallPair(
        "strchr", [](const Texts &t) { Keep(VYX_Strchr(t.a.c_str(), '!')); },
        [](const Texts &t) { Keep(std::strchr(t.a.c_str(), '!')); });
    RegisterCallPair(
        "strnchr",
        [](const Texts &t) { Keep(VYX_Strnchr(t.a.c_str(), '!', static_cast<int32_t>(t.a.size()))); },
        [](const Texts &t) { Keep(std::memchr(t.a.c_str(), '!', t.a.size())); });
    RegisterCallPair(
        "strstr", [](const Texts &t) { Keep(VYX_Strstr(t.a.c_str(), "end!")); },
        [](const Texts &t) { Keep(std::strstr(t.a.c_str(), "end!")); });
    RegisterCallPair(
        "strnstr", [](const Texts &t) { Keep(VYX_Strnstr(t.a.c_str(), "end!", 4)); },
        [](const Texts &t) { Keep(memmem(t.a.c_str(), std::strlen(t.a.c_str()), "end!", 4)); });
    RegisterCallPair(
        "strcasestr", [](const Texts &t) { Keep(VYX_Strcasestr(t.a.c_str(), "END!")); },
        [](const Texts &t) { Keep(strcasestr(t.a.c_str(), "END!")); }, 0);
}

// Numbers of every length, as text in the bases 10 and 16.
void RegisterReading() {
    RegisterNumber("atoi32", "vyx", [](const Number &n) { Keep(VYX_Atoi32(n.szDecimal32)); });
    RegisterNumber("atoi32", "raw", [](const Number &n) { Keep(std::atoi(n.szDecimal32)); });
    RegisterNumber("strtoi32", "vyx", [](const Number &n) {
        char *pEnd = nullptr;
        Keep(VYX_StrToi32(n.szDecimal32, &pEnd, 10));
        Keep(pEnd);
    });
    RegisterNumber("strtoi32", "raw", [](const Number &n) {
        char *pEnd = nullptr;
        Keep(std::strtol(n.szDecimal32, &pEnd, 10));
        Keep(pEnd);
    });
    RegisterNumber(
        "strtoi32", "from_chars",
        [](const Number &n) {
            int32_t iValue = 0;
            Keep(std::from_chars(n.szDecimal32, n.szDecimal32 + n.nDecimal32, iValue).ptr);
            Keep(iValue);
        },
        kBeside);
    RegisterNumber("atoi64", "vyx", [](const Number &n) { Keep(VYX_Atoi64(n.szDecimal)); });
    RegisterNumber("atoi64", "raw", [](const Number &n) { Keep(std::atoll(n.szDecimal)); });
    RegisterNumber("strtoi64_hex", "vyx", [](const Number &n) {
        char *pEnd = nullptr;
        Keep(VYX_StrToi64(n.szHex, &pEnd, 16));
        Keep(pEnd);
    });
    RegisterNumber("strtoi64_hex", "raw", [](const Number &n) {
        char *pEnd = nullptr;
        Keep(std::strtoll(n.szHex, &pEnd, 16));
        Keep(pEnd);
    });
}

// The C library has no itoa; a program without one prints with snprintf. std::to_chars is what C++ has.
void RegisterWriting() {
    RegisterNumber("itoa", "vyx", [](const Number &n) { Keep(VYX_Itoa(s_szOut, n.iValue32, 10)); });
    RegisterNumber("itoa", "raw", [](const Number &n) {
        Keep(std::snprintf(s_szOut, sizeof s_szOut, "%" PRId32, n.iValue32));
    });
    RegisterNumber(
        "itoa", "to_chars",
        [](const Number &n) {
            *std::to_chars(s_szOut, s_szOut + sizeof s_szOut, n.iValue32).ptr = '\0';
            Keep(s_szOut);
        },
        kBeside);
    RegisterNumber("ltoa", "vyx", [](const Number &n) { Keep(VYX_Ltoa(s_szOut, n.iValue, 10)); });
    RegisterNumber("ltoa", "raw", [](const Number &n) {
        Keep(std::snprintf(s_szOut, sizeof s_szOut, "%" PRId64, n.iValue));
    });
    RegisterNumber(
        "ltoa", "to_chars",
        [](const Number &n) {
            *std::to_chars(s_szOut, s_szOut + sizeof s_szOut, n.iValue).ptr = '\0';
            Keep(s_szOut);
        },
        0);
    RegisterNumber("ltoa_hex", "vyx", [](const Number &n) { Keep(VYX_Ltoa(s_szOut, n.iPositive, 16)); });
    RegisterNumber("ltoa_hex", "raw", [](const Number &n) {
        Keep(std::snprintf(s_szOut, sizeof s_szOut, "%" PRIx64, n.iPositive));
    });
}

} // namespace

int main(int argc, char **argv) {
    RegisterCopies();
    RegisterComparisons();
    RegisterSearches();
    RegisterReading();
    RegisterWriting();
    return bench::Run(argc, argv);
}
