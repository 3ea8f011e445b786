// The timed-wait service: bounded waits end by time and by counts while it runs, and its stop ends those that are
// pending.
#ifndef VYX_SYNC_TIMED_WAIT_H
#define VYX_SYNC_TIMED_WAIT_H

#include <vyx/sync.h>

#include "base/fork.h"
#include "base/start_stop.h"

VYX_BEGIN_DECLS

// Start and stop. Start: 0 running, -1 without a thread. Stop: 0.
int32_t VYX_InitTimeWait_Inter(void) VYX_REQUIRES(s_vyxmutex);
int32_t VYX_FiniTimedWait_Inter(void) VYX_REQUIRES(s_vyxmutex);

// Bounded waits that have begun and not ended, of both kinds.
uint32_t VYX_TimedWaitPending_Inter(void);

// The child has no such thread.
extern const vyx_inter::ForkRow g_struTimedWaitForkRow;

// The service thread's body.
void *timer_svc(void *pIgnored);

VYX_END_DECLS

#endif
