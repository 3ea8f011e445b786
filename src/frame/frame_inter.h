// Start-up shared between source files.
#ifndef VYX_FRAME_FRAME_INTER_H
#define VYX_FRAME_FRAME_INTER_H

#include <vyx/frame.h>

#include "base/fork.h"
#include "base/start_stop.h"

VYX_BEGIN_DECLS

// The library's own error slot: always 0.
uint32_t VYX_GetLastError_Inter(void);
int32_t VYX_SetLastError_Inter(uint32_t nCode);

// Starts every stage in order; at a failure stops those that had come up and returns -1. An exception that
// leaves a stage has the same effect and passes on.
int32_t VYX_InitResource_Inter(void) VYX_REQUIRES(s_vyxmutex);

// Stops every stage that is up, in the order of their start.
void VYX_ClearResource_Inter(void) VYX_REQUIRES(s_vyxmutex);

// One stage of the start. Its functions return 0 for success and must not call VYX_Init or VYX_Fini.
struct VYX_STAGE_S {
    int32_t (*fnStart)(void);
    int32_t (*fnStop)(void);
    uint32_t *pFlag VYX_PT_GUARDED_BY(s_vyxmutex); // 1 while the stage is up
};

// The table of the five stages, in order. Tests put functions of their own into it.
VYX_STAGE_S *VYX_Stages_Inter(void);

enum : uint32_t { VYX_STAGE_COUNT = 5 };

extern const vyx_inter::ForkRow g_struStartForkRow;

VYX_END_DECLS

#endif
