// Comparisons of byte strings.
//
// The results are differences of bytes, of which the C library promises the sign only. Most C libraries give the
// difference all the same, which is tried out once. Where they do not, and where case is folded, equal stretches
// are passed over with its functions, which are faster than a loop; the difference is then found in a short one.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "string/string_inter.h"

namespace {

constexpr size_t kNear = 16;    // bytes looked at in a loop before the C library is asked
constexpr size_t kStretch = 64; // bytes that it is asked about at a time
constexpr size_t kTried = 300;  // more than it looks at in one step

int32_t Byte_Local(char c) {
    return static_cast<unsigned char>(c);
}

// Two bytes, the first the smaller: far apart, next to each other, the end of a text, around the sign bit.
constexpr unsigned char kPairs[][2] = {{0x01, 0xFE}, {'a', 'b'}, {0x00, 'a'}, {0x7F, 0x80}, {'A', 'a'}};

// Tells by trial whether strcmp and strncmp give the difference of the bytes: at every distance from the start,
// from all kinds of addresses and for bytes with many and with few differing bits. Some C libraries give a number that
// happens to be the difference for some pairs of bytes and not for others.
bool GivesDifferences_Local() {
    char szLow[kTried + kNear + 1];
    char szHigh[kTried + kNear + 1];
    std::memset(szLow, 'x', sizeof szLow);
    std::memset(szHigh, 'x', sizeof szHigh);
    szLow[sizeof szLow - 1] = szHigh[sizeof szHigh - 1] = '\0';
    for (size_t i = 0; i < kTried; ++i) {
        const unsigned char *pPair = kPairs[i % std::size(kPairs)];
        char *pLow = szLow + i * 3 % kNear;
        char *pHigh = szHigh + i * 7 % kNear;
        pLow[i] = static_cast<char>(pPair[0]);
        pHigh[i] = static_cast<char>(pPair[1]);
        const int32_t iDifference = pPair[1] - pPair[0];
        if (std::strcmp(pHigh, pLow) != iDifference || std::strcmp(pLow, pHigh) != -iDifference ||
            std::strncmp(pHigh, pLow, kTried) != iDifference ||
            std::strncmp(pLow, pHigh, i + 1) != -iDifference)
            return false;
        pLow[i] = pHigh[i] = 'x';
    }
    return true;
}

// False until static constructors have run, when the other way is as good.
const bool s_bGivesDifferences = GivesDifferences_Local();

// The difference at the first differing byte within nCount, or at the end. *pEnded tells whether it was found
// or the texts ended.
template <class FoldByte>
int32_t Difference_Local(const char *szA, const char *szB, size_t nCount, FoldByte fold, bool *pEnded) {
    *pEnded = true;
    for (size_t i = 0; i < nCount; ++i) {
        const int32_t iDifference = szA[i] == szB[i] ? 0 : fold(szA[i]) - fold(szB[i]);
        if (iDifference != 0 || szA[i] == '\0')
            return iDifference;
    }
    *pEnded = false;
    return 0;
}

template <class FoldByte>
int32_t Compare_Local(const char *szA, const char *szB, size_t nCount, FoldByte fold) {
    size_t nDone = std::min(nCount, kNear);
    bool bEnded = false;
    int32_t iDifference = Difference_Local(szA, szB, nDone, fold, &bEnded);
    while (!bEnded && nDone < nCount) {
        const size_t nStretch = std::min(nCount - nDone, kStretch);
        const char *pA = szA + nDone;
        const char *pB = szB + nDone;
        if (std::strncmp(pA, pB, nStretch) != 0)
            iDifference = Difference_Local(pA, pB, nStretch, fold, &bEnded);
        else
            bEnded = std::memchr(pA, '\0', nStretch) != nullptr;
        nDone += nStretch;
    }
    return iDifference;
}

} // namespace

int32_t VYX_CompareBySign_Inter(const char *szA, const char *szB, size_t nCount) {
    return Compare_Local(szA, szB, nCount, Byte_Local);
}

int32_t VYX_Strcmp(const char *szA, const char *szB) {
    return s_bGivesDifferences ? std::strcmp(szA, szB) : VYX_CompareBySign_Inter(szA, szB, SIZE_MAX);
}

int32_t VYX_Strncmp(const char *szA, const char *szB, uint32_t nCount) {
    return s_bGivesDifferences ? std::strncmp(szA, szB, nCount) : VYX_CompareBySign_Inter(szA, szB, nCount);
}

int32_t VYX_Strcasecmp(const char *szA, const char *szB) {
    return Compare_Local(szA, szB, SIZE_MAX, vyx_inter::ToUpper());
}

int32_t VYX_Strncasecmp(const char *szA, const char *szB, int32_t iCount) {
    // Deliberate: a negative count compares the first bytes, whatever follows. Pinned by
    // Comparisons.AreDifferencesOfBytes.
    return Compare_Local(szA, szB, iCount < 0 ? 1 : static_cast<size_t>(iCount), vyx_inter::ToUpper());
}
