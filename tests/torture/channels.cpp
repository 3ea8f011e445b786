#include "torture/channels.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include <vyx/vyx.h>

#include "torture/torture.h"
#include "torture/works.h"

namespace torture {

namespace {

// The limit of a wait that another thread ends. It is short where short memory or a stop may keep that thread from it.
uint32_t Long() {
    return In(kLittle | kStops) ? 50 : 60000;
}
// With the wall clock on the move, limits of transfers end early or late.
uint32_t NetLimit() {
    return In(kClock) ? VYX_INFINITE : 60000;
}

// The result of a wait that took nothing: whether that is as promised. Always false.
bool Nothing(bool allowed, const char *what) {
    (void)Check(allowed, what);
    return false;
}
bool MayTimeOut(const char *what) {
    return Nothing(In(kClock | kStops | kLittle), what);
}
bool Interrupted() {
    return errno == EINTR && In(kSignals);
}

// A wait for `limit` ms that can only time out: not too early.
template <class Wait>
void TimesOut(const char *what, int64_t limit, Wait wait) {
    const int64_t start = Milliseconds();
    (void)Check(wait(), what, ": no time-out");
    (void)Check(In(kClock | kStops) || Milliseconds() - start >= limit - 1, what, ": too early");
}

class Semaphore : public Channel {
  public:
    explicit Semaphore(bool bounded) : m_bounded(bounded) { granted = VYX_SemCreate(&m_sem, 0) == VYX_OK; }
    ~Semaphore() override { (void)(!granted || Check(VYX_SemDestroy(&m_sem) == VYX_OK, "SemDestroy")); }
    bool Give() override { return VYX_SemPost(&m_sem) == VYX_OK; }
    bool Take() override {
        if (!m_bounded) // with a restart sem_wait goes on
            return VYX_SemWait(&m_sem) == VYX_OK || Nothing(errno == EINTR && In(kInterrupted), "SemWait");
        m_brief = !m_brief; // a limit that ends when the post comes
        return VYX_SemTimedWait(&m_sem, m_brief ? 1 : Long()) == VYX_OK ||
               (m_brief ? false : MayTimeOut("SemTimedWait"));
    }
    int64_t Left() override {
        int64_t left = 0;
        while (VYX_SemTimedWait(&m_sem, 0) == VYX_OK)
            ++left;
        TimesOut("SemTimedWait", 2, [&] { return VYX_SemTimedWait(&m_sem, 2) == VYX_ERROR; });
        return left;
    }

  private:
    const bool m_bounded;
    bool m_brief = false;
    VYX_SEM_T m_sem = nullptr;
};

class Object : public Channel { // the class with a maximum
  public:
    Object() {
        granted = m_sema.Post() == 0 && m_sema.TimedWait(0) == 0;
    } // one without a semaphore takes nothing
    bool Give() override { return m_sema.Post() == 0; }
    bool Take() override { return m_sema.TimedWait(Long()) == 0 || MayTimeOut("VYX_Sema::TimedWait"); }
    int64_t Left() override { return m_sema.TimedWait(0) == 0 ? 1 : 0; }

  private:
    VYX_Sema m_sema{0, 1};
};

class Condition : public Channel {
  public:
    explicit Condition(bool bounded) : m_bounded(bounded) {
        (void)(VYX_MutexCreate(&m_mutex, VYX_MUTEX_NORMAL) + VYX_CondCreate(&m_cond));
    }
    ~Condition() override {
        (void)Check(VYX_MutexTryLock(&m_mutex) == VYX_OK && VYX_MutexUnlock(&m_mutex) == VYX_OK,
                    "a mutex stays locked");
        (void)Check(VYX_CondDestroy(&m_cond) == 0 && VYX_MutexDestroy(&m_mutex) == VYX_OK,
                    "CondDestroy, MutexDestroy");
    }
    bool Give() override {
        const bool good = VYX_MutexLock(&m_mutex) == VYX_OK;
        ++m_turns;
        return good && VYX_CondBroadCast(&m_cond) == 0 && VYX_MutexUnlock(&m_mutex) == VYX_OK;
    }
    bool Take() override {
        (void)VYX_MutexLock(&m_mutex);
        const Finally unlock([this] { (void)VYX_MutexUnlock(&m_mutex); });
        while (m_turns == 0 && !over)
            (void)Check(VYX_CondTimedWait(&m_cond, &m_mutex, m_bounded ? Long() : VYX_INFINITE) ==
                            (m_bounded ? VYX_ERROR : 0),
                        "CondTimedWait");
        const bool good = m_turns > 0;
        m_turns -= good ? 1 : 0;
        return good;
    }
    int64_t Left() override { return m_turns; }

