// Inside the string functions: folding, and what tests look at.
#ifndef VYX_STRING_STRING_INTER_H
#define VYX_STRING_STRING_INTER_H

#include <cctype>
#include <vyx/string.h>

#include "base/platform.h"

VYX_BEGIN_DECLS

// VYX_Strncmp where the C library's comparisons give no more than a sign.
int32_t VYX_CompareBySign_Inter(const char *szA, const char *szB, size_t nCount);

VYX_END_DECLS

namespace vyx_inter {

// toupper or tolower for the length of one call. Asking for the table once spares a call for each byte.
class Fold {
  public:
    Fold(const int32_t *pTable, int (*pfnOne)(int)) : m_pTable(pTable), m_pfnOne(pfnOne) {}
    int32_t operator()(char c) const {
        const auto by = static_cast<unsigned char>(c);
        return m_pTable != nullptr ? m_pTable[by] : m_pfnOne(by);
    }

  private:
    const int32_t *m_pTable;
    int (*m_pfnOne)(int);
};

inline Fold ToUpper() {
    return {VYX_UpperTable_Inter(), std::toupper};
}
inline Fold ToLower() {
    return {VYX_LowerTable_Inter(), std::tolower};
}

} // namespace vyx_inter

#endif
