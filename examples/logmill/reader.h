// The reader: cuts the file into batches of whole lines and hands them over.
#ifndef LOGMILL_READER_H
#define LOGMILL_READER_H

#include <string>
#include <string_view>

#include "bounded_buffer.h"
#include "input.h"

namespace logmill {

// What was read. Counted on the bytes as they arrive, before any cutting, so that a line which the cutting,
// the buffer or a worker loses is missed.
struct ReadCounts {
    uint64_t lines = 0;
    uint64_t bytes = 0;
};

class Reader {
  public:
    // Reads input, which the caller has opened, into buffer; both are borrowed.
    Reader(Input &input, BoundedBuffer &buffer, size_t batchBytes);

    // The thread's routine; pReader is the Reader. Closes the buffer at the end, cancels it at a failure.
    static void *Run(void *pReader);

    // After the thread has ended: what it read, and 0 or the errno of its failure.
    const ReadCounts &Counts() const { return m_counts; }
    int Error() const { return m_error; }

  private:
    void ReadAll();
    bool NextBatch(Batch &batch);
    bool Fill(size_t wanted);
    size_t LineEnd();
    void SkipLine(Batch &batch);

    std::string_view Ahead() const { return std::string_view(m_text).substr(m_start); }

    Input &m_input;
    BoundedBuffer &m_buffer;
    const size_t m_batchBytes;
    std::string m_text; // what was read; from m_start on it has not been handed over
    size_t m_start = 0;
    bool m_end = false; // nothing more to read
    ReadCounts m_counts;
    bool m_inLine = false; // the last byte read was no line feed
    int m_error = 0;
};

} // namespace logmill

#endif
