// What other source files see of the timers.
#ifndef VYX_MSG_TIMER_INTER_H
#define VYX_MSG_TIMER_INTER_H

#include <vyx/msg.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

extern const vyx_inter::ForkRow g_struTimerForkRow;

// A timer's thread. pParam is its record.
void *VYX_OnTimer(void *pParam);

VYX_END_DECLS

#endif
