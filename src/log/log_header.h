// The text before every log line.
#ifndef VYX_LOG_LOG_HEADER_H
#define VYX_LOG_LOG_HEADER_H

#include <vyx/log.h>

VYX_BEGIN_DECLS

// As FormatTimeAndName, whose arguments have been checked.
int32_t VYX_LogHeader_Inter(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile, int32_t iLine);

VYX_END_DECLS

#endif
