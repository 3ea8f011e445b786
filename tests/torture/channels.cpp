#include "torture/channels.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <vyx/vyx.h>

#include "torture/torture.h"

namespace torture {

Weather g_weather{};

namespace {

// A limit that is never reached unless the weather is such that a wait has to look up.
uint32_t Long() {
    return g_weather.little || g_weather.stops ? 50 : 20000;
}

// The result of a wait that took nothing: whether that is as promised. Always false.
bool Nothing(bool allowed, const char *what) {
    (void)Check(allowed, what);
    return false;
}
bool Interrupted(const char *what) {
    return Nothing(errno == EINTR && g_weather.signals, what);
}

// A wait for `limit` ms that can only time out: not too early.
template <class Wait>
void TimesOut(const char *what, int64_t limit, Wait wait) {
    const int64_t start = Milliseconds();
    (void)Check(wait(), std::string(what) + ": no time-out");
    (void)Check(g_weather.clock || g_weather.stops || Milliseconds() - start >= limit - 1,
                std::string(what) + ": too early");
}

class Semaphores : public Channel {
  public:
    ~Semaphores() override {
        for (VYX_SEM_T &sem : m_sems)
            if (sem != nullptr)
                (void)Check(VYX_SemDestroy(&sem) == VYX_OK, "SemDestroy");
    }
    bool Open() override {
        return VYX_SemCreate(&m_sems[0], 0) == VYX_OK && VYX_SemCreate(&m_sems[1], 0) == VYX_OK;
    }
    bool Give(size_t to) override { return VYX_SemPost(&m_sems[to]) == VYX_OK; }
    bool Take(size_t me) override { // with a restart sem_wait goes on
        return VYX_SemWait(&m_sems[me]) == VYX_OK ||
               Nothing(errno == EINTR && g_weather.interrupted, "SemWait");
    }
    bool Empty() override {
        TimesOut("SemTimedWait", 2, [&] { return VYX_SemTimedWait(&m_sems[0], 2) == VYX_ERROR; });
        return VYX_SemTimedWait(&m_sems[0], 0) == VYX_ERROR && VYX_SemTimedWait(&m_sems[1], 0) == VYX_ERROR;
    }

  protected:
    std::array<VYX_SEM_T, 2> m_sems{};
};

class BoundedSemaphores : public Semaphores {
    bool Take(size_t me) override {
        return VYX_SemTimedWait(&m_sems[me], Long()) == VYX_OK ||
               Nothing(g_weather.clock || g_weather.stops || g_weather.little, "SemTimedWait");
    }
};

class Objects : public Channel { // the class with a maximum
    bool Open() override {       // one that could not be made takes nothing
        return m_semas[0].Post() == 0 && m_semas[0].TimedWait(0) == 0 && m_semas[1].Post() == 0 &&
               m_semas[1].TimedWait(0) == 0;
    }
    bool Give(size_t to) override { return m_semas[to].Post() == 0; }
    bool Take(size_t me) override {
        return m_semas[me].TimedWait(Long()) == 0 ||
               Nothing(g_weather.clock || g_weather.stops || g_weather.little, "VYX_Sema::TimedWait");
    }
    VYX_Sema m_semas[2] = {{0, 1}, {0, 1}};
};

class Conditions : public Channel {
  public:
    explicit Conditions(bool bounded) : m_bounded(bounded) {
        (void)VYX_MutexCreate(&m_mutex, VYX_MUTEX_NORMAL);
        (void)VYX_CondCreate(&m_cond);
    }
    ~Conditions() override {
        (void)Check(VYX_CondDestroy(&m_cond) == 0 && VYX_MutexDestroy(&m_mutex) == VYX_OK,
                    "CondDestroy, MutexDestroy");
    }
    bool Open() override { return true; }
    bool Give(size_t to) override {
        const bool good = VYX_MutexLock(&m_mutex) == VYX_OK;
        ++m_turns[to];
        return good && VYX_CondBroadCast(&m_cond) == 0 && VYX_MutexUnlock(&m_mutex) == VYX_OK;
    }
    bool Take(size_t me) override {
        (void)VYX_MutexLock(&m_mutex);
        while (m_turns[me] == 0 && !over)
            (void)Check(VYX_CondTimedWait(&m_cond, &m_mutex, m_bounded ? Long() : VYX_INFINITE) ==
                            (m_bounded ? VYX_ERROR : 0),
                        "CondTimedWait");
        const bool good = m_turns[me] > 0;
        m_turns[me] -= good ? 1 : 0;
        return VYX_MutexUnlock(&m_mutex) == VYX_OK && good;
    }
    bool Empty() override { return m_turns[0] == 0 && m_turns[1] == 0; }

