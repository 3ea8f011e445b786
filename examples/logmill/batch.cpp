#include "batch.h"

#include <algorithm>
#include <cstring>

namespace logmill {

namespace {

struct RecordHeader {
    uint32_t line;
    uint16_t size; // bytes of text that follow
    uint8_t level;
    uint8_t last;
};

int32_t Priority(Level worst) {
    return static_cast<int32_t>(Level::None) - static_cast<int32_t>(worst);
}

} // namespace

BatchWriter::BatchWriter(Connection *connection) {
    m_message.iMsgType = 0;
    std::memcpy(m_message.szData, &connection, kPointerBytes);
    Clear();
}

bool BatchWriter::Add(const Piece &piece) {
    const RecordHeader header{piece.line, static_cast<uint16_t>(piece.text.size()),
                              static_cast<uint8_t>(piece.level), static_cast<uint8_t>(piece.last)};
    const auto at = static_cast<size_t>(m_message.iDataLen);
    const size_t size = sizeof header + piece.text.size();
    if (size > sizeof m_message.szData - at)
        return false;
    std::memcpy(m_message.szData + at, &header, sizeof header);
    std::copy(piece.text.begin(), piece.text.end(), m_message.szData + at + sizeof header);
    m_message.iDataLen += static_cast<int32_t>(size);
    m_worst = std::min(m_worst, piece.level);
    return true;
}

bool BatchWriter::Empty() const {
    return m_message.iDataLen == kPointerBytes;
}

void BatchWriter::Clear() {
    m_message.iDataLen = kPointerBytes;
    m_worst = Level::None;
}

const VYX_MSG_BLOCK_T &BatchWriter::Message() {
    m_message.iPriority = Priority(m_worst);
    return m_message;
}

BatchReader::BatchReader(const VYX_MSG_BLOCK_T &message) : m_message(message) {}

Connection *BatchReader::From() const {
    Connection *connection = nullptr;
    std::memcpy(&connection, m_message.szData, kPointerBytes);
    return connection;
}

bool BatchReader::Next(Piece &piece) {
    if (m_at >= static_cast<size_t>(m_message.iDataLen))
        return false;
    RecordHeader header;
    std::memcpy(&header, m_message.szData + m_at, sizeof header);
    m_at += sizeof header;
    piece = {header.line, static_cast<Level>(header.level), header.last != 0,
             std::string_view(m_message.szData + m_at, header.size)};
    m_at += header.size;
    return true;
}

} // namespace logmill
