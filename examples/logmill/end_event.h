// An event that is set when the program shall end: at SIGINT (Ctrl-C), SIGTERM or SIGHUP.
#ifndef LOGMILL_END_EVENT_H
#define LOGMILL_END_EVENT_H

#include <csignal>
#include <vyx/msg.h>
#include <vyx/thread.h>

namespace logmill {

class EndEvent {
  public:
    // Keeps the signals from ending the process, for the calling thread and those it starts from now on. So it
    // is to be called before anything starts a thread.
    static void BlockSignals();

    EndEvent() = default;
    ~EndEvent();
    EndEvent(const EndEvent &) = delete;
    EndEvent &operator=(const EndEvent &) = delete;

    // Makes the event and starts the thread that waits for a signal. False if the system grants neither.
    bool Open();
    VYX_EVENT Handle() const { return m_event; }

  private:
    static void *AwaitSignal(void *pEvent);

    VYX_EVENT m_event = nullptr;
    VYX_Thread m_thread;
    bool m_started = false;
};

} // namespace logmill

#endif
