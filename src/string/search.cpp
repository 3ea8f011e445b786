// Searches in byte strings. Results point into the caller's own text, hence the casts.
#include <cstring>

#include "string/string_inter.h"

char *VYX_Strchr(const char *szText, char c) {
    // Deliberate: the terminating zero is found in an empty text only. Pinned by
    // Searches.OddEndsAndCounts.
    if (__builtin_expect(c == '\0', 0) && *szText != '\0') // a jump that is taken shows beside short texts
        return nullptr;
    return const_cast<char *>(std::strchr(szText, c));
}

char *VYX_Strnchr(const char *pBuf, char c, int32_t iCount) {
    if (iCount <= 0)
        return nullptr;
    return static_cast<char *>(const_cast<void *>(std::memchr(pBuf, c, static_cast<size_t>(iCount))));
}

char *VYX_Strstr(const char *szText, const char *szNeedle) {
    return const_cast<char *>(std::strstr(szText, szNeedle));
}

char *VYX_Strnstr(const char *szText, const char *szNeedle, int32_t iLength) {
    if (iLength < 0)
        return nullptr;
    if (iLength == 0) // not every memmem finds nothing everywhere
        return const_cast<char *>(szText);
    const auto nLength = static_cast<size_t>(iLength);
    return static_cast<char *>(memmem(szText, std::strlen(szText), szNeedle, nLength));
}
