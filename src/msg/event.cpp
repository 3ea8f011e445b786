// Event objects: the pipe of a plain event, setting it and waiting for it.
//
// hMutex keeps drain and write together, so that at most one byte is ever in a pipe however many threads set
// the event. Waits only poll the read end: they neither lock nor take the byte out.
#include <cstddef>
#include <new>
#include <unistd.h>
#include <vyx/sys.h>

#include "base/errno_keeper.h"
#include "msg/event_inter.h"
#include "sync/mutex_hold.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(VYX_NETWORKEVENTS_T, iErrorCode) == 4 && sizeof(VYX_NETWORKEVENTS_T) == 44);

using vyx_inter::ErrnoKeeper;
using vyx_inter::Get;
using vyx_inter::MutexHold;
using vyx_inter::Put;

static_assert(offsetof(VYX_EVENT_T, hMutex) == 8 * sizeof(int32_t));

namespace {

constexpr size_t kDrainSize = 256;
constexpr uint32_t kLeavePause = 100; // microseconds
constexpr int kLeavePauses = 10000; // in a forked child, a second or so for one who exists in the parent only

void ResetFields_Local(VYX_EVENT_T *pEvent) {
    pEvent->lNetworkEvents = 0;
    pEvent->iSocket = -1;
    pEvent->reserved = 0;
    pEvent->iErrorCode = 0;
}

void Free_Local(VYX_EVENT_T *pEvent) {
    VYX_ClearEventPipe_Inter(pEvent);
    ResetFields_Local(pEvent);
    delete pEvent;
}

// Returns when nobody holds the lock: who set an event may not have left when the one who waited for it closes it.
void AwaitLeaving_Local(VYX_EVENT_T *pEvent) {
    for (int i = 0; i < kLeavePauses; ++i) {
        if (VYX_MutexTryLock(&pEvent->hMutex) == VYX_OK) {
            (void)VYX_MutexUnlock(&pEvent->hMutex);
            return;
        }
        (void)VYX_USleep(kLeavePause);
    }
}

// A new record with its pipe and its mutex; the fields are set either way.
bool Open_Local(VYX_EVENT_T *pEvent) {
    ResetFields_Local(pEvent);
    if (pipe(pEvent->iPipeFd) == 0)
        return VYX_MutexCreate(&pEvent->hMutex, VYX_MUTEX_NORMAL) == VYX_OK;
    pEvent->iPipeFd[0] = -1;
    pEvent->iPipeFd[1] = -1;
    return false;
}

VYX_EVENT CreateFailed_Local(VYX_EVENT_T *pEvent) {
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby !!! VYX_CreateEvent return error %d 0\n", errno);
    Free_Local(pEvent);
    return nullptr;
}

} // namespace

int32_t VYX_WritePipe_Inter(VYX_EVENT_T *pEvent) {
    struct pollfd entry = {pEvent->iPipeFd[1], POLLOUT, 0};
    if (poll(&entry, 1, 0) >= 1 && (entry.revents & POLLOUT) != 0 && write(entry.fd, "e", 1) == 1)
        return VYX_TRUE;
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = %d", errno);
    return VYX_FALSE;
}

int32_t VYX_ReadPipe_Inter(VYX_EVENT_T *pEvent) {
    struct pollfd entry = {pEvent->iPipeFd[0], POLLRDNORM, 0};
    while (poll(&entry, 1, 0) >= 1) {
        char szBytes[kDrainSize];
        if (entry.revents != POLLRDNORM || read(entry.fd, szBytes, sizeof szBytes) < 0)
            return VYX_FALSE;
    }
    return VYX_TRUE;
}

void VYX_ClearEventPipe_Inter(VYX_EVENT_T *pEvent) {
    if (pEvent == nullptr || pEvent->iPipeFd[0] == -1)
        return;
    for (int32_t &iEnd : pEvent->iPipeFd) {
        (void)close(iEnd); // a pipe end has nothing to write back that could fail
        Put(iEnd, -1);
    }
}

void VYX_ClearEventMutex_Inter(VYX_EVENT_T *pEvent) {
    (void)VYX_MutexDestroy(&pEvent->hMutex);
}

VYX_EVENT VYX_CreateEvent(int32_t bInitialState) {
    auto *pEvent = new (std::nothrow) VYX_EVENT_T();
    if (pEvent == nullptr)
        return nullptr;
    if (!Open_Local(pEvent))
        return CreateFailed_Local(pEvent);
    if (bInitialState == 0 || VYX_WritePipe_Inter(pEvent) == VYX_TRUE)
        return pEvent;
    VYX_ClearEventMutex_Inter(pEvent);
    return CreateFailed_Local(pEvent);
}

int32_t VYX_CloseEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_CloseEvent !hEvnet return error 0\n");
        return VYX_FALSE;
    }
    AwaitLeaving_Local(hEvent);
    VYX_ClearEventMutex_Inter(hEvent);
    Free_Local(hEvent);
    return VYX_TRUE;
}

int32_t VYX_SetEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_SetEvent !hEvent return error 0\n");
        return VYX_FALSE;
    }
    const MutexHold hold(hEvent->hMutex);
    if (VYX_ReadPipe_Inter(hEvent) != VYX_TRUE) {
        const ErrnoKeeper keeper;
        VYX_OutputDebug("quelby !!! VYX_SetEvent read pipe return error %d 1\n", errno);
        return VYX_FALSE;
    }
    if (VYX_WritePipe_Inter(hEvent) != VYX_TRUE) {
        const ErrnoKeeper keeper;
        VYX_OutputDebug("quelby !!! VYX_SetEvent write pipe return error %d 2\n", errno);
        return VYX_FALSE;
    }
    return VYX_TRUE;
}

int32_t VYX_ResetEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_ResetEvent  !hEvent return error 0\n");
        return VYX_FALSE;
    }
    if (Get(hEvent->iPipeFd[0]) == -1) {
        VYX_OutputDebug("quelby !!! VYX_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n");
        return VYX_FALSE;
    }
    const MutexHold hold(hEvent->hMutex);
    return VYX_ReadPipe_Inter(hEvent);
}

uint32_t VYX_WaitForSingleObject(VYX_EVENT hEvent, uint32_t nTimeOut) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_WaitForSingleObject !hEvent return error 0\n");
        return VYX_WAIT_INVALID_HANDLE;
    }
    struct pollfd entry = {Get(hEvent->iPipeFd[0]), POLLRDNORM, 0};
    if (entry.fd == -1) {
        VYX_OutputDebug("quelby !!! VYX_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n");
        return VYX_WAIT_NO_PIPE;
    }
    // Deliberate: an interrupted wait fails; only the multiple wait goes on. Pinned by Event.Interruptions.
    const int iReady = poll(&entry, 1, vyx_inter::PollTimeOut(nTimeOut));
    if (iReady >= 1)
        return VYX_WAIT_OBJECT_0;
    if (iReady == 0)
        return VYX_WAIT_TIMEOUT;
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby VYX_WaitForSingleObject poll error return error %d 3\n", errno);
    return VYX_WAIT_FAILED;
}
