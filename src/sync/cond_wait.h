// Bounded waits for conditions.
#ifndef VYX_SYNC_COND_WAIT_H
#define VYX_SYNC_COND_WAIT_H

#include <vyx/sync.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// VYX_CondTimedWait says what it does.
int32_t CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut);

// From now on the waits end by time.
void VYX_CondWaitsStart_Inter(void);

// From now on they do not; those that have begun are ended.
void VYX_CondWaitsStop_Inter(void);

// How many there are.
uint32_t VYX_CondWaitsPending_Inter(void);

// The child begins with none, in a library that is not started.
extern const vyx_inter::ForkRow g_struCondWaitForkRow;

VYX_END_DECLS

#endif
