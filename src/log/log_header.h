// The text before every log line.
#ifndef VYX_LOG_LOG_HEADER_H
#define VYX_LOG_LOG_HEADER_H

#include <vyx/log.h>

VYX_BEGIN_DECLS

// As FormatTimeAndName, with the zone and the calendar looked up once a second by each thread. A zone that the
// program sets with tzset shows at once, one that it only puts into the environment within the second.
int32_t VYX_LogHeader_Inter(char *szBuf, uint32_t nSize, log_level eLevel, const char *szFile, int32_t iLine);

// Around fork: keep other threads out of the calendar, whose lock the child would inherit.
void VYX_LogHeaderLock_Inter(void);
void VYX_LogHeaderUnlock_Inter(void);

VYX_END_DECLS

#endif
