// Copies of byte strings.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vyx/string.h>

namespace {

char *CopyOf_Local(const char *pText, size_t nLength) {
    auto *szCopy = static_cast<char *>(std::malloc(nLength + 1));
    if (szCopy == nullptr)
        return nullptr;
    std::memcpy(szCopy, pText, nLength);
    szCopy[nLength] = '\0';
    return szCopy;
}

} // namespace

char *VYX_Strcpy(char *szDest, const char *szSource) {
    return std::strcpy(szDest, szSource);
}

char *VYX_Strncpy(char *szDest, const char *szSource, int32_t iCount) {
    return iCount <= 0 ? szDest : std::strncpy(szDest, szSource, static_cast<size_t>(iCount));
}

char *VYX_Strdup(const char *szText) {
    return CopyOf_Local(szText, std::strlen(szText));
}

char *VYX_Strndup(const char *szText, int32_t iLimit) {
    return iLimit < 0 ? nullptr : CopyOf_Local(szText, strnlen(szText, static_cast<size_t>(iLimit)));
}
