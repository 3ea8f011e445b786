// A block: a piece of the input on its way through the compressor. Blocks are used again and again.
#ifndef SQUEEZE_BLOCK_H
#define SQUEEZE_BLOCK_H

#include <cstddef>
#include <cstdint>
#include <vector>
#include <zlib.h>

namespace squeeze {

constexpr size_t kBlockBytes = 128 << 10;
constexpr size_t kWindowBytes = 32 << 10; // how far back deflate looks: what it needs of the block before

class Block {
  public:
    explicit Block(int level);
    ~Block();
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;

    // False if zlib had no memory.
    bool Usable() const { return m_usable; }
    // For a worker: makes `output`, whole bytes of a deflate stream that goes on, and `crc`.
    void Compress();

    uint32_t number = 0;       // counted from 0
    std::vector<Bytef> window; // the end of the block before
    std::vector<Bytef> input;  // at most kBlockBytes
    std::vector<Bytef> output; // compressed
    uLong crc = 0;             // of the input
    bool failed = false;       // `output` is not complete

  private:
    z_stream m_stream{};
    bool m_usable;
};

} // namespace squeeze

#endif
