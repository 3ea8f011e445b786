#include "end_event.h"

#include <pthread.h>
#include <unistd.h>

namespace logmill {

namespace {

sigset_t EndSignals() {
    sigset_t signals;
    (void)sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        (void)sigaddset(&signals, signal);
    return signals;
}

} // namespace

void EndEvent::BlockSignals() {
    const sigset_t signals = EndSignals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    (void)std::signal(SIGINT, SIG_DFL); // a shell's background job starts with it ignored
}

EndEvent::~EndEvent() {
    if (m_started) {
        (void)kill(getpid(), SIGTERM); // for the thread, if none has come yet
        (void)m_thread.Wait();
    }
    if (m_event != nullptr)
        (void)VYX_CloseEvent(m_event);
}

bool EndEvent::Open() {
    m_event = VYX_CreateEvent(0);
    m_started = m_event != nullptr && m_thread.Create(AwaitSignal, m_event, 0, 0, 0, 0) == VYX_OK;
    return m_started;
}

void *EndEvent::AwaitSignal(void *pEvent) {
    const sigset_t signals = EndSignals();
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    (void)VYX_SetEvent(static_cast<VYX_EVENT>(pEvent));
    return nullptr;
}

} // namespace logmill
