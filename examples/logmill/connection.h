// One sender's connection, served by a thread of the pool: takes the sender's bytes apart into lines and hands them
// to the store in batches.
//
// A sender says "LOGMILL 1 NAME" and a line feed, within five seconds, then the bytes of its file, and ends its side of the connection.
// It is answered "STORED N" and a line feed: so many of its lines have been given to the log.
#ifndef LOGMILL_CONNECTION_H
#define LOGMILL_CONNECTION_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vyx/msg.h>
#include <vyx/net.h>
#include <vyx/sync.h>
#include <vyx/time.h>

#include "batch.h"

namespace logmill {

class Collector;

constexpr char kGreeting[] = "LOGMILL 1 ";
constexpr char kAnswer[] = "STORED ";
constexpr size_t kLongestName = 64;

class Connection {
  public:
    // Owns the socket from now on; the collector is borrowed.
    Connection(Collector &collector, VYX_SOCK_T socket);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    Collector &GetCollector() const { return m_collector; }
    // Whether the system granted what a connection needs.
    bool Usable() const { return m_usable; }

    // For a thread of the pool: serves the sender to its end, or until the collector ends.
    void Serve();

    // For the store: the name under which the lines are stored; and that a batch has been, with so many line ends.
    const std::string &Name() const { return m_name; }
    void Stored(uint64_t lines);

  private:
    enum class Heard { Data, Nothing, End, Failure };

    uint32_t Patience(VYX_TIME_T start) const;
    void ReadToEnd();
    Heard Read();
    bool Greet();
    bool Cut();
    bool AddPiece(std::string_view text, bool last);
    bool Flush();
    void AwaitStored();
    void Answer();
    void Linger();

    Collector &m_collector;
    VYX_SOCK_T m_socket;
    VYX_EVENT m_readable;   // the socket has data, or its end
    bool m_usable = false;  // the system has granted everything
    std::string m_name;     // empty until the sender has said it
    std::string m_text;     // what was read and not yet cut
    uint32_t m_line = 0;    // the line that the next piece belongs to has this number, or the next
    bool m_inLine = false;  // the last piece did not end its line
    Level m_level{};        // of that line
    BatchWriter m_batch;    // being filled
    bool m_pending = false; // a batch was handed over and is not known to be stored
    VYX_Sema m_stored;      // posted when it is
    uint64_t m_lines = 0;   // stored so far
};

} // namespace logmill

#endif
