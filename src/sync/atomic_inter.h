// The stage of the library's start that counts users of the atomic operations.
#ifndef VYX_SYNC_ATOMIC_INTER_H
#define VYX_SYNC_ATOMIC_INTER_H

#include <vyx/sync.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// Start and stop of the stage; counted. Both return 0.
int32_t VYX_InitAtomic_Inter(void);
int32_t VYX_FiniAtomic_Inter(void);

extern const vyx_inter::ForkRow g_struAtomicForkRow;

VYX_END_DECLS

#endif
