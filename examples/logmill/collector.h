// The collector: accepts senders, has each served by a thread of a fixed pool, and ends when it is told to.
#ifndef LOGMILL_COLLECTOR_H
#define LOGMILL_COLLECTOR_H

#include <cstdint>
#include <map>
#include <string>
#include <vyx/msg.h>
#include <vyx/net.h>
#include <vyx/pool.h>
#include <vyx/sync.h>
#include <vyx/time.h>

#include "end_event.h"
#include "options.h"
#include "store.h"

namespace logmill {

class Connection;

class Collector {
  public:
    explicit Collector(const Options &options) : m_options(options) {}
    ~Collector();
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    // Everything up to its orderly end. The exit status.
    int Run();

    // For the connections: is set when they shall end; where their lines go; and a name that no other sender has.
    VYX_EVENT End() const { return m_end.Handle(); }
    Store &GetStore() { return m_store; }
    std::string UniqueName(std::string name);

  private:
    bool Open();
    bool Listen();
    bool Announce();
    void StopTimer();
    void AcceptUntilEnd();
    void AcceptOne();
    bool AllBusy();
    static void *ServeConnection(void *pConnection);
    void ConnectionDone(Connection *connection);
    static void ShowProgress(uint32_t timer, void *pCollector);
    void PrintSummary(int64_t microseconds);

    const Options &m_options;
    EndEvent m_end;
    Store m_store;
    VYX_SOCK_T m_socket = -1;
    VYX_EVENT m_acceptable = nullptr; // somebody wants to connect
    VYX_EVENT m_idle = nullptr;       // a connection is done
    VYX_HANDLE_THREADPOOL m_pool = nullptr;
    uint32_t m_timer = VYX_MAX_TIMERS; // an id that no timer has: none
    uint64_t m_shown = 0;              // lines that the progress line has told of; the timer's
    VYX_Mutex m_mutex;                 // guards what follows
    uint32_t m_active = 0;
    VYX_TIME_T m_first = 0;                  // when the first sender came
    uint64_t m_senders = 0;                  // that greeted
    std::map<std::string, uint64_t> m_names; // how many of them called themselves so
};

} // namespace logmill

#endif
