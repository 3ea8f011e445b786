// Event objects: the pipe of a plain event, setting it and waiting for it.
//
// What is in the pipe decides, as its ends can be reached from elsewhere: a forked child, a caller's own poll. Waits poll
// the read end; they neither lock nor take the byte out.
//
// A set looks into the pipe and puts a byte in if it is empty. It holds no lock, so that whoever it wakes finds none taken.
// Two sets that meet may both find the pipe empty and write. The later one to count its write sees that the other has
// counted too, and takes the surplus out: when both have returned, one byte is there.
//
// The lock is for taking bytes out: of two who saw the byte the second one would block in its read.
#include <algorithm>
#include <cstddef>
#include <new>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "base/describe.h"
#include "base/errno_keeper.h"
#include "base/probes.h"
#include "base/spin.h"
#include "base/uncancelled.h"
#include "msg/event_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(VYX_NETWORKEVENTS_T, iErrorCode) == 4 && sizeof(VYX_NETWORKEVENTS_T) == 44);

using vyx_inter::Deadline;
using vyx_inter::ErrnoKeeper;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Uncancelled;

Lock s_hEventListLock{vyx_inter::Rank::Event};

namespace {

constexpr size_t kDrainSize = 256;
constexpr uint32_t kLeavePause = 100; // microseconds

std::atomic<uint32_t> s_nForks{0}; // that lead to this process
Lock s_renewLock{vyx_inter::Rank::Event};

// Those that are open, for tools.
vyx_inter::List<VYX_EVENT_T, &VYX_EVENT_T::all> s_events VYX_GUARDED_BY(s_hEventListLock);
vyx_inter::ForkHold s_forkHold(s_hEventListLock);

VYX_EVENT Enlist_Local(VYX_EVENT_T *pEvent) {
    const LockGuard guard(s_hEventListLock);
    s_events.Append(pEvent);
    return pEvent;
}

void Delist_Local(VYX_EVENT_T *pEvent) {
    const LockGuard guard(s_hEventListLock);
    s_events.Remove(pEvent);
}

// In a forked child: what the parent's threads had locked and entered is free. The event is the same pipe.
void Renew_Local(VYX_EVENT_T &event) {
    if (event.nForks == s_nForks)
        return;
    const LockGuard guard(s_renewLock);
    if (event.nForks == s_nForks)
        return;
    event.hMutex.Renew();
    event.nInside = 0;
    event.nForks.store(s_nForks);
}

// A set: keeps the event from being closed for the length of a block; leaving is the last access to it.
class Inside {
  public:
    explicit Inside(VYX_EVENT_T &event) : m_event(event) {
        Renew_Local(event);
        ++m_event.nInside;
    }
    ~Inside() { --m_event.nInside; }
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;