  private:
    const bool m_bounded;
    VYX_MUTEX_T m_mutex;
    VYX_COND_T m_cond;
    int m_turns = 0;
};

class Queue : public Channel { // for several threads
  public:
    Queue() { granted = VYX_MsgQCreateEx(&m_queue) == VYX_OK; }
    ~Queue() override { // refused without the started library
        (void)(!granted || Check(VYX_MsgQDestroyEx(m_queue) == VYX_OK || In(kStops), "MsgQDestroy"));
    }
    bool Give() override {
        thread_local VYX_MSG_BLOCK_T block;
        block.iPriority = m_turn++ % 100;
        block.iDataLen = 1000;
        std::memset(block.szData, block.iPriority, 1000);
        const bool good = VYX_MsgQSendEx(m_queue, &block) == VYX_OK;
        m_sum += good ? block.iPriority : 0;
        return good;
    }
    bool Take() override { return Receive(In(kLittle | kStops) || taken % 2 == 0 ? Long() : VYX_INFINITE); }
    int64_t Left() override {
        int64_t left = 0;
        if (In(kStops)) // after a start another pair may have the same place
            return given - taken;
        while (Receive(1))
            ++left;
        TimesOut("MsgQReceive", 2, [this] { return !Receive(2); });
        (void)Check(m_sum == 0, "other messages than were sent");
        return left;
    }

  private:
    bool Receive(uint32_t limit) {
        thread_local VYX_MSG_BLOCK_T block;
        block.iDataLen = VYX_MSG_DATA_SIZE;
        if (VYX_MsgQReceiveEx(m_queue, &block, static_cast<int32_t>(limit)) != VYX_OK) {
            over = over || In(kStops);
            return limit < 50 ? false : MayTimeOut("MsgQReceive");
        }
        m_sum -= block.iPriority;
        return In(kStops) || Check(block.iDataLen == 1000 && block.szData[0] == block.iPriority &&
                                       std::memcmp(block.szData, block.szData + 1, 999) == 0,
                                   "MsgQReceive: another message");
    }
    VYX_HANDLE_MSGQ m_queue = nullptr;
    std::atomic<int> m_turn{0};
    std::atomic<int64_t> m_sum{0}; // of the priorities in the queue
};

class Event : public Channel {
  public:
    explicit Event(bool several) : m_several(several) { granted = m_event != nullptr && m_never != nullptr; }
    ~Event() override { (void)(VYX_CloseEvent(m_event) + VYX_CloseEvent(m_never)); }
    bool Give() override { return VYX_SetEvent(m_event) == VYX_TRUE; }
    bool Take() override {
        const VYX_EVENT two[] = {m_never, m_event};
        const uint32_t result = m_several ? VYX_WaitForMultipleObjects(2, two, 0, Long())
                                          : VYX_WaitForSingleObject(m_event, Long());
        if (result == VYX_WAIT_OBJECT_0 + (m_several ? 1 : 0))
            return Check(VYX_ResetEvent(m_event) == VYX_TRUE, "ResetEvent");
        if (result == VYX_WAIT_TIMEOUT)
            return Nothing(Long() < 1000, "a wait for events times out");
        return Nothing(!m_several && result == VYX_WAIT_FAILED && Interrupted(), "WaitForObject");
    }
    int64_t Left() override {
        TimesOut("WaitForMultipleObjects", 2,
                 [this] { return VYX_WaitForMultipleObjects(1, &m_never, 0, 2) == VYX_WAIT_TIMEOUT; });
        const bool set = VYX_WaitForSingleObject(m_event, 0) == VYX_WAIT_OBJECT_0;
        return over ? given - taken : set ? 1 : 0;
    }

