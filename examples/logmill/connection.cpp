#include "connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <vyx/sys.h>
#include <vyx/time.h>

#include "collector.h"

namespace logmill {

namespace {

constexpr size_t kReadBytes = 65536;
constexpr int kReadsAfterEnd = 64;                 // of what had arrived when the collector was told to end
constexpr int64_t kGreetingMicroseconds = 5000000; // that a peer has to say that it is a sender
constexpr uint32_t kAnswerTimeOut = 5000;          // milliseconds that a sender has to take its answer
constexpr int64_t kLingerMicroseconds = 1000000;   // and to end its side after that

// What a sender may call itself: the log shows it in brackets, and takes slashes for a path.
bool IsName(std::string_view name) {
    return !name.empty() && name.size() <= kLongestName &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-") ==
               std::string_view::npos;
}

} // namespace

Connection::Connection(Collector &collector, VYX_SOCK_T socket)
    : m_collector(collector), m_socket(socket), m_readable(VYX_CreateEvent(0)), m_batch(this),
      m_stored(1, 1) {
    m_usable = m_readable != nullptr &&
               VYX_EventSelect(socket, m_readable, VYX_FD_READ | VYX_FD_CLOSE) == VYX_OK &&
               m_stored.TimedWait(0) == VYX_OK; // its count is there if the system has granted it
}

Connection::~Connection() {
    if (m_readable != nullptr)
        (void)VYX_CloseEvent(m_readable);
    (void)VYX_CloseSocket(m_socket, 0);
}

void Connection::Serve() {
    ReadToEnd();
    if (!m_name.empty()) {
        (void)Flush();
        AwaitStored();
    }
    Answer();
}

// Milliseconds for which to wait for more. A sender may be silent for as long as it likes, but not before its greeting:
// strangers would hold the places of senders.
uint32_t Connection::Patience(VYX_TIME_T start) const {
    if (!m_name.empty())
        return VYX_INFINITE;
    const VYX_TIME_T left = std::min(start + kGreetingMicroseconds - VYX_TimeNow(), kGreetingMicroseconds);
    return static_cast<uint32_t>(std::max<VYX_TIME_T>(left, 0) / 1000);
}

// Up to the sender's end. When the collector ends, a line that has not arrived whole is left out.
void Connection::ReadToEnd() {
    const std::array<VYX_EVENT, 2> events = {m_collector.End(), m_readable};
    const VYX_TIME_T start = VYX_TimeNow();
    Heard heard = Heard::Nothing;
    while (heard <= Heard::Nothing &&
           VYX_WaitForMultipleObjects(2, events.data(), 0, Patience(start)) == VYX_WAIT_OBJECT_0 + 1)
        heard = Read();
    if (heard <= Heard::Nothing) {
        heard = Heard::Data;
        for (int n = 0; heard == Heard::Data && n < kReadsAfterEnd; ++n)
            heard = Read();
    }
    if (heard == Heard::End && !m_name.empty() && (m_inLine || !m_text.empty()))
        (void)AddPiece(m_text, true);
}

Connection::Heard Connection::Read() {
    const size_t before = m_text.size();
    m_text.resize(before + kReadBytes);
    const int32_t count = VYX_Recv(m_socket, &m_text[before], kReadBytes);
    m_text.resize(before + (count > 0 ? static_cast<size_t>(count) : 0));
    if (count == 0)
        return Heard::End;
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? Heard::Nothing : Heard::Failure;
    return (!m_name.empty() || Greet()) && Cut() && Flush() ? Heard::Data : Heard::Failure;
}

// The first line tells the sender's name. False if it is no sender.
bool Connection::Greet() {
    const size_t end = m_text.find('\n');
    const std::string_view greeting(kGreeting);
    if (end == std::string::npos)
        return m_text.size() <= greeting.size() + kLongestName;
    const std::string_view line = std::string_view(m_text).substr(0, end);
    if (line.substr(0, greeting.size()) != greeting || !IsName(line.substr(greeting.size())))
        return false;
    m_name = m_collector.UniqueName(std::string(line.substr(greeting.size())));
    m_text.erase(0, end + 1);
    return true;
}

// Adds what has arrived whole: lines, and the beginnings of lines that are longer than a piece.
bool Connection::Cut() {
    if (m_name.empty())
        return true;
    std::replace(m_text.begin(), m_text.end(), '\0', '?'); // a line of the log is text
    std::string_view left = m_text;
    for (bool good = true; good;) {
        const size_t feed = left.substr(0, kPieceBytes + 1).find('\n');
        const bool last = feed != std::string_view::npos;
        if (!last && left.size() <= kPieceBytes)
            break;
        good = AddPiece(left.substr(0, last ? feed : kPieceBytes), last);
        if (!good)
            return false;
        left.remove_prefix(last ? feed + 1 : kPieceBytes);
    }
    m_text.erase(0, m_text.size() - left.size());
    return true;
}

bool Connection::AddPiece(std::string_view text, bool last) {
    if (!m_inLine) {
        ++m_line;
        m_level = FindLevel(text);
    }
    m_inLine = !last;
    const Piece piece{m_line, m_level, last, text};
    return m_batch.Add(piece) || (Flush() && m_batch.Add(piece));
}

// Hands the batch over, after the one before has been stored: so a sender's lines keep their order although worse
// lines of other senders overtake them, and a sender that is faster than the log is slowed down.
bool Connection::Flush() {
    if (m_batch.Empty())
        return true;
    AwaitStored();
    m_pending = m_collector.GetStore().Put(m_batch.Message());
    m_batch.Clear();
    return m_pending;
}

void Connection::AwaitStored() {
    while (m_pending && m_stored.Wait() != VYX_OK) { // a signal handler ran: the store still has the batch
    }
    m_pending = false;
}

void Connection::Stored(uint64_t lines) {
    m_lines += lines;
    (void)m_stored.Post();
}

void Connection::Answer() {
    if (m_name.empty()) {
        VYX_OutputDebug("logmill: a connection is closed: it is not from a sender");
        return;
    }
    const std::string answer = kAnswer + std::to_string(m_lines) + "\n";
    const auto size = static_cast<int32_t>(answer.size());
    if (VYX_Sendn(m_socket, answer.data(), size, kAnswerTimeOut) != size)
        VYX_OutputDebug("logmill: %s is gone; %s of its lines are stored", m_name.c_str(),
                        std::to_string(m_lines).c_str());
    Linger();
}

// A socket that is closed with data unread would take the answer back.
void Connection::Linger() {
    (void)VYX_ShutDown(m_socket, SHUT_WR);
    std::array<char, 4096> rest;
    const VYX_TIME_T start = VYX_TimeNow();
    while (VYX_TimeNow() - start < kLingerMicroseconds &&
           VYX_RecvWithTimeOut(m_socket, rest.data(), rest.size(), kLingerMicroseconds / 1000) > 0) {
    }
}

} // namespace logmill
