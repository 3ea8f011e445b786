// squeeze: compresses standard input to standard output with several threads, as one gzip file that any gunzip reads.
//
// The input is cut into blocks of 128 KiB. Each is compressed alone, but with the end of the block before it as its
// dictionary, so that little is lost; each ends at a whole byte, so that the results stand one behind the other.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "block.h"
#include "crew.h"

namespace squeeze {

namespace {

constexpr char kUsage[] = "Usage: squeeze [-1 ... -9] [-t THREADS] <INPUT >OUTPUT.gz\n";
constexpr int kMostThreads = 256;

struct Options {
    int level = 6;
    int threads = 0; // 0: one for each processor
};

bool Parse(int argc, char **argv, Options &options) {
    for (int i = 1; i < argc; i++) {
        const char *word = argv[i];
        if (word[0] == '-' && word[1] >= '1' && word[1] <= '9' && word[2] == '\0')
            options.level = word[1] - '0';
        else if (std::strcmp(word, "-t") == 0 && i + 1 < argc)
            options.threads = std::atoi(argv[++i]);
        else
            return false;
    }
    return options.threads >= 0 && options.threads <= kMostThreads;
}

bool Write(const void *data, size_t length) {
    return std::fwrite(data, 1, length, stdout) == length;
}

bool WriteNumber(uLong number) { // four bytes, the lowest first
    for (int i = 0; i < 4; i++)
        if (std::fputc(static_cast<int>(number >> (8 * i) & 0xFF), stdout) == EOF)
            return false;
    return true;
}

// Reads, has compressed and writes; one thread does all input and output.
class Stream {
  public:
    explicit Stream(const Options &options) : m_options(options) {}
    bool Run();

  private:
    Block *FreeBlock();
    bool Read(bool &ended);
    bool WriteReady(Block *block);

    const Options m_options;
    std::vector<std::unique_ptr<Block>> m_blocks; // all of them
    std::vector<Block *> m_free;
    std::vector<Bytef> m_window;         // the end of what was read
    std::map<uint32_t, Block *> m_ready; // compressed, but one before them is not
    uint32_t m_read = 0;                 // blocks
    uint32_t m_written = 0;
    uLong m_crc = crc32(0, nullptr, 0);
    uLong m_length = 0;
    Crew m_crew; // the last member: its threads end before the blocks go
};

Block *Stream::FreeBlock() {
    if (m_free.empty()) {
        m_blocks.push_back(std::make_unique<Block>(m_options.level));
        if (!m_blocks.back()->Usable())
            return nullptr;
        m_free.push_back(m_blocks.back().get());
    }
    Block *block = m_free.back();
    m_free.pop_back();
    return block;
}

bool Stream::Read(bool &ended) {
    Block *block = FreeBlock();
    if (block == nullptr)
        return false;
    block->input.resize(kBlockBytes);
    block->input.resize(std::fread(block->input.data(), 1, kBlockBytes, stdin));
    if (std::ferror(stdin) != 0)
        return false;
    ended = block->input.size() < kBlockBytes;
    if (block->input.empty())
        return true;
    block->number = m_read++;
    block->window = m_window;
    const size_t keep = block->input.size() < kWindowBytes ? block->input.size() : kWindowBytes;
    m_window.assign(block->input.end() - static_cast<ptrdiff_t>(keep), block->input.end());
    return m_crew.Give(block);
}

// The block, and those that waited for it.
bool Stream::WriteReady(Block *block) {
    m_ready[block->number] = block;
    for (auto next = m_ready.begin(); next != m_ready.end() && next->first == m_written;
         next = m_ready.erase(next)) {
        block = next->second;
        if (block->failed || !Write(block->output.data(), block->output.size()))
            return false;
        m_crc = crc32_combine(m_crc, block->crc, static_cast<z_off_t>(block->input.size()));
        m_length += block->input.size();
        m_written++;
        m_free.push_back(block);
    }
    return true;
}

bool Stream::Run() {
    const int threads = m_options.threads > 0 ? m_options.threads : Crew::Processors();
    const uint32_t most = static_cast<uint32_t>(threads) * 4; // blocks under way
    if (!m_crew.Start(threads) || !Write("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10))
        return false;
    for (bool ended = false; !ended || m_written < m_read;) {
        if (!ended && m_read - m_written < most) {
            if (!Read(ended))
                return false;
            continue;
        }
        Block *block = m_crew.Take();
        if (block == nullptr || !WriteReady(block))
            return false;
    }
    return Write("\x03\0", 2) // an empty last block
           && WriteNumber(m_crc) && WriteNumber(m_length) && std::fflush(stdout) == 0;
}

} // namespace

} // namespace squeeze

int main(int argc, char **argv) {
    squeeze::Options options;
    if (!squeeze::Parse(argc, argv, options)) {
        (void)std::fputs(squeeze::kUsage, stderr);
        return 2;
    }
    squeeze::Stream stream(options);
    if (stream.Run())
        return 0;
    std::perror("squeeze: the output is not complete");
    return 1;
}