  private:
    const bool m_several;
    const VYX_EVENT m_event = VYX_CreateEvent(0), m_never = VYX_CreateEvent(0);
};

// A pair of sockets; each turn is a record of bytes.
constexpr int32_t kRecord = 20000; // more than the buffers hold
class Bytes : public Channel {
  public:
    using Send = bool(VYX_SOCK_T socket, const char *data);
    using Receive = bool(VYX_SOCK_T socket, char *data);
    Bytes(Send *send, Receive *receive) : m_send(send), m_receive(receive) {
        granted = socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends) == 0 &&
                  VYX_SetBuffSize(m_ends[0], 4096, 4096) == 0 && VYX_SetBuffSize(m_ends[1], 4096, 4096) == 0;
    }
    ~Bytes() override {
        for (const VYX_SOCK_T end : m_ends)
            (void)(end == VYX_INVALID_SOCKET ||
                   (Check((fcntl(end, F_GETFL) & O_NONBLOCK) == 0, "a socket stays non-blocking") &&
                    Check(VYX_CloseSocket(end, 0) == 0, "CloseSocket")));
    }
    bool Give() override {
        thread_local char data[kRecord];
        std::memset(data, static_cast<int>(given & 0x7f), kRecord);
        return m_send(m_ends[0], data) || Nothing(over, "a send");
    }
    bool Take() override {
        thread_local char data[kRecord];
        return (m_receive(m_ends[1], data) && data[0] == static_cast<char>(taken & 0x7f) &&
                std::memcmp(data, data + 1, kRecord - 1) == 0) ||
               Nothing(over, "other bytes than were sent");
    }
    int64_t Left() override {
        char byte;
        if (!over && !In(kClock)) // set back, it prolongs the wait, which does not look up
            TimesOut("Recvn", 2, [&] {
                const int32_t count = VYX_Recvn(m_ends[1], &byte, 1, 2);
                return count == 0 || (count == -1 && Interrupted());
            });
        return given - taken;
    }
    void Wake() override { (void)shutdown(m_ends[0], SHUT_RDWR); }

