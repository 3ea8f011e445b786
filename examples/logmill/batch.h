// A batch: lines of one sender on their way from its connection to the store, inside one queued message.
//
// Behind the pointer to the connection come records: a header and the text of a line, or of a piece of one.
#ifndef LOGMILL_BATCH_H
#define LOGMILL_BATCH_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vyx/msg.h>

#include "classifier.h"

namespace logmill {

class Connection;

// A line of the log service has some 2,000 bytes of room; longer lines are stored as several pieces that follow one
// another under the same line number.
constexpr size_t kPieceBytes = 1900;

constexpr size_t kPointerBytes = sizeof(void *); // of the connection

struct Piece {
    uint32_t line; // counted from 1
    Level level;   // of the whole line, as far as its first piece shows it
    bool last;     // the line ends here
    std::string_view text;
};

// Fills a message, piece by piece.
class BatchWriter {
  public:
    explicit BatchWriter(Connection *connection);

    // The text is copied. False if the batch has no room left for it.
    bool Add(const Piece &piece);
    bool Empty() const;
    void Clear();

    // Higher is sooner: how bad the worst line is.
    const VYX_MSG_BLOCK_T &Message();

  private:
    VYX_MSG_BLOCK_T m_message;
    Level m_worst = Level::None;
};

// Takes a message apart again; it must outlive the reader and the pieces.
class BatchReader {
  public:
    explicit BatchReader(const VYX_MSG_BLOCK_T &message);

    Connection *From() const;
    // False at the end.
    bool Next(Piece &piece);

  private:
    const VYX_MSG_BLOCK_T &m_message;
    size_t m_at = kPointerBytes;
};

} // namespace logmill

#endif
