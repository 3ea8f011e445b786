#include "elf_data.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <filesystem>
#include <fstream>
#include <map>

namespace inspect {
namespace {

constexpr uint32_t kMostSections = 4096;
constexpr uint64_t kMostBytes = uint64_t{256} << 20; // of a table that is read from a file

std::vector<unsigned char> ReadAt(std::ifstream &file, uint64_t offset, uint64_t size) {
    std::vector<unsigned char> bytes;
    file.clear();
    file.seekg(0, std::ios::end);
    const auto end = static_cast<uint64_t>(file.tellg());
    if (size > kMostBytes || offset > end || size > end - offset)
        return bytes;
    bytes.resize(static_cast<size_t>(size));
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(size));
    if (!file)
        bytes.clear();
    return bytes;
}

struct Section {
    uint32_t type;
    uint32_t link;
    uint64_t offset;
    uint64_t size;
};

struct Symbol {
    uint64_t size;
    std::string name;
};
using Symbols = std::map<uint64_t, Symbol>; // by address

std::vector<Section> SectionsOf(std::ifstream &file, Layout layout) {
    const bool wide = layout.word == 8;
    const auto header = ReadAt(file, 0, wide ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr));
    const auto field = [&](size_t wide_offset, size_t narrow_offset, size_t width) {
        return ToNumber(header.data(), header.size(), wide ? wide_offset : narrow_offset, width, layout);
    };
    const uint64_t offset = field(offsetof(Elf64_Ehdr, e_shoff), offsetof(Elf32_Ehdr, e_shoff), layout.word);
    const uint64_t count = field(offsetof(Elf64_Ehdr, e_shnum), offsetof(Elf32_Ehdr, e_shnum), 2);
    const size_t entry = wide ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr);
    const auto bytes = ReadAt(file, offset, std::min<uint64_t>(count, kMostSections) * entry);
    std::vector<Section> sections;
    for (size_t at = 0; at + entry <= bytes.size(); at += entry) {
        const auto number = [&](size_t wide_offset, size_t narrow_offset, size_t width) {
            return ToNumber(bytes.data(), bytes.size(), at + (wide ? wide_offset : narrow_offset), width,
                            layout);
        };
        sections.push_back(
            {static_cast<uint32_t>(number(offsetof(Elf64_Shdr, sh_type), offsetof(Elf32_Shdr, sh_type), 4)),
             static_cast<uint32_t>(number(offsetof(Elf64_Shdr, sh_link), offsetof(Elf32_Shdr, sh_link), 4)),
             number(offsetof(Elf64_Shdr, sh_offset), offsetof(Elf32_Shdr, sh_offset), layout.word),
             number(offsetof(Elf64_Shdr, sh_size), offsetof(Elf32_Shdr, sh_size), layout.word)});
    }
    return sections;
}

void AddFunctions(Symbols &symbols, const std::vector<unsigned char> &table,
                  const std::vector<unsigned char> &names, Layout layout) {
    const bool wide = layout.word == 8;
    const size_t entry = wide ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym);
    for (size_t at = 0; at + entry <= table.size(); at += entry) {
        const auto number = [&](size_t wide_offset, size_t narrow_offset, size_t width) {
            return ToNumber(table.data(), table.size(), at + (wide ? wide_offset : narrow_offset), width,
                            layout);
        };
        const uint64_t info = number(offsetof(Elf64_Sym, st_info), offsetof(Elf32_Sym, st_info), 1);
        const uint64_t section = number(offsetof(Elf64_Sym, st_shndx), offsetof(Elf32_Sym, st_shndx), 2);
        const uint64_t name = number(offsetof(Elf64_Sym, st_name), offsetof(Elf32_Sym, st_name), 4);
        if ((info & 15) != STT_FUNC || section == SHN_UNDEF || name >= names.size())
            continue;
        const auto *text = reinterpret_cast<const char *>(&names[static_cast<size_t>(name)]);
        symbols[number(offsetof(Elf64_Sym, st_value), offsetof(Elf32_Sym, st_value), layout.word)] = {
            number(offsetof(Elf64_Sym, st_size), offsetof(Elf32_Sym, st_size), layout.word),
            std::string(text, strnlen(text, names.size() - static_cast<size_t>(name)))};
    }
}

Symbols FunctionsOf(const std::string &path) {
    Symbols symbols;
    std::error_code error; // a core may name anything, also a pipe, which would be waited for
    if (!std::filesystem::is_regular_file(path, error))
        return symbols;
    std::ifstream file(path, std::ios::binary);
    const auto header = file ? ReadAt(file, 0, EI_NIDENT) : std::vector<unsigned char>();
    const auto layout = LayoutOf(header.data(), header.size());
    if (!layout)
        return symbols;
    const std::vector<Section> sections = SectionsOf(file, *layout);
    for (const Section &section : sections)
        if ((section.type == SHT_SYMTAB || section.type == SHT_DYNSYM) && section.link < sections.size())
            AddFunctions(symbols, ReadAt(file, section.offset, section.size),
                         ReadAt(file, sections[section.link].offset, sections[section.link].size), *layout);
    return symbols;
}

