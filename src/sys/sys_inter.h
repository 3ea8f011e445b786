// What the system utilities need from each platform.
#ifndef VYX_SYS_SYS_INTER_H
#define VYX_SYS_SYS_INTER_H

#include <vyx/sys.h>

VYX_BEGIN_DECLS

// Processors online; 0 or less if that cannot be told.
int32_t VYX_CountProcessors_Inter(void);

// Fills the 16 bytes with a new random UUID.
void VYX_GenerateUuid_Inter(uint8_t *pUuid16);

VYX_END_DECLS

#endif
