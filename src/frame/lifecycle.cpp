// Start and stop: a counter and five stages, all under one mutex.
#include <vyx/frame.h>
#include <vyx/log.h>

#include "base/describe.h"
#include "base/probes.h"
#include "base/uncancelled.h"
#include "frame/frame_inter.h"
#include "msg/msgq_inter.h"
#include "net/net_inter.h"
#include "pool/thread_pool_inter.h"
#include "sync/atomic_inter.h"
#include "sync/timed_wait.h"

using vyx_inter::Lock;
using vyx_inter::LockGuard;

Lock s_vyxmutex{vyx_inter::Rank::StartStop};

// Starts not yet matched by a stop, and which stages are up.
static int32_t s_iInitCount VYX_GUARDED_BY(s_vyxmutex) = 0;
static uint32_t s_bVyxInitNetwork VYX_GUARDED_BY(s_vyxmutex) = 0;
static uint32_t s_bVyxInitMsgQ VYX_GUARDED_BY(s_vyxmutex) = 0;
static uint32_t s_bVyxInitThreadPool VYX_GUARDED_BY(s_vyxmutex) = 0;
static uint32_t s_bVyxTimedWait VYX_GUARDED_BY(s_vyxmutex) = 0;
static uint32_t s_bVyxInitAtomic VYX_GUARDED_BY(s_vyxmutex) = 0;

namespace {

// Bits of VYX_Log's flags.
constexpr uint32_t kLogToConsole = 1;
constexpr uint32_t kLogToFiles = 2;

VYX_STAGE_S s_struStages[VYX_STAGE_COUNT] = {
    {VYX_InitNetwork_Inter, VYX_FiniNetwork_Inter, &s_bVyxInitNetwork},
    {VYX_MsgQInitEx_Inter, VYX_MsgQFiniEx_Inter, &s_bVyxInitMsgQ},
    {VYX_InitThreadPool_Inter, VYX_FiniThreadPool_Inter, &s_bVyxInitThreadPool},
    {VYX_InitTimeWait_Inter, VYX_FiniTimedWait_Inter, &s_bVyxTimedWait},
    {VYX_InitAtomic_Inter, VYX_FiniAtomic_Inter, &s_bVyxInitAtomic},
};

// Result: true if every stage came up. Stages that did have their flag set.
bool StartStages_Local() VYX_REQUIRES(s_vyxmutex) {
    for (const VYX_STAGE_S &stage : s_struStages) {
        if (stage.fnStart() != VYX_OK)
            return false;
        *stage.pFlag = 1;
    }
    return true;
}

vyx_inter::ForkHold s_forkHold(s_vyxmutex);

} // namespace

// The counter and the flags stay: the child stops what it has inherited and may start it again.
const vyx_inter::ForkRow g_struStartForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] { (void)s_forkHold.InChild(); },
};

VYX_STAGE_S *VYX_Stages_Inter(void) {
    return s_struStages;
}

int32_t VYX_InitResource_Inter(void) {
    for (const VYX_STAGE_S &stage : s_struStages)
        *stage.pFlag = 0;
    bool bStarted = false;
    try {
        bStarted = StartStages_Local();
    } catch (...) {
        VYX_ClearResource_Inter();
        throw;
    }
    if (!bStarted)
        VYX_ClearResource_Inter();
    return bStarted ? VYX_OK : VYX_ERROR;
}

void VYX_ClearResource_Inter(void) {
    // Deliberate: in the order of the start, not in reverse. Pinned by Lifecycle.StopsInTheOrderOfTheStart.
    for (const VYX_STAGE_S &stage : s_struStages) {
        if (*stage.pFlag == 0)
            continue;
        (void)stage.fnStop(); // a stage that cannot stop is not reported
        *stage.pFlag = 0;
    }
}

int32_t VYX_Init(void) {
    const LockGuard guard(s_vyxmutex);
    if (s_iInitCount == 0 && VYX_InitResource_Inter() != VYX_OK)
        return VYX_ERROR;
    ++s_iInitCount;
    VYX_PROBE1(start, s_iInitCount);
    return VYX_OK;
}

int32_t VYX_InitEx(void) {
    return VYX_Init();
}

int32_t VYX_Fini(void) {
    const vyx_inter::Uncancelled uncancelled; // a stop that has begun is finished
    const LockGuard guard(s_vyxmutex);
    // Deliberate: no check for 0. An unmatched stop makes the counter -1, and the next start only brings it
    // back to 0. Pinned by Lifecycle.UnmatchedStopEatsTheNextStart.
    --s_iInitCount;
    VYX_PROBE1(stop, s_iInitCount);
    if (s_iInitCount == 0) {
        (void)VYX_Log(0, nullptr);
        VYX_ClearResource_Inter();
    }
    return VYX_OK;
}

int32_t VYX_FiniEx(void) {
    return VYX_Fini();
}

uint32_t VYX_GetVYXVersion(void) {
    return VYX_VERSION;
}

int32_t VYX_Log(uint32_t nFlags, const void *pFileParam) {
    if (nFlags == 0) {
        (void)DisableTarget(VYX_LOG_TARGET_CONSOLE);
        (void)DisableTarget(VYX_LOG_TARGET_FILE);
        (void)StopLogService(true);
        return VYX_OK;
    }
    (void)StartLogService();
    if ((nFlags & kLogToConsole) != 0)
        (void)EnableTarget(VYX_LOG_TARGET_CONSOLE, nullptr, 0, 0);
    if ((nFlags & kLogToFiles) != 0)
        (void)EnableTarget(VYX_LOG_TARGET_FILE, pFileParam, 0, 0);
    (void)AdjustLogLevel(VYX_LOG_LEVEL_INF);
    return VYX_OK;
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    {"version", VYX_VERSION, 0, 0, nullptr},
    VYX_SINGLE("starts", s_iInitCount),
    VYX_LOCK("StartStop", s_vyxmutex),
};

} // namespace

VYX_DESCRIBE(start, kRows)
