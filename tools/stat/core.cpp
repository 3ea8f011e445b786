// What a core has kept of a process.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "elf_data.h"
#include "memory.h"

namespace inspect {
namespace {

constexpr uint32_t kMappedFiles = 0x46494c45; // NT_FILE
constexpr uint32_t kThreadState = 1;          // NT_PRSTATUS
constexpr uint64_t kMostNotes = uint64_t{64} << 20;

class Core : public Memory {
  public:
    explicit Core(const std::string &path) {
        name = "core " + path;
        Map(path);
        const auto layout = LayoutOf(m_bytes, m_size);
        if (!layout || ToNumber(m_bytes, m_size, offsetof(Elf64_Ehdr, e_type), 2, *layout) != ET_CORE)
            throw Error(path + " is neither a process nor a core");
        m_layout = *layout;
        ReadSegments();
        if (mappings.empty()) // the emulator's cores do not list files
            for (const auto &[address, segment] : m_segments)
                mappings.push_back({address, address + segment.file_size, 0, ""});
    }
    ~Core() override {
        if (m_bytes != nullptr)
            (void)munmap(const_cast<unsigned char *>(m_bytes), m_size);
    }
    Core(const Core &) = delete;
    Core &operator=(const Core &) = delete;

    bool Read(const std::vector<Part> &parts) override {
        return std::all_of(parts.begin(), parts.end(), [this](const Part &part) { return ReadPart(part); });
    }
    [[nodiscard]] std::vector<Thread> Threads() const override { return m_threads; }
    [[nodiscard]] int PipeState(int64_t /*descriptor*/) const override { return -1; }

  private:
    void Map(const std::string &path) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (file < 0 || fstat(file, &status) != 0) {
            if (file >= 0)
                (void)close(file);
            throw Error(path + ": " +
                        std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): there is one thread
        }
        m_size = S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0;
        void *mapped = m_size == 0 ? MAP_FAILED : mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
        (void)close(file);
        if (mapped == MAP_FAILED)
            throw Error(path + " is neither a process nor a core");
        m_bytes = static_cast<const unsigned char *>(mapped);
    }

    void ReadSegments() {
        const SegmentTable table = SegmentsOf(m_bytes, m_size, m_layout);
        for (uint64_t i = 0; i < table.count; i++) {
            const uint64_t at = table.offset + i * table.entry_size;
            if (table.offset > m_size || at + table.entry_size > m_size)
                break;
            Segment segment = ToSegment(m_bytes + at, table.entry_size, m_layout);
            if (segment.offset > m_size)
                continue;
            segment.file_size =
                std::min<uint64_t>(segment.file_size, m_size - segment.offset); // a core may be cut off
            if (segment.type == PT_LOAD && segment.file_size > 0)
                m_segments[segment.address] = segment;
            if (segment.type == PT_NOTE)
                ReadNotes(segment);
        }
    }

    void ReadNotes(const Segment &segment) {
        const auto size = static_cast<size_t>(std::min(segment.file_size, kMostNotes));
        const std::vector<unsigned char> bytes(m_bytes + segment.offset, m_bytes + segment.offset + size);
        for (const Note &note : ToNotes(bytes, m_layout)) {
            if (note.type == kMappedFiles)
                ReadMappedFiles(std::vector<unsigned char>(
                    bytes.begin() + static_cast<ptrdiff_t>(note.offset),
                    bytes.begin() + static_cast<ptrdiff_t>(note.offset + note.size)));
            if (note.type == kThreadState && note.owner == "CORE") // its number follows the signal masks
                m_threads.push_back({static_cast<uint32_t>(
                                         ToNumber(bytes.data(), note.offset + note.size,
                                                  note.offset + 16 + size_t{2} * m_layout.word, 4, m_layout)),
                                     "", 0});
        }
    }

    // Count, page size; start, end and page of each; then their names.
    void ReadMappedFiles(const std::vector<unsigned char> &bytes) {
        const size_t word = m_layout.word;
        const auto field = [&](size_t index) {
            return ToNumber(bytes.data(), bytes.size(), index * word, word, m_layout);
        };
        const uint64_t count = std::min<uint64_t>(field(0), bytes.size() / (3 * word));
        size_t at = (2 + static_cast<size_t>(count) * 3) * word;
        for (size_t i = 0; i < count && at < bytes.size(); i++) {
            const auto *text = reinterpret_cast<const char *>(&bytes[at]);
            const size_t length = strnlen(text, bytes.size() - at);
            mappings.push_back(
                {field(2 + 3 * i), field(3 + 3 * i), field(4 + 3 * i) * field(1), {text, length}});
            at += length + 1;
        }
    }

    [[nodiscard]] bool ReadPart(Part part) const {
        while (part.size > 0) {
            auto found = m_segments.upper_bound(part.address);
            if (found == m_segments.begin())
                return false;
            const Segment &segment = (--found)->second;
            const uint64_t into = part.address - segment.address;
            if (into >= segment.file_size)
                return false;
            const auto size = static_cast<size_t>(std::min<uint64_t>(part.size, segment.file_size - into));
            std::memcpy(part.to, m_bytes + segment.offset + into, size);
            part = {part.address + size, static_cast<unsigned char *>(part.to) + size, part.size - size};
        }
        return true;
    }

    const unsigned char *m_bytes = nullptr;
    size_t m_size = 0;
    Layout m_layout;
    std::map<uint64_t, Segment> m_segments; // by address
    std::vector<Thread> m_threads;
};

} // namespace

std::unique_ptr<Memory> OpenCore(const std::string &path) {
    return std::make_unique<Core>(path);
}

} // namespace inspect
