// Byte strings and numbers as text.
#include <climits>
#include <cstdlib>
#include <vyx/string.h>

#include "transcript.h"

namespace transcript {

namespace {

// Mostly letters of few kinds, so that searches find something; also bytes above 127.
std::string Word(uint32_t nLongest) {
    std::string word;
    for (uint32_t n = Random(nLongest + 1); n > 0; --n)
        word += Random(12) == 0 ? static_cast<char>(Random(255) + 1) : "aAbB"[Random(4)];
    return word;
}

long Place(const char *szText, const char *pFound) {
    return pFound == nullptr ? -1 : pFound - szText;
}

int Sign(int32_t iValue) {
    return (iValue > 0) - (iValue < 0);
}

std::string Digits(uint32_t nBase) {
    static const char szAll[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string text(Random(3), ' ');
    text += "\0-+"[Random(3)] == '\0' ? "" : Random(2) == 0 ? "-" : "+";
    if (Random(4) == 0)
        text += Random(2) == 0 ? "0x" : "0";
    for (uint32_t n = Random(24); n > 0; --n)
        text += szAll[Random(Random(5) == 0 ? 62 : nBase != 0 ? nBase : 10)];
    return text;
}

void Conversions(const std::string &text, uint32_t nBase) {
    char *pEnd32 = nullptr;
    char *pEnd64 = nullptr;
    const int32_t iShort = VYX_StrToi32(text.c_str(), &pEnd32, nBase);
    const int64_t iLong = VYX_StrToi64(text.c_str(), &pEnd64, nBase);
    Line("StrToi %s base %u: %d end %ld; %lld end %ld", Quoted(text.c_str()).c_str(), nBase, iShort,
         Place(text.c_str(), pEnd32), static_cast<long long>(iLong), Place(text.c_str(), pEnd64));
}

} // namespace

void Strings() {
    Section("strings");
    for (int i = 0; i < 80; ++i) {
        const std::string a = Word(12);
        const std::string b = Word(Random(2) == 0 ? 2 : 12);
        const auto nCount = static_cast<int32_t>(Random(14));
        const char *szA = a.c_str();
        const char *szB = b.c_str();
        const char c = "aAbB"[Random(4)];
        Line("compare %s %s %d: %d %d %d %d", Quoted(szA).c_str(), Quoted(szB).c_str(), nCount,
             Sign(VYX_Strcmp(szA, szB)), Sign(VYX_Strncmp(szA, szB, static_cast<uint32_t>(nCount))),
             VYX_Strcasecmp(szA, szB), VYX_Strncasecmp(szA, szB, nCount));
        Line("search %c %d: %ld %ld %ld %ld %ld", c, nCount, Place(szA, VYX_Strchr(szA, c)),
             Place(szA, VYX_Strnchr(szA, c, nCount < static_cast<int32_t>(a.size()) ? nCount : 0)),
             Place(szA, VYX_Strstr(szA, szB)), Place(szA, VYX_Strnstr(szA, szB, nCount)),
             Place(szA, VYX_Strcasestr(szA, szB)));
        char szCopy[32] = "................";
        char *szMade = VYX_Strndup(szA, nCount);
        Line("copies %s %s", Quoted(VYX_Strncpy(szCopy, szA, nCount)).c_str(), Quoted(szMade).c_str());
        std::free(szMade);
    }
}

void Numbers() {
    char szOut[72];
    const int64_t edges[] = {0, 1, -1, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, UINT32_MAX};
    for (const uint32_t nRadix : {0u, 1u, 2u, 3u, 10u, 16u, 35u, 36u, 37u}) {
        Section("numbers in radix " + std::to_string(nRadix));
        for (const int64_t iValue : edges)
            Line("Ltoa %lld radix %u: %s", static_cast<long long>(iValue), nRadix,
                 Quoted(VYX_Ltoa(szOut, iValue, nRadix)).c_str());
        const auto iValue = static_cast<int32_t>(Random64());
        Line("Itoa %d radix %u: %s", iValue, nRadix, Quoted(VYX_Itoa(szOut, iValue, nRadix)).c_str());
    }
    for (const uint32_t nBase : {0u, 1u, 2u, 8u, 10u, 16u, 35u, 36u, 37u}) {
        Section("texts of base " + std::to_string(nBase));
        for (int i = 0; i < 20; ++i)
            Conversions(Digits(nBase), nBase);
    }
    Section("limits");
    for (const char *szEdge :
         {"2147483647", "2147483648", "-2147483648", "-2147483649", "9223372036854775807",
          "9223372036854775808", "-9223372036854775808", "", "-", "0x", "08", " \t\n12"})
        for (const uint32_t nBase : {0u, 10u, 16u})
            Conversions(szEdge, nBase);
}

} // namespace transcript
