// What the system utilities need from each platform.
#ifndef VYX_SYS_SYS_INTER_H
#define VYX_SYS_SYS_INTER_H

#include <vyx/sys.h>

VYX_BEGIN_DECLS

// Processors online; 0 or less if that cannot be told.
int32_t VYX_CountProcessors_Inter(void);

// Fills the 16 bytes with a new random UUID. Result: 0; -1 if the platform gives no random bytes.
int32_t VYX_GenerateUuid_Inter(uint8_t *pUuid16);

// Whether iconv may put another character in the place of one that the target set lacks, and count that as success.
bool VYX_IconvReplaces_Inter(void);

VYX_END_DECLS

#endif