  private:
    Send *const m_send;
    Receive *const m_receive;
    VYX_SOCK_T m_ends[2] = {VYX_INVALID_SOCKET, VYX_INVALID_SOCKET};
};

bool SendWhole(VYX_SOCK_T socket, const char *data) {
    return VYX_Sendn(socket, data, kRecord, NetLimit()) == kRecord;
}
bool ReceiveWhole(VYX_SOCK_T socket, char *data) {
    return VYX_Recvn(socket, data, kRecord, NetLimit()) == kRecord;
}
// One call after the other for each part.
template <class Byte, class Transfer>
bool InParts(Byte *data, Transfer transfer) {
    for (int32_t done = 0; done < kRecord;) {
        const int32_t count = transfer(data + done, kRecord - done);
        if (count == 0 || (count < 0 && !Interrupted()))
            return false;
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
// Each of the calls that look whether there is something.
bool ReceivePolled(VYX_SOCK_T socket, char *data) {
    return InParts(data, [=](char *part, int32_t size) {
        struct pollfd look = {socket, POLLIN, 0};
        uint32_t limit = VYX_INFINITE;
        fd_set set;
        FD_ZERO(&set);
        FD_SET(socket % FD_SETSIZE, &set);
        if (size % 3 == 0)
            (void)Check(VYX_PollEx(&look, 1, &limit) == 1, "PollEx");
        else if (size % 3 == 1 || socket >= FD_SETSIZE)
            (void)Check(VYX_Poll(&look, 1, -1) == 1 || Interrupted(), "Poll");
        else
            (void)Check(VYX_Select(socket + 1, &set, nullptr, nullptr, nullptr) == 1 || Interrupted(),
                        "Select");
        return VYX_Recv(socket, part, size);
    });
}
bool ReceiveSelected(VYX_SOCK_T socket, char *data) {
    const VYX_EVENT event = VYX_CreateEvent(0);
    const Finally close([=] { (void)(VYX_CloseEvent(event) + VYX_SetNonBlock(socket, 0)); });
    if (event == nullptr || VYX_EventSelect(socket, event, VYX_FD_READ) != VYX_OK)
        return Check(In(kLittle), "EventSelect") && ReceiveWhole(socket, data);
    return InParts(data, [=](char *part, int32_t size) {
        while (VYX_WaitForMultipleObjects(1, &event, 0, Long()) != VYX_WAIT_OBJECT_0)
            (void)Check(Long() < 1000, "a wait for a socket times out");
        return VYX_Recv(socket, part, size);
    });
}

// Many pairs of sockets, all watched by one wait; each turn is a record through every pair.
class Watched : public Channel {
  public:
    Watched() : m_pairs(In(kLoad) ? 100 : 2) {
        for (Watch &pair : m_pairs) {
            granted = granted && pair.event != nullptr &&
                      socketpair(AF_UNIX, SOCK_STREAM, 0, pair.ends) == 0 &&
                      VYX_EventSelect(pair.ends[1], pair.event, VYX_FD_READ) == VYX_OK;
            m_events.push_back(pair.event);
        }
    }
    ~Watched() override {
        for (const Watch &pair : m_pairs) {
            (void)(pair.event == nullptr || Check(VYX_CloseEvent(pair.event) == VYX_TRUE, "CloseEvent"));
            for (const VYX_SOCK_T end : pair.ends)
                (void)(end == VYX_INVALID_SOCKET || Check(VYX_CloseSocket(end, 0) == 0, "CloseSocket"));
        }
    }
    bool Give() override {
        char record[kSize];
        std::memset(record, static_cast<int>(given & 0x7f), kSize);
        return std::all_of(m_pairs.begin(), m_pairs.end(), [&](const Watch &pair) {
            return VYX_Sendn(pair.ends[0], record, kSize, NetLimit()) == kSize;
        });
    }
    bool Take() override { // from one pair; a turn when the records of all are whole
        const uint32_t index =
            VYX_WaitForMultipleObjects(static_cast<int32_t>(m_events.size()), m_events.data(), 0, Long());
        if (index >= m_events.size())
            return Nothing(index == VYX_WAIT_TIMEOUT && Long() < 1000, "a wait for sockets");
        Watch &pair = m_pairs[index];
        char data[kSize];
        const int32_t count = VYX_Recv(pair.ends[1], data, kSize - pair.received);
        if (count <= 0)
            return Nothing(over || (count < 0 && Interrupted()), "a socket whose event is set has nothing");
        (void)Check(std::count(data, data + count, static_cast<char>(taken & 0x7f)) == count,
                    "other bytes than were sent");
        pair.received += count;
        m_whole += pair.received == kSize ? 1 : 0;
        if (m_whole < m_pairs.size())
            return false;
        m_whole = 0;
        for (Watch &each : m_pairs)
            each.received = 0;
        return true;
    }
    void Wake() override {
        for (const Watch &pair : m_pairs)
            (void)shutdown(pair.ends[0], SHUT_RDWR);
    }

  private:
    static constexpr int32_t kSize = 1000;
    struct Watch {
        VYX_SOCK_T ends[2] = {VYX_INVALID_SOCKET, VYX_INVALID_SOCKET};
        VYX_EVENT event = VYX_CreateEvent(0);
        int32_t received = 0; // of the record
    };
    std::vector<Watch> m_pairs;
    std::vector<VYX_EVENT> m_events;
    size_t m_whole = 0; // records of this turn
};

class Connection : public Channel { // each turn is one
  public:
    Connection() {
        granted = m_socket != VYX_INVALID_SOCKET &&
                  VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0, &m_address) == VYX_OK &&
                  VYX_Bind(m_socket, &m_address) == 0 && VYX_Listen(m_socket, 16) == 0 &&
                  VYX_SetNonBlock(m_socket, 1) == 0 &&
                  VYX_GetAddrBySockFd(m_socket, &m_address, nullptr) == VYX_OK;
    }
    ~Connection() override { (void)Closed(m_socket); }
    bool Give() override {
        const VYX_SOCK_T socket = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
        const Finally close([=] { (void)Closed(socket); });
        return socket != VYX_INVALID_SOCKET && VYX_LingerOn(socket, 0) == 0 && // no port stays taken
               VYX_ConnectWithTimeOut(socket, &m_address, NetLimit() / 4) == 0;
    }
    bool Take() override {
        const VYX_SOCK_T socket = VYX_Accept(m_socket, nullptr, Long());
        const Finally close([=] { (void)Closed(socket); });
        return socket != VYX_INVALID_SOCKET || Nothing(In(kLittle | kClock | kStops), "Accept");
    }

  private:
    static bool Closed(VYX_SOCK_T socket) {
        return socket == VYX_INVALID_SOCKET || Check(VYX_CloseSocket(socket, 0) == 0, "CloseSocket");
    }
    const VYX_SOCK_T m_socket = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
    VYX_ADDR_T m_address{};
};

template <class Kind, auto... kArguments>
std::unique_ptr<Channel> Make() {
    return std::make_unique<Kind>(kArguments...);
}

} // namespace

const std::vector<ChannelKind> kChannelKinds = {
    {"sem", Make<Semaphore, false>},
    {"bounded-sem", Make<Semaphore, true>, 2500},
    {"sema", Make<Object>},
    {"cond", Make<Condition, false>},
    {"bounded-cond", Make<Condition, true>},
    {"queue", Make<Queue>, 49, kMostPartners}, // and one alone
    {"event", Make<Event, false>},
    {"events", Make<Event, true>},
    {"sendn-recvn", Make<Bytes, SendWhole, ReceiveWhole>, 1, 1, false},
    {"send-recv", Make<Bytes, SendParts, ReceiveParts>, 1, 1, false},
    {"recv-limited", Make<Bytes, SendWhole, ReceiveLimited>, 1, 1, false},
    {"polls", Make<Bytes, SendParts, ReceivePolled>, 1, 1, false},
    {"selected", Make<Bytes, SendWhole, ReceiveSelected>, 50, 1, false},
    {"watched", Make<Watched>, 5}, // 2,000 sockets
    {"connect-accept", Make<Connection>},
};

} // namespace torture