  private:
    const bool m_bounded;
    VYX_MUTEX_T m_mutex;
    VYX_COND_T m_cond;
    int m_turns[2] = {0, 0};
};

class Queues : public Channel {
  public:
    ~Queues() override {
        for (VYX_HANDLE_MSGQ queue : m_queues)
            if (queue != nullptr)
                (void)VYX_MsgQDestroyEx(queue); // refused without the started library
    }
    bool Open() override {
        return VYX_MsgQCreateEx(&m_queues[0]) == VYX_OK && VYX_MsgQCreateEx(&m_queues[1]) == VYX_OK;
    }
    bool Give(size_t to) override {
        static thread_local VYX_MSG_BLOCK_T block;
        block.iPriority = m_turn[to];
        block.iDataLen = 1000;
        std::memset(block.szData, m_turn[to] & 0x7f, 1000);
        const bool good = VYX_MsgQSendEx(m_queues[to], &block) == VYX_OK;
        m_turn[to] += good ? 1 : 0;
        over = over || (g_weather.stops && !good);
        return good;
    }
    bool Take(size_t me) override {
        static thread_local VYX_MSG_BLOCK_T block;
        block.iDataLen = VYX_MSG_DATA_SIZE;
        const bool bounded = g_weather.little || g_weather.stops || m_taken[me] % 2 == 0;
        if (VYX_MsgQReceiveEx(m_queues[me], &block, bounded ? static_cast<int32_t>(Long()) : -1) != VYX_OK) {
            over = over || g_weather.stops;
            return Nothing(g_weather.stops || g_weather.clock || g_weather.little, "MsgQReceive");
        }
        const int turn = m_taken[me]++;
        return g_weather.stops ||
               Check(block.iPriority == turn && block.iDataLen == 1000 && block.szData[0] == (turn & 0x7f) &&
                         block.szData[999] == (turn & 0x7f),
                     "MsgQReceive: another message");
    }
    bool Empty() override {
        VYX_MSG_BLOCK_T block;
        block.iDataLen = VYX_MSG_DATA_SIZE;
        TimesOut("MsgQReceive", 2, [&] { return VYX_MsgQReceiveEx(m_queues[0], &block, 2) == VYX_ERROR; });
        return true;
    }

  private:
    std::array<VYX_HANDLE_MSGQ, 2> m_queues{};
    int m_turn[2] = {0, 0}, m_taken[2] = {0, 0}; // each only for one thread
};

class Events : public Channel {
  public:
    explicit Events(bool several) : m_several(several) {}
    ~Events() override {
        for (VYX_EVENT event : m_events)
            (void)VYX_CloseEvent(event);
    }
    bool Open() override {
        for (VYX_EVENT &event : m_events)
            event = VYX_CreateEvent(0);
        return m_events[0] != nullptr && m_events[1] != nullptr && m_events[2] != nullptr;
    }
    bool Give(size_t to) override { return VYX_SetEvent(m_events[to]) == VYX_TRUE; }
    bool Take(size_t me) override {
        const VYX_EVENT two[] = {m_events[2], m_events[me]};
        const uint32_t result = m_several ? VYX_WaitForMultipleObjects(2, two, 0, Long())
                                          : VYX_WaitForSingleObject(m_events[me], Long());
        if (result == VYX_WAIT_OBJECT_0 + (m_several ? 1 : 0))
            return Check(VYX_ResetEvent(m_events[me]) == VYX_TRUE, "ResetEvent");
        if (result == VYX_WAIT_TIMEOUT)
            return Nothing(Long() < 1000, "a wait for events times out");
        return Nothing(!m_several && result == VYX_WAIT_FAILED && errno == EINTR && g_weather.signals,
                       "WaitForObject");
    }
    bool Empty() override {
        if (m_several)
            TimesOut("WaitForMultipleObjects", 2, [&] {
                return VYX_WaitForMultipleObjects(3, m_events.data(), 0, 2) == VYX_WAIT_TIMEOUT;
            });
        return VYX_WaitForSingleObject(m_events[0], 0) != VYX_WAIT_OBJECT_0;
    }