  private:
    VYX_EVENT_T &m_event;
};

// Returns when no set is under way: who set an event may not have left when the one who waited for it closes it.
void AwaitLeaving_Local(VYX_EVENT_T &event) {
    Renew_Local(event);
    while (!vyx_inter::TryBriefly([&] { return event.nInside == 0; }))
        (void)VYX_USleep(kLeavePause);
}

// A new record with its pipe; the fields are set either way.
bool Open_Local(VYX_EVENT_T &event) {
    int iEnds[2] = {-1, -1};
    const bool bOpen = pipe(iEnds) == 0;
    event.iPipeFd[0] = bOpen ? iEnds[0] : -1;
    event.iPipeFd[1] = bOpen ? iEnds[1] : -1;
    event.iSocket = -1;
    event.nForks.store(s_nForks);
    return bOpen;
}

void Free_Local(VYX_EVENT_T *pEvent) {
    VYX_ClearEventPipe_Inter(pEvent);
    pEvent->hMutex.Destroy();
    delete pEvent;
}

int Surplus_Local(const VYX_EVENT_T &event) {
    int iBytes = 0;
    return ioctl(event.iPipeFd[0], FIONREAD, &iBytes) == 0 ? iBytes - 1 : 0;
}

// Leaves one byte of several in the pipe.
void Trim_Local(VYX_EVENT_T &event) {
    if (Surplus_Local(event) <= 0)
        return;
    const LockGuard guard(event.hMutex);
    char szBytes[kDrainSize];
    for (int i = Surplus_Local(event); i > 0; i = Surplus_Local(event))
        if (read(event.iPipeFd[0], szBytes, std::min(static_cast<size_t>(i), sizeof szBytes)) <= 0)
            return;
}

VYX_EVENT CreateFailed_Local(VYX_EVENT_T *pEvent) {
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby !!! VYX_CreateEvent return error %d 0\n", errno);
    Free_Local(pEvent);
    return nullptr;
}

int32_t Set_Local(VYX_EVENT_T &event) {
    const Uncancelled uncancelled;
    const Inside inside(event);
    const uint32_t nWrites = event.nWrites;
    struct pollfd entry = {event.iPipeFd[0], POLLRDNORM, 0};
    (void)poll(&entry, 1, 0); // fails only where nothing is there
    if ((entry.revents & ~POLLRDNORM) != 0) {
        const ErrnoKeeper keeper;
        VYX_OutputDebug("quelby !!! VYX_SetEvent read pipe return error %d 1\n", errno);
        return VYX_FALSE;
    }
    const bool bSignalled = entry.revents != 0;
    if (!bSignalled && VYX_WritePipe_Inter(&event) != VYX_TRUE) {
        const ErrnoKeeper keeper;
        VYX_OutputDebug("quelby !!! VYX_SetEvent write pipe return error %d 2\n", errno);
        return VYX_FALSE;
    }
    if (bSignalled || event.nWrites.fetch_add(1) != nWrites)
        Trim_Local(event);
    return VYX_TRUE;
}

int32_t Reset_Local(VYX_EVENT_T &event) {
    const Uncancelled uncancelled;
    Renew_Local(event);
    const LockGuard guard(event.hMutex);
    return VYX_ReadPipe_Inter(&event);
}

} // namespace

const vyx_inter::ForkRow g_struEventForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] {
        (void)s_forkHold.InChild();
        s_renewLock.Renew();
        vyx_inter::ForgetOtherEventWaits();
        ++s_nForks;
    },
};

int32_t VYX_WritePipe_Inter(VYX_EVENT_T *pEvent) {
    const int iFd = pEvent->iPipeFd[1];
    if (iFd != -1 && write(iFd, "e", 1) == 1)
        return VYX_TRUE;
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby !!!! VYX_WritePipe_Inter return VYX_FALSE errno = %d", errno);
    return VYX_FALSE;
}

int32_t VYX_ReadPipe_Inter(VYX_EVENT_T *pEvent) {
    struct pollfd entry = {pEvent->iPipeFd[0], POLLRDNORM, 0};
    while (poll(&entry, 1, 0) >= 1) {
        char szBytes[kDrainSize];
        const ssize_t nRead = entry.revents == POLLRDNORM ? read(entry.fd, szBytes, sizeof szBytes) : -1;
        if (nRead < 0)
            return VYX_FALSE;
        if (static_cast<size_t>(nRead) < sizeof szBytes) // nothing is left
            return VYX_TRUE;
    }
    return VYX_TRUE;
}

void VYX_ClearEventPipe_Inter(VYX_EVENT_T *pEvent) {
    AwaitLeaving_Local(*pEvent);
    const LockGuard guard(pEvent->hMutex); // after the last reset
    if (pEvent->iPipeFd[0] == -1)
        return;
    for (std::atomic<int32_t> &iEnd : pEvent->iPipeFd)
        (void)close(iEnd.exchange(-1)); // a pipe end has nothing to write back that could fail
}

