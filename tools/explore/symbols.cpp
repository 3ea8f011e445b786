#include "symbols.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace explore {
namespace {

std::string Quoted(const std::string &path) {
    std::string quoted = "'";
    for (const char letter : path)
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return quoted + "'";
}

// Programs that are loaded where they were linked name their lines by whole addresses.
bool HasWholeAddresses(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    Elf64_Ehdr header = {};
    file.read(reinterpret_cast<char *>(&header), sizeof header);
    return file && header.e_type == ET_EXEC;
}

bool IsSystemModule(const std::string &path) {
    return path.compare(0, 5, "/lib/") == 0 || path.compare(0, 9, "/usr/lib/") == 0 ||
           path.compare(0, 7, "/lib64/") == 0;
}

bool IsSystemFile(const std::string &file) {
    return file.compare(0, 5, "/usr/") == 0 || file.compare(0, 2, "./") == 0;
}

// Without arguments: "main::lambda", "Queue::operator()".
std::string ShortName(const std::string &function) {
    if (function == "??")
        return "";
    std::string name = function;
    for (size_t at = 0; (at = name.find("{lambda(")) != std::string::npos;) {
        const size_t end = name.find('}', at);
        name.replace(at, end == std::string::npos ? end : end + 1 - at, "lambda");
    }
    const size_t call = name.find("operator()");
    return name.substr(0, name.find('(', call == std::string::npos ? 0 : call + 10));
}

std::string LastPart(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

Symbols::Symbols(const Mapping &mapping) : m_mapping(mapping) {
    std::map<uint32_t, std::set<uint64_t>> wanted;
    for (uint32_t i = 0; i < std::min(mapping.answer.records, kMaxRecords); i++)
        for (uint32_t j = 0; j < mapping.records[i].frames; j++)
            if (mapping.records[i].frame[j].module != 0)
                wanted[mapping.records[i].frame[j].module].insert(mapping.records[i].frame[j].offset);
    for (const auto &[module, offsets] : wanted)
        Resolve(module, offsets);
}

// Asks for one byte before each return address: that is still in the call.
void Symbols::Resolve(uint32_t module, const std::set<uint64_t> &offsets) {
    const Module &entry = m_mapping.modules[module - 1];
    const std::string path = entry.path;
    const uint64_t base = HasWholeAddresses(path) ? entry.base : 0;
    constexpr size_t kAtOnce = 500;
    std::ostringstream command;
    size_t count = 0;
    const auto run = [&] {
        std::FILE *input = popen(command.str().c_str(), "re"); // NOLINT(cert-env33-c): the path is quoted
        if (input != nullptr) {
            ReadLines(module, input);
            (void)pclose(input);
        }
    };
    for (const uint64_t offset : offsets) {
        if (count % kAtOnce == 0) {
            if (count > 0)
                run();
            command.str("");
            command << "addr2line -afiC -e " << Quoted(path);
        }
        command << " 0x" << std::hex << offset + base - 1;
        count++;
    }
    command << " 2>/dev/null";
    run();
    if (base == 0)
        return;
    std::map<Key, Line> moved;
    for (auto &[key, line] : m_lines)
        moved[key.first == module ? Key(module, key.second - base) : key] = line;
    m_lines = moved;
}

// For each address: the address, then function and file for every function inlined there, innermost first.
void Symbols::ReadLines(uint32_t module, std::FILE *input) {
    char text[4096];
    Key key = {0, 0};
    std::string function;
    bool second = false;
    while (std::fgets(text, sizeof text, input) != nullptr) {
        std::string line = text;
        line.erase(line.find_last_not_of("\r\n") + 1);
        if (!second && line.compare(0, 2, "0x") == 0) {
            key = {module, std::strtoull(line.c_str(), nullptr, 16) + 1};
            continue;
        }
        second = !second;
        if (second) {
            function = line;
            continue;
        }
        line = line.substr(0, line.find(" (discriminator"));
        const bool known = line.compare(0, 2, "??") != 0 && line.find(":?") == std::string::npos;
        const std::string path = m_mapping.modules[module - 1].path;
        const bool own = known ? !IsSystemFile(line) : !IsSystemModule(path);
        Line &entry = m_lines[key];
        if (function.compare(0, 7, "__tsan_") ==
            0) { // what instrumented code calls; all that it has inlined, too
            entry = {function, "", false};
            continue;
        }
        if (entry.function.empty() || (!entry.own && own)) {
            entry.function = ShortName(function);
            entry.file = known ? LastPart(line) : "";
            entry.own = own;
        }
    }
}

std::string Symbols::Place(const Record &record) const {
    const Line *best = nullptr;
    int best_worth = 0;
    for (uint32_t i = 0; i < record.frames; i++) {
        const auto found = m_lines.find({record.frame[i].module, record.frame[i].offset});
        if (found == m_lines.end() || (found->second.function.empty() && found->second.file.empty()))
            continue;
        const Line &line = found->second;
        const int worth = 1 + (line.own ? 2 : 0) + (line.own && !line.file.empty() ? 1 : 0);
        if (worth > best_worth) {
            best = &line;
            best_worth = worth;
        }
    }
    if (best != nullptr)
        return (best->file.empty() ? "" : best->file + " ") + best->function;
    if (record.frames == 0)
        return "";
    const Frame &frame = record.frame[0];
    std::ostringstream text;
    text << (frame.module == 0 ? "?" : LastPart(m_mapping.modules[frame.module - 1].path)) << "+0x"
         << std::hex << frame.offset;
    return text.str();
}

std::string Symbols::Stack(const Record &record) const {
    std::string text;
    for (uint32_t i = 0; i < record.frames; i++) {
        const auto found = m_lines.find({record.frame[i].module, record.frame[i].offset});
        if (found == m_lines.end() || !found->second.own ||
            (found->second.file.empty() && found->second.function.empty()))
            continue;
        text += (text.empty() ? "" : "; ") + found->second.file + " " + found->second.function;
    }
    return text;
}

} // namespace explore
