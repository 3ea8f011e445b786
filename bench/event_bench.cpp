// Events beside the same pipe calls written by hand.
#include <poll.h>
#include <pthread.h>
#include <unistd.h>
#include <vector>

#include <vyx/msg.h>

#include "support/bench.h"

namespace {

// An event as a program would write it for itself: one byte in a pipe, put in and taken out under a mutex.
class PipeEvent {
  public:
    PipeEvent() {
        if (pipe(m_iFds) != 0)
            m_iFds[0] = m_iFds[1] = -1;
    }
    ~PipeEvent() {
        (void)close(m_iFds[0]);
        (void)close(m_iFds[1]);
        (void)pthread_mutex_destroy(&m_hMutex);
    }
    PipeEvent(const PipeEvent &) = delete;
    PipeEvent &operator=(const PipeEvent &) = delete;

    bool Ready() const { return m_iFds[0] != -1; }
    int ReadEnd() const { return m_iFds[0]; }
    bool Set() {
        (void)pthread_mutex_lock(&m_hMutex);
        struct pollfd out = {m_iFds[1], POLLOUT, 0};
        const bool bDone = Drain() && poll(&out, 1, 0) == 1 && write(m_iFds[1], "e", 1) == 1;
        (void)pthread_mutex_unlock(&m_hMutex);
        return bDone;
    }
    bool Reset() {
        (void)pthread_mutex_lock(&m_hMutex);
        const bool bDone = Drain();
        (void)pthread_mutex_unlock(&m_hMutex);
        return bDone;
    }
    bool Wait(int iTimeOut) const {
        struct pollfd in = {m_iFds[0], POLLRDNORM, 0};
        return poll(&in, 1, iTimeOut) == 1;
    }

  private:
    bool Drain() const {
        struct pollfd in = {m_iFds[0], POLLRDNORM, 0};
        char szBytes[256];
        while (poll(&in, 1, 0) == 1) {
            if (read(m_iFds[0], szBytes, sizeof szBytes) < 0)
                return false;
        }
        return true;
    }

    int m_iFds[2];
    pthread_mutex_t m_hMutex = PTHREAD_MUTEX_INITIALIZER;
};

class VyxEvent {
  public:
    VyxEvent() : m_hEvent(VYX_CreateEvent(0)) {}
    ~VyxEvent() { (void)VYX_CloseEvent(m_hEvent); }
    VyxEvent(const VyxEvent &) = delete;
    VyxEvent &operator=(const VyxEvent &) = delete;

    bool Ready() const { return m_hEvent != nullptr; }
    VYX_EVENT Handle() const { return m_hEvent; }
    bool Set() { return VYX_SetEvent(m_hEvent) == VYX_TRUE; }
    bool Reset() { return VYX_ResetEvent(m_hEvent) == VYX_TRUE; }
    bool Wait(int iTimeOut) const {
        return VYX_WaitForSingleObject(m_hEvent, static_cast<uint32_t>(iTimeOut)) == VYX_WAIT_OBJECT_0;
    }

  private:
    VYX_EVENT m_hEvent;
};

template <class Event>
void SetWaitReset(benchmark::State &state) {
    Event event;
    if (!event.Ready())
        return state.SkipWithError("no event");
    for (auto _ : state) {
        if (!event.Set() || !event.Wait(-1) || !event.Reset())
            return state.SkipWithError("the event fails");
    }
}

template <class Event>
void SetAgain(benchmark::State &state) {
    Event event;
    if (!event.Ready())
        return state.SkipWithError("no event");
    for (auto _ : state) {
        if (!event.Set())
            return state.SkipWithError("the event fails");
    }
}

template <class Event>
void WaitForSignalled(benchmark::State &state) {
    Event event;
    if (!event.Ready() || !event.Set())
        return state.SkipWithError("no event");
    for (auto _ : state) {
        if (!event.Wait(-1))
            return state.SkipWithError("the event fails");
    }
}

template <class Event>
void CreateClose(benchmark::State &state) {
    for (auto _ : state) {
        const Event event;
        if (!event.Ready())
            return state.SkipWithError("no event");
    }
}

// 64 events, the last of which is signalled.
constexpr size_t kSeveral = 64;

void VyxWaitForSeveral(benchmark::State &state) {
    std::vector<VyxEvent> events(kSeveral);
    if (!events.back().Set())
        return state.SkipWithError("no events");
    for (auto _ : state) {
        VYX_EVENT handles[kSeveral];
        for (size_t i = 0; i < kSeveral; ++i)
            handles[i] = events[i].Handle();
        if (VYX_WaitForMultipleObjects(kSeveral, handles, 0, VYX_INFINITE) != kSeveral - 1)
            return state.SkipWithError("the wait fails");
    }
}

void RawWaitForSeveral(benchmark::State &state) {
    std::vector<PipeEvent> events(kSeveral);
    if (!events.back().Set())
        return state.SkipWithError("no events");
    for (auto _ : state) {
        struct pollfd fds[kSeveral];
        for (size_t i = 0; i < kSeveral; ++i)
            fds[i] = {events[i].ReadEnd(), POLLRDNORM, 0};
        if (poll(fds, kSeveral, -1) != 1)
            return state.SkipWithError("the wait fails");
        size_t nFirst = 0;
        while (fds[nFirst].revents == 0)
            ++nFirst;
        if (nFirst != kSeveral - 1)
            return state.SkipWithError("the wait fails");
    }
}

} // namespace

int main(int argc, char **argv) {
    constexpr double kBound = 1.2;
    bench::Compare("event_set_wait_reset",
                   {{"vyx", SetWaitReset<VyxEvent>}, {"raw", SetWaitReset<PipeEvent>, kBound}});
    bench::Compare("event_set_again", {{"vyx", SetAgain<VyxEvent>}, {"raw", SetAgain<PipeEvent>, kBound}});
    bench::Compare("event_wait_signalled",
                   {{"vyx", WaitForSignalled<VyxEvent>}, {"raw", WaitForSignalled<PipeEvent>, kBound}});
    bench::Compare("event_wait_for_64", {{"vyx", VyxWaitForSeveral}, {"raw", RawWaitForSeveral, kBound}});
    bench::Compare("event_create_close",
                   {{"vyx", CreateClose<VyxEvent>}, {"raw", CreateClose<PipeEvent>, kBound}});
    return bench::Run(argc, argv);
}