  private:
    const bool m_several;
    std::array<VYX_EVENT, 3> m_events{};
};

// Sockets; each turn is a record of bytes.
class Bytes : public Channel {
  public:
    using Send = bool(VYX_SOCK_T socket, const char *data);
    using Receive = bool(VYX_SOCK_T socket, char *data);
    static constexpr int32_t kSize = 40000; // more than the buffers hold
    Bytes(Send *send, Receive *receive) : m_send(send), m_receive(receive) {}
    ~Bytes() override {
        for (VYX_SOCK_T socket : m_sockets)
            if (socket != VYX_INVALID_SOCKET)
                (void)Check(VYX_CloseSocket(socket, 0) == 0, "CloseSocket");
    }
    bool Open() override {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
            return false;
        m_sockets = {pair[0], pair[1]};
        return VYX_SetBuffSize(pair[0], 4096, 4096) == 0 && VYX_SetBuffSize(pair[1], 4096, 4096) == 0;
    }
    bool Give(size_t to) override {
        thread_local char data[kSize];
        std::memset(data, ++m_given[to] & 0x7f, kSize);
        return Check(m_send(m_sockets[1 - to], data), "a send");
    }
    bool Take(size_t me) override {
        thread_local char data[kSize];
        if (!m_receive(m_sockets[me], data))
            return false;
        const auto turn = static_cast<char>(++m_taken[me] & 0x7f);
        return Check(data[0] == turn && data[kSize - 1] == turn &&
                         std::memcmp(data, data + 1, kSize - 1) == 0,
                     "other bytes than were sent");
    }
    bool Empty() override {
        char byte;
        if (g_weather.clock) // set back, it prolongs the wait, which does not look up
            return true;
        TimesOut("Recvn", 2, [&] {
            const int32_t count = VYX_Recvn(m_sockets[0], &byte, 1, 2);
            return count == 0 || (count == -1 && errno == EINTR && g_weather.signals);
        });
        return true;
    }

