#include "description.h"

#include <algorithm>
#include <cstring>

namespace inspect {
namespace {

constexpr uint32_t kFormat = 1;
constexpr uint32_t kNoteType = 1;
constexpr size_t kNameSize = 28;
constexpr uint32_t kMostSegments = 128;
constexpr uint64_t kMostNotes = 65536; // bytes
constexpr uint64_t kMostRows = 1024;
constexpr uint64_t kLargestRow = 256;    // bytes
constexpr uint32_t kLargestField = 4096; // bytes, and the largest offset of one

// The addresses of the tables of an image. Empty if it has none.
std::vector<uint64_t> TablesOf(Memory &memory, const Mapping &mapping, Layout &layout) {
    std::vector<uint64_t> tables;
    unsigned char header[kHeaderSize] = {};
    if (mapping.offset != 0 || !memory.Read({{mapping.start, header, sizeof header}}))
        return tables;
    const auto found = LayoutOf(header, sizeof header);
    if (!found)
        return tables;
    layout = *found;
    const SegmentTable list = SegmentsOf(header, sizeof header, layout);
    std::vector<unsigned char> entries(size_t{std::min(list.count, kMostSegments)} * list.entry_size);
    if (entries.empty() || !memory.Read({{mapping.start + list.offset, entries.data(), entries.size()}}))
        return tables;
    std::vector<Segment> segments;
    for (size_t at = 0; at < entries.size(); at += list.entry_size)
        segments.push_back(ToSegment(&entries[at], list.entry_size, layout));
    const auto first = std::find_if(segments.begin(), segments.end(), [](const Segment &segment) {
        return segment.type == PT_LOAD && segment.offset == 0;
    });
    const uint64_t base = mapping.start - (first == segments.end() ? 0 : first->address);
    for (const Segment &segment : segments) {
        std::vector<unsigned char> bytes(static_cast<size_t>(std::min(segment.size, kMostNotes)));
        if (segment.type != PT_NOTE || bytes.empty() ||
            !memory.Read({{base + segment.address, bytes.data(), bytes.size()}}))
            continue;
        for (const Note &note : ToNotes(bytes, layout)) {
            if (note.owner != "VYX" || note.type != kNoteType || note.size < 4)
                continue;
            const uint64_t distance = ToNumber(bytes.data(), bytes.size(), note.offset, 4, layout);
            tables.push_back(base + segment.address + note.offset +
                             static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(distance))));
        }
    }
    return tables;
}

std::string LastPart(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

std::string Broken(const Memory &memory) {
    return memory.name + ": the description of its libvyx cannot be read";
}

bool IsLibraryFile(const std::string &path) {
    return LastPart(path).compare(0, 9, "libvyx.so") == 0;
}

} // namespace

Description::Description(Memory &memory) {
    bool loaded = false;
    for (const Mapping &mapping : memory.mappings) {
        if (ReadImage(memory, mapping))
            return;
        loaded = loaded || IsLibraryFile(mapping.path);
    }
    if (loaded)
        throw Error(
            memory.name +
            ": its libvyx does not describe itself: it is older than this program, or its part of the "
            "memory is not there");
    throw Error(memory.name + " has no libvyx in it");
}

bool Description::ReadImage(Memory &memory, const Mapping &mapping) {
    const std::vector<uint64_t> tables = TablesOf(memory, mapping, layout);
    for (const uint64_t table : tables)
        ReadTable(memory, table);
    library = mapping.path;
    return !tables.empty();
}

void Description::ReadTable(Memory &memory, uint64_t address) {
    unsigned char head[24] = {};
    const size_t head_size = 16 + size_t{layout.word};
    if (!memory.Read({{address, head, head_size}}))
        throw Error(Broken(memory));
    const auto word = [&](size_t at, size_t width) { return ToNumber(head, sizeof head, at, width, layout); };
    if (word(0, 4) != kFormat)
        throw Error(memory.name + ": its libvyx describes itself in format " + std::to_string(word(0, 4)) +
                    "; this program knows format " + std::to_string(kFormat));
    const size_t least = kNameSize + 12 + layout.word;
    if (word(4, 4) != layout.word || word(8, 4) < least || word(8, 4) > kLargestRow ||
        word(12, 4) > kMostRows)
        throw Error(Broken(memory));
    const auto row_size = static_cast<size_t>(word(8, 4));
    m_shift = address - word(16, layout.word);
    std::vector<unsigned char> bytes(row_size * static_cast<size_t>(word(12, 4)));
    if (!memory.Read({{address + head_size, bytes.data(), bytes.size()}}))
        throw Error(Broken(memory));
    for (size_t at = 0; at < bytes.size(); at += row_size) {
        const auto *name = reinterpret_cast<const char *>(&bytes[at]);
        const auto number = [&](size_t offset, size_t width) {
            return ToNumber(bytes.data(), bytes.size(), at + kNameSize + offset, width, layout);
        };
        m_rows[std::string(name, strnlen(name, kNameSize))] = {
            static_cast<uint32_t>(number(0, 4)), static_cast<uint32_t>(number(4, 4)),
            static_cast<uint32_t>(number(8, 4)), number(12, layout.word)};
    }
}

const Row &Description::Get(const std::string &name) const {
    const auto found = m_rows.find(name);
    if (found == m_rows.end())
        throw Error("this libvyx does not describe \"" + name +
                    "\": it is of another version than this program");
    return found->second;
}

std::vector<std::pair<std::string, Row>> Description::FieldsOf(const std::string &record) const {
    const std::string prefix = record + ".";
    std::vector<std::pair<std::string, Row>> fields;
    for (auto row = m_rows.lower_bound(prefix);
         row != m_rows.end() && row->first.compare(0, prefix.size(), prefix) == 0; ++row)
        fields.emplace_back(*row);
    return fields;
}

size_t Description::RecordSize(const std::string &record) const {
    size_t size = 0;
    for (const auto &[name, row] : FieldsOf(record)) {
        if (row.offset > kLargestField || row.size > kLargestField)
            throw Error("what this libvyx says of \"" + name + "\" cannot be");
        size = std::max<size_t>(size, size_t{row.offset} + row.size);
    }
    return size;
}

uint64_t Description::Place(uint64_t pointer) const {
    return pointer == 0 ? 0 : pointer + m_shift;
}

bool HasLibrary(Memory &memory) {
    Layout layout;
    return std::any_of(memory.mappings.begin(), memory.mappings.end(), [&](const Mapping &mapping) {
        return (mapping.path == memory.program || IsLibraryFile(mapping.path)) &&
               !TablesOf(memory, mapping, layout).empty();
    });
}

} // namespace inspect
