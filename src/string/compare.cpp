// Comparisons of byte strings.
//
// The results are differences of bytes, of which the C library promises the sign only. Equal stretches are
// passed over with its functions, which are faster than a loop; the difference is then found in a short one.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <vyx/string.h>

namespace {

constexpr size_t kNear = 16;    // bytes looked at in a loop before the C library is asked
constexpr size_t kStretch = 64; // bytes that it is asked about at a time

int32_t Byte_Local(char c) {
    return static_cast<unsigned char>(c);
}
int32_t Upper_Local(char c) {
    return std::toupper(static_cast<unsigned char>(c));
}

// The difference at the first differing byte within nCount, or at the end. *pEnded tells whether it was found
// or the texts ended.
int32_t Difference_Local(const char *szA, const char *szB, size_t nCount, bool *pEnded) {
    for (size_t i = 0; i < nCount; ++i) {
        if (szA[i] != szB[i] || szA[i] == '\0') {
            *pEnded = true;
            return Byte_Local(szA[i]) - Byte_Local(szB[i]);
        }
    }
    *pEnded = false;
    return 0;
}

int32_t Compare_Local(const char *szA, const char *szB, size_t nCount) {
    size_t nDone = std::min(nCount, kNear);
    bool bEnded = false;
    int32_t iDifference = Difference_Local(szA, szB, nDone, &bEnded);
    while (!bEnded && nDone < nCount) {
        const size_t nStretch = std::min(nCount - nDone, kStretch);
        const char *pA = szA + nDone;
        const char *pB = szB + nDone;
        if (std::strncmp(pA, pB, nStretch) != 0)
            return Difference_Local(pA, pB, nStretch, &bEnded);
        bEnded = std::memchr(pA, '\0', nStretch) != nullptr;
        nDone += nStretch;
    }
    return iDifference;
}

} // namespace

int32_t VYX_Strcmp(const char *szA, const char *szB) {
    return Compare_Local(szA, szB, SIZE_MAX);
}

int32_t VYX_Strncmp(const char *szA, const char *szB, uint32_t nCount) {
    return Compare_Local(szA, szB, nCount);
}

int32_t VYX_Strcasecmp(const char *szA, const char *szB) {
    for (;; ++szA, ++szB) {
        const int32_t iDifference = Upper_Local(*szA) - Upper_Local(*szB);
        if (iDifference != 0 || *szA == '\0')
            return iDifference;
    }
}

int32_t VYX_Strncasecmp(const char *szA, const char *szB, int32_t iCount) {
    // Deliberate: a negative count compares the first bytes, whatever follows. Pinned by
    // Comparisons.NegativeCountComparesOneByte.
    if (iCount < 0)
        return Upper_Local(*szA) - Upper_Local(*szB);
    for (; iCount > 0; --iCount, ++szA, ++szB) {
        const int32_t iDifference = Upper_Local(*szA) - Upper_Local(*szB);
        if (iDifference != 0 || *szA == '\0')
            return iDifference;
    }
    return 0;
}
