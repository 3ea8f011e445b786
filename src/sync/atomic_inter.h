// The stage of the atomic operations, and what a fork does to them.
#ifndef VYX_SYNC_ATOMIC_INTER_H
#define VYX_SYNC_ATOMIC_INTER_H

#include <vyx/sync.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// Start and stop of the stage. Both return 0 and do nothing: the operations are exact at any time.
int32_t VYX_InitAtomic_Inter(void);
int32_t VYX_FiniAtomic_Inter(void);

extern const vyx_inter::ForkRow g_struAtomicForkRow;

VYX_END_DECLS

#endif
