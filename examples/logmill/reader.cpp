#include "reader.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace logmill {

namespace {

constexpr size_t kReadSize = 65536; // bytes asked of the system at a time

} // namespace

Reader::Reader(Input &input, BoundedBuffer &buffer, size_t batchBytes)
    : m_input(input), m_buffer(buffer), m_batchBytes(batchBytes) {}

void *Reader::Run(void *pReader) {
    auto *reader = static_cast<Reader *>(pReader);
    try {
        reader->ReadAll();
    } catch (const std::bad_alloc &) {
        reader->m_error = ENOMEM;
    }
    if (reader->m_error == 0)
        reader->m_buffer.Close();
    else
        reader->m_buffer.Cancel();
    return nullptr;
}

void Reader::ReadAll() {
    for (Batch batch; NextBatch(batch);)
        if (!m_buffer.Put(std::move(batch)))
            return; // a worker has given up, and says so itself
    if (m_inLine)
        ++m_counts.lines; // the last line, without its line feed
}

// Reads until `wanted` bytes are ahead. False if there are fewer: at the end of the file, or at an error.
bool Reader::Fill(size_t wanted) {
    while (!m_end && m_text.size() - m_start < wanted) {
        m_text.erase(0, m_start);
        m_start = 0;
        const size_t before = m_text.size();
        m_text.resize(before + kReadSize);
        const ssize_t count = m_input.Read(&m_text[before], kReadSize);
        m_error = count == -1 ? errno : 0;
        m_end = count <= 0;
        m_text.resize(before + (count > 0 ? static_cast<size_t>(count) : 0));
        if (m_end)
            break;
        m_counts.bytes += static_cast<uint64_t>(count);
        m_counts.lines += static_cast<uint64_t>(
            std::count(m_text.begin() + static_cast<ssize_t>(before), m_text.end(), '\n'));
        m_inLine = m_text.back() != '\n';
    }
    return m_text.size() - m_start >= wanted;
}

// As many whole lines as fit a batch, at least one. False at the end of the file and at an error.
bool Reader::NextBatch(Batch &batch) {
    (void)Fill(m_batchBytes);
    if (m_error != 0 || Ahead().empty())
        return false;
    batch = Batch();
    const size_t lastFeed = Ahead().substr(0, m_batchBytes).rfind('\n');
    const size_t end = lastFeed != std::string_view::npos ? lastFeed + 1 : LineEnd();
    batch.text = Ahead().substr(0, std::min(end, kLongestLine));
    m_start += batch.text.size();
    if (end > kLongestLine)
        SkipLine(batch);
    return m_error == 0;
}

// Leaves the rest of the line out of the batch, but for its last two bytes: what may be its end.
void Reader::SkipLine(Batch &batch) {
    std::string tail;
    for (bool found = false; !found && Fill(1);) {
        const size_t feed = Ahead().find('\n');
        found = feed != std::string_view::npos;
        const std::string_view part = Ahead().substr(0, found ? feed + 1 : feed);
        tail.append(part.substr(part.size() - std::min<size_t>(part.size(), 2)));
        tail.erase(0, tail.size() - std::min<size_t>(tail.size(), 2));
        batch.skipped += part.size();
        m_start += part.size();
    }
    batch.text += tail;
    batch.skipped -= tail.size();
}

// Where the line ahead ends: behind its line feed, at the end of the file, or somewhere past kLongestLine.
size_t Reader::LineEnd() {
    for (size_t seen = 0; seen <= kLongestLine;) {
        const size_t feed = Ahead().find('\n', seen);
        if (feed != std::string_view::npos)
            return feed + 1;
        seen = Ahead().size();
        if (!Fill(seen + 1))
            return seen;
    }
    return kLongestLine + 1;
}

} // namespace logmill
