// The caller's text of a log line.
#ifndef VYX_LOG_LOG_TEXT_H
#define VYX_LOG_LOG_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <vyx/types.h>

VYX_BEGIN_DECLS

// Exactly vsnprintf. Formats with nothing but plain conversions, as most lines have, take a shorter way.
int32_t VYX_LogText_Inter(char *szBuf, size_t nSize, const char *szFormat, va_list args) VYX_PRINTF(3, 0);

VYX_END_DECLS

#endif
