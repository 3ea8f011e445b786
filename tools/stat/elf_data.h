// Numbers of either byte order and word size, out of bytes that may be anything.
#ifndef VYX_STAT_ELF_DATA_H_
#define VYX_STAT_ELF_DATA_H_

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <optional>
#include <string>
#include <vector>

namespace inspect {

// How a target lays out its data.
struct Layout {
    bool big = false;  // the highest byte comes first
    uint32_t word = 8; // bytes of a pointer
};

// A number of up to eight bytes. What lies outside of the bytes reads as 0.
uint64_t ToNumber(const unsigned char *bytes, size_t size, size_t offset, size_t width, Layout layout);

// The layout that an ELF file's first bytes tell; nothing if it is none.
std::optional<Layout> LayoutOf(const unsigned char *bytes, size_t size);

struct Segment {
    uint32_t type;
    uint64_t offset;
    uint64_t address;
    uint64_t file_size;
    uint64_t size;
};

// Where the segments are listed in a file.
struct SegmentTable {
    uint64_t offset;
    uint32_t entry_size;
    uint32_t count;
};
SegmentTable SegmentsOf(const unsigned char *header, size_t size, Layout layout);
Segment ToSegment(const unsigned char *entry, size_t size, Layout layout);

constexpr size_t kHeaderSize = 64; // bytes that hold the header of either word size

struct Note {
    std::string owner;
    uint32_t type;
    size_t offset; // of its content, in the bytes
    size_t size;
};
std::vector<Note> ToNotes(const std::vector<unsigned char> &bytes, Layout layout);

// The function at an address of the file, with the distance from its start; empty if there is none. `address` is as the file
// counts it.
std::string FunctionAt(const std::string &path, uint64_t address);

} // namespace inspect

#endif
