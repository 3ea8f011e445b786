#include "block.h"

namespace squeeze {

namespace {
constexpr int kRawDeflate = -15; // without a header of zlib's own; windows of 2^15 bytes
constexpr int kMemoryLevel = 8;  // zlib's default
} // namespace

Block::Block(int level)
    : m_usable(deflateInit2(&m_stream, level, Z_DEFLATED, kRawDeflate, kMemoryLevel, Z_DEFAULT_STRATEGY) ==
               Z_OK) {
    if (m_usable)
        output.resize(deflateBound(&m_stream, kBlockBytes) + 16); // 16: the end of a flush
}

Block::~Block() {
    if (m_usable)
        (void)deflateEnd(&m_stream);
}

void Block::Compress() {
    crc = crc32(crc32(0, nullptr, 0), input.data(), static_cast<uInt>(input.size()));
    output.resize(output.capacity());
    failed = deflateReset(&m_stream) != Z_OK;
    if (!window.empty())
        failed |= deflateSetDictionary(&m_stream, window.data(), static_cast<uInt>(window.size())) != Z_OK;
    m_stream.next_in = input.data();
    m_stream.avail_in = static_cast<uInt>(input.size());
    m_stream.next_out = output.data();
    m_stream.avail_out = static_cast<uInt>(output.size());
    failed |= deflate(&m_stream, Z_SYNC_FLUSH) != Z_OK || m_stream.avail_in != 0 || m_stream.avail_out == 0;
    output.resize(output.size() - m_stream.avail_out);
}

} // namespace squeeze