VYX_EVENT VYX_CreateEvent(int32_t bInitialState) {
    const Uncancelled uncancelled;
    auto *pEvent = new (std::nothrow) VYX_EVENT_T();
    if (pEvent == nullptr)
        return nullptr;
    if (Open_Local(*pEvent) && (bInitialState == 0 || VYX_WritePipe_Inter(pEvent) == VYX_TRUE))
        return Enlist_Local(pEvent);
    return CreateFailed_Local(pEvent);
}

int32_t VYX_CloseEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_CloseEvent !hEvnet return error 0\n");
        return VYX_FALSE;
    }
    const Uncancelled uncancelled;
    Delist_Local(hEvent);
    Free_Local(hEvent);
    return VYX_TRUE;
}

int32_t VYX_SetEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_SetEvent !hEvent return error 0\n");
        return VYX_FALSE;
    }
    VYX_PROBE1(event_set, hEvent);
    const int32_t bDone = Set_Local(*hEvent);
    pthread_testcancel(); // so that a thread that only sets and resets can be cancelled
    return bDone;
}

int32_t VYX_ResetEvent(VYX_EVENT hEvent) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_ResetEvent  !hEvent return error 0\n");
        return VYX_FALSE;
    }
    if (hEvent->iPipeFd[0] == -1) {
        VYX_OutputDebug("quelby !!! VYX_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n");
        return VYX_FALSE;
    }
    const int32_t bDone = Reset_Local(*hEvent);
    pthread_testcancel();
    return bDone;
}

uint32_t VYX_WaitForSingleObject(VYX_EVENT hEvent, uint32_t nTimeOut) {
    if (hEvent == nullptr) {
        VYX_OutputDebug("quelby !!! VYX_WaitForSingleObject !hEvent return error 0\n");
        return VYX_WAIT_INVALID_HANDLE;
    }
    struct pollfd entry = {hEvent->iPipeFd[0], POLLRDNORM, 0};
    if (entry.fd == -1) {
        VYX_OutputDebug("quelby !!! VYX_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n");
        return VYX_WAIT_NO_PIPE;
    }
    const bool bLimited = nTimeOut != 0 && nTimeOut <= INT32_MAX;
    const vyx_inter::NotedWait note(
        &hEvent, 1, bLimited ? Deadline::In(nTimeOut, vyx_inter::Clock::Monotonic) : Deadline::Never());
    // Deliberate: an interrupted wait fails; only the multiple wait goes on. Pinned by Event.Interruptions.
    VYX_PROBE1(event_wait_begin, hEvent);
    const int iReady = poll(&entry, 1, nTimeOut > INT32_MAX ? -1 : static_cast<int>(nTimeOut));
    VYX_PROBE2(event_wait_end, hEvent, iReady);
    if (iReady >= 1)
        return VYX_WAIT_OBJECT_0;
    if (iReady == 0)
        return VYX_WAIT_TIMEOUT;
    const ErrnoKeeper keeper;
    VYX_OutputDebug("quelby VYX_WaitForSingleObject poll error return error %d 3\n", errno);
    return VYX_WAIT_FAILED;
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_SINGLE("event", s_events.pFirst), // the first of them
    VYX_LOCK("Events", s_hEventListLock),
    VYX_FIELD_OF("event.next", VYX_EVENT_T, all, vyx_inter::Links<VYX_EVENT_T>, pNext),
    VYX_FIELD("event.pipe", VYX_EVENT_T, iPipeFd), // its read end is the first
    VYX_FIELD("event.socket", VYX_EVENT_T, iSocket),
    VYX_FIELD("event.asked", VYX_EVENT_T, lNetworkEvents),
    VYX_FIELD("event.found", VYX_EVENT_T, iTriggered),
    VYX_FIELD("event.error", VYX_EVENT_T, iErrorCode),
    VYX_FIELD("event.lock", VYX_EVENT_T, hMutex),
};

} // namespace

VYX_DESCRIBE(events, kRows)