std::string Demangled(const std::string &name) {
    int status = -1;
    char *text = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
    std::string result = status == 0 ? text : name;
    std::free(text);
    return result;
}

} // namespace

uint64_t ToNumber(const unsigned char *bytes, size_t size, size_t offset, size_t width, Layout layout) {
    uint64_t number = 0;
    for (size_t i = 0; i < width && width <= 8; i++) {
        const size_t at = offset + (layout.big ? i : width - 1 - i);
        number = number << 8 | (at < size ? bytes[at] : 0U);
    }
    return number;
}

std::optional<Layout> LayoutOf(const unsigned char *bytes, size_t size) {
    if (size < EI_NIDENT || std::memcmp(bytes, ELFMAG, SELFMAG) != 0)
        return {};
    if ((bytes[EI_CLASS] != ELFCLASS32 && bytes[EI_CLASS] != ELFCLASS64) ||
        (bytes[EI_DATA] != ELFDATA2LSB && bytes[EI_DATA] != ELFDATA2MSB))
        return {};
    return Layout{bytes[EI_DATA] == ELFDATA2MSB, bytes[EI_CLASS] == ELFCLASS64 ? 8U : 4U};
}

SegmentTable SegmentsOf(const unsigned char *header, size_t size, Layout layout) {
    const bool wide = layout.word == 8;
    const auto number = [&](size_t wide_offset, size_t narrow_offset, size_t width) {
        return ToNumber(header, size, wide ? wide_offset : narrow_offset, width, layout);
    };
    return {number(offsetof(Elf64_Ehdr, e_phoff), offsetof(Elf32_Ehdr, e_phoff), layout.word),
            static_cast<uint32_t>(wide ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr)),
            static_cast<uint32_t>(number(offsetof(Elf64_Ehdr, e_phnum), offsetof(Elf32_Ehdr, e_phnum), 2))};
}

Segment ToSegment(const unsigned char *entry, size_t size, Layout layout) {
    const bool wide = layout.word == 8;
    const auto number = [&](size_t wide_offset, size_t narrow_offset, size_t width) {
        return ToNumber(entry, size, wide ? wide_offset : narrow_offset, width, layout);
    };
    return {static_cast<uint32_t>(number(offsetof(Elf64_Phdr, p_type), offsetof(Elf32_Phdr, p_type), 4)),
            number(offsetof(Elf64_Phdr, p_offset), offsetof(Elf32_Phdr, p_offset), layout.word),
            number(offsetof(Elf64_Phdr, p_vaddr), offsetof(Elf32_Phdr, p_vaddr), layout.word),
            number(offsetof(Elf64_Phdr, p_filesz), offsetof(Elf32_Phdr, p_filesz), layout.word),
            number(offsetof(Elf64_Phdr, p_memsz), offsetof(Elf32_Phdr, p_memsz), layout.word)};
}

std::vector<Note> ToNotes(const std::vector<unsigned char> &bytes, Layout layout) {
    std::vector<Note> notes;
    const auto round = [](size_t size) { return (size + 3) & ~size_t{3}; };
    for (size_t at = 0; at + 12 <= bytes.size();) {
        const auto word = [&](size_t offset) {
            return static_cast<size_t>(ToNumber(bytes.data(), bytes.size(), at + offset, 4, layout));
        };
        const size_t name = word(0);
        const size_t size = word(4);
        if (name > bytes.size() - at - 12 || round(name) > bytes.size() - at - 12 ||
            size > bytes.size() - at - 12 - round(name))
            break;
        const auto *owner = reinterpret_cast<const char *>(&bytes[at]) + 12;
        notes.push_back({std::string(owner, strnlen(owner, name)), static_cast<uint32_t>(word(8)),
                         at + 12 + round(name), size});
        at += 12 + round(name) + round(size);
    }
    return notes;
}

std::string FunctionAt(const std::string &path, uint64_t address) {
    static std::map<std::string, Symbols> files;
    const auto file =
        files.find(path) != files.end() ? files.find(path) : files.emplace(path, FunctionsOf(path)).first;
    auto symbol = file->second.upper_bound(address);
    if (symbol == file->second.begin())
        return "";
    --symbol;
    const uint64_t distance = address - symbol->first;
    if (distance != 0 && distance >= symbol->second.size)
        return "";
    return Demangled(symbol->second.name) + (distance == 0 ? "" : "+" + std::to_string(distance));
}

} // namespace inspect