  private:
    Send *const m_send;
    Receive *const m_receive;
    std::array<VYX_SOCK_T, 2> m_sockets{VYX_INVALID_SOCKET, VYX_INVALID_SOCKET};
    int m_given[2] = {0, 0}, m_taken[2] = {0, 0};
};

// With the wall clock on the move, their limits end early or late.
uint32_t NetLimit() {
    return g_weather.clock ? VYX_INFINITE : 20000;
}
bool SendWhole(VYX_SOCK_T socket, const char *data) {
    return VYX_Sendn(socket, data, Bytes::kSize, NetLimit()) == Bytes::kSize;
}
bool ReceiveWhole(VYX_SOCK_T socket, char *data) {
    return Check(VYX_Recvn(socket, data, Bytes::kSize, NetLimit()) == Bytes::kSize, "Recvn");
}
// One call after the other for each part: `transfer` gives a count, or -1 and whether that may be.
template <class Byte, class Transfer>
bool InParts(Byte *data, Transfer transfer) {
    for (int32_t done = 0; done < Bytes::kSize;) {
        const int32_t count = transfer(data + done, Bytes::kSize - done);
        if (count == 0 || (count < 0 && !Check(errno == EINTR && g_weather.signals, "a transfer")))
            return Check(false, "the end of a stream");
        done += count > 0 ? count : 0;
    }
    return true;
}
bool SendParts(VYX_SOCK_T socket, const char *data) {
    return InParts(data, [=](const char *part, int32_t size) { return VYX_Send(socket, part, size); });
}
bool ReceiveParts(VYX_SOCK_T socket, char *data) {
    return InParts(data, [=](char *part, int32_t size) { return VYX_Recv(socket, part, size); });
}
bool ReceiveLimited(VYX_SOCK_T socket, char *data) {
    return InParts(
        data, [=](char *part, int32_t size) { return VYX_RecvWithTimeOut(socket, part, size, NetLimit()); });
}
bool ReceivePolled(VYX_SOCK_T socket, char *data) {
    return InParts(data, [=](char *part, int32_t size) {
        struct pollfd look = {socket, POLLIN, 0};
        uint32_t limit = VYX_INFINITE;
        switch (size % 3) {
        case 0:
            (void)Check(VYX_PollEx(&look, 1, &limit) == 1, "PollEx");
            break;
        case 1:
            while (VYX_Poll(&look, 1, -1) == -1)
                (void)Interrupted("Poll");
            break;
        default:
            fd_set set;
            FD_ZERO(&set);
            FD_SET(socket, &set);
            if (VYX_Select(socket + 1, &set, nullptr, nullptr, nullptr) == -1)
                (void)Interrupted("Select");
        }
        return VYX_Recv(socket, part, size);
    });
}

// Each turn is a connection.
class Connections : public Channel {
  public:
    ~Connections() override {
        for (VYX_SOCK_T socket : m_sockets)
            if (socket != VYX_INVALID_SOCKET)
                (void)VYX_CloseSocket(socket, 0);
    }
    bool Open() override {
        for (size_t side = 0; side < 2; ++side) {
            VYX_SOCK_T &socket = m_sockets[side];
            socket = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
            VYX_ADDR_T &address = m_addresses[side];
            if (socket == VYX_INVALID_SOCKET ||
                VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0, &address) != VYX_OK ||
                VYX_Bind(socket, &address) != 0 || VYX_Listen(socket, 4) != 0 ||
                VYX_SetNonBlock(socket, 1) != 0 || VYX_GetAddrBySockFd(socket, &address, nullptr) != VYX_OK)
                return false;
        }
        return true;
    }
    bool Give(size_t to) override {
        const VYX_SOCK_T socket = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
        const bool good = socket != VYX_INVALID_SOCKET &&
                          VYX_ConnectWithTimeOut(socket, &m_addresses[to], NetLimit() / 4) == 0 &&
                          VYX_LingerOn(socket, 0) == 0; // no port stays taken
        return socket != VYX_INVALID_SOCKET && VYX_CloseSocket(socket, 0) == 0 && good;
    }
    bool Take(size_t me) override {
        const VYX_SOCK_T socket = VYX_Accept(m_sockets[me], nullptr, g_weather.little ? 50 : 20000);
        return socket != VYX_INVALID_SOCKET ? Check(VYX_CloseSocket(socket, 0) == 0, "CloseSocket")
                                            : Nothing(g_weather.little || g_weather.clock, "Accept");
    }

  private:
    std::array<VYX_SOCK_T, 2> m_sockets{VYX_INVALID_SOCKET, VYX_INVALID_SOCKET};
    std::array<VYX_ADDR_T, 2> m_addresses{};
};

template <class Kind>
std::unique_ptr<Channel> Make() {
    return std::make_unique<Kind>();
}
template <class Kind, bool kArgument>
std::unique_ptr<Channel> Make() {
    return std::make_unique<Kind>(kArgument);
}
template <Bytes::Send *kSend, Bytes::Receive *kReceive>
std::unique_ptr<Channel> Make() {
    return std::make_unique<Bytes>(kSend, kReceive);
}

} // namespace

const std::vector<ChannelKind> &ChannelKinds() {
    static const std::vector<ChannelKind> kinds = {
        {"sem", Make<Semaphores>},
        {"bounded-sem", Make<BoundedSemaphores>},
        {"sema", Make<Objects>},
        {"cond", Make<Conditions, false>},
        {"bounded-cond", Make<Conditions, true>},
        {"queue", Make<Queues>},
        {"event", Make<Events, false>},
        {"events", Make<Events, true>},
        {"sendn-recvn", Make<SendWhole, ReceiveWhole>},
        {"send-recv", Make<SendParts, ReceiveParts>},
        {"recv-limited", Make<SendWhole, ReceiveLimited>},
        {"polls", Make<SendParts, ReceivePolled>},
        {"connect-accept", Make<Connections>},
    };
    return kinds;
}

} // namespace torture
