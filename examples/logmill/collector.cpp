#include "collector.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <vyx/sys.h>

#include "address.h"
#include "connection.h"
#include "mutex_holder.h"

namespace logmill {

namespace {

constexpr int32_t kBacklog = 1024;         // senders that wait for their turn
constexpr uint32_t kStackBytes = 262144;   // of a thread that serves a sender
constexpr uint32_t kIdleTimeOut = 10000;   // milliseconds after which one without a sender ends
constexpr uint32_t kProgressPeriod = 1000; // milliseconds
constexpr size_t kMostNames = 10000;       // that are remembered
constexpr uint32_t kAcceptPause = 100;     // milliseconds, when the system has no descriptors left

bool Fail(const char *what, const std::string &about) {
    VYX_OutputDebug("logmill: %s%s", what, about.c_str());
    return false;
}

} // namespace

Collector::~Collector() {
    StopTimer();
    if (m_pool != nullptr)
        (void)VYX_ThreadPool_Destroy(m_pool);
    m_store.Close();
    if (m_socket != -1)
        (void)VYX_CloseSocket(m_socket, 0);
    for (VYX_EVENT event : {m_acceptable, m_idle})
        if (event != nullptr)
            (void)VYX_CloseEvent(event);
}

int Collector::Run() {
    if (!Open())
        return 1;
    AcceptUntilEnd();
    (void)VYX_ThreadPool_Destroy(m_pool); // waits for the connections, which end because the event is set
    m_pool = nullptr;
    const VYX_TIME_T first = m_first;
    StopTimer();
    m_store.Close();
    PrintSummary(first != 0 ? VYX_TimeNow() - first : 0);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

bool Collector::Open() {
    if (!m_end.Open())
        return Fail("the system grants no threads, semaphores or pipes", "");
    m_acceptable = VYX_CreateEvent(0);
    m_idle = VYX_CreateEvent(0);
    m_pool = VYX_ThreadPool_CreateFlex(0, m_options.connections, kStackBytes, kIdleTimeOut);
    if (m_acceptable == nullptr || m_idle == nullptr || m_pool == nullptr)
        return Fail("the system grants too little", "");
    return Listen() && m_store.Open(m_options.directory, m_options.fileBytes) &&
           (VYX_SetTimer(ShowProgress, this, kProgressPeriod, &m_timer) == VYX_OK || Fail("no timer", "")) &&
           Announce();
}

bool Collector::Listen() {
    VYX_ADDR_T address;
    if (!MakeAddress(m_options.address, m_options.port, address))
        return Fail("this is no address: ", m_options.address);
    m_socket = VYX_CreateSocket(address.sa.sa_family, SOCK_STREAM, 0);
    if (m_socket == -1 || VYX_SetReuseAddr(m_socket, 1) != VYX_OK || VYX_Bind(m_socket, &address) != VYX_OK ||
        VYX_Listen(m_socket, kBacklog) != VYX_OK ||
        VYX_EventSelect(m_socket, m_acceptable, VYX_FD_ACCEPT) != VYX_OK)
        return Fail("cannot listen at ", m_options.address + " port " + std::to_string(m_options.port));
    return true;
}

bool Collector::Announce() {
    VYX_ADDR_T address{};
    (void)VYX_GetAddrBySockFd(m_socket, &address, nullptr);
    std::printf("collecting at %s port %u into %s\n", m_options.address.c_str(), VYX_GetAddrPort(&address),
                m_options.directory.c_str());
    return std::fflush(stdout) == 0 || Fail("cannot write where I listen", "");
}

// Waits for the progress line that is just being printed.
void Collector::StopTimer() {
    (void)VYX_KillTimer(static_cast<int32_t>(m_timer));
    m_timer = VYX_MAX_TIMERS;
}

// While all threads of the pool are busy, newcomers wait in the socket's backlog.
void Collector::AcceptUntilEnd() {
    for (;;) {
        (void)VYX_ResetEvent(m_idle);
        const bool busy = AllBusy();
        const std::array<VYX_EVENT, 2> events = {m_end.Handle(), busy ? m_idle : m_acceptable};
        const uint32_t event = VYX_WaitForMultipleObjects(2, events.data(), 0, VYX_INFINITE);
        if (event == VYX_WAIT_OBJECT_0)
            return;
        if (!busy)
            AcceptOne();
    }
}

bool Collector::AllBusy() {
    const MutexHolder holder(m_mutex);
    return m_active == m_options.connections;
}

void Collector::AcceptOne() {
    const VYX_SOCK_T socket = VYX_Accept(m_socket, nullptr, 0);
    if (socket == -1) { // the peer is gone already, or the system has no descriptors left
        (void)VYX_Sleep(kAcceptPause);
        return;
    }
    auto connection = std::make_unique<Connection>(*this, socket);
    {
        const MutexHolder holder(m_mutex);
        m_first = m_first != 0 ? m_first : VYX_TimeNow();
        ++m_active;
    }
    if (connection->Usable() &&
        VYX_ThreadPool_WorkEx(m_pool, ServeConnection, connection.get(), 1) == VYX_OK) {
        (void)connection.release(); // now the thread's
        return;
    }
    (void)Fail("a sender is turned away: the system grants no thread, semaphore or pipe", "");
    ConnectionDone(connection.release());
}

void *Collector::ServeConnection(void *pConnection) {
    auto *connection = static_cast<Connection *>(pConnection);
    connection->Serve();
    connection->GetCollector().ConnectionDone(connection);
    return nullptr;
}

void Collector::ConnectionDone(Connection *connection) {
    delete connection;
    {
        const MutexHolder holder(m_mutex);
        --m_active;
    }
    (void)VYX_SetEvent(m_idle);
}

std::string Collector::UniqueName(std::string name) {
    const MutexHolder holder(m_mutex);
    ++m_senders;
    const auto known = m_names.find(name);
    if (known == m_names.end() && m_names.size() < kMostNames) {
        m_names[name] = 1;
        return name;
    }
    // More names are not remembered: the number of all senders so far tells them apart.
    return name + "+" + std::to_string(known != m_names.end() ? ++known->second : m_senders);
}

void Collector::ShowProgress(uint32_t /*timer*/, void *pCollector) {
    auto *collector = static_cast<Collector *>(pCollector);
    const uint64_t lines = collector->m_store.Lines();
    if (lines != collector->m_shown)
        VYX_OutputDebug("logmill: %s lines so far", std::to_string(lines).c_str());
    collector->m_shown = lines;
    collector->m_store.MakeFinishedReadable();
}

void Collector::PrintSummary(int64_t microseconds) {
    const double seconds = static_cast<double>(microseconds > 0 ? microseconds : 1) / 1e6;
    const auto lines = static_cast<double>(m_store.Lines());
    std::printf("\nlines      %12" PRIu64 "\nmegabytes  %12.3f\nlines/s    %12.0f\nsenders    %12" PRIu64 "\n"
                "files      %12" PRId64 "   in %s\n\nlines by level word\n",
                m_store.Lines(), static_cast<double>(m_store.Bytes()) / 1e6, lines / seconds, m_senders,
                m_store.Files(), m_options.directory.c_str());
    for (size_t level = 0; level < kLevels; ++level)
        std::printf("  %-8s %12" PRIu64 "\n", LevelName(static_cast<Level>(level)),
                    m_store.Levels().Of(static_cast<Level>(level)));
}

} // namespace logmill
