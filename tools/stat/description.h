// What a library in a process says of itself: src/base/describe.h is the other side.
#ifndef VYX_STAT_DESCRIPTION_H_
#define VYX_STAT_DESCRIPTION_H_

#include <map>
#include <memory>
#include <string>

#include "elf_data.h"
#include "memory.h"

namespace inspect {

struct Row {
    uint32_t offset;
    uint32_t size;
    uint32_t count;
    uint64_t address; // in the process's own counting
};

class Description {
  public:
    // Looks through all files that the process has in memory. Throws if none has a description, or one that this program
    // does not know.
    explicit Description(Memory &memory);

    [[nodiscard]] bool Has(const std::string &name) const { return m_rows.count(name) != 0; }
    // Throws for a name that the library does not have.
    [[nodiscard]] const Row &Get(const std::string &name) const;
    // The fields of a record, by their whole names.
    [[nodiscard]] std::vector<std::pair<std::string, Row>> FieldsOf(const std::string &record) const;
    // Bytes up to the end of the last field of a record.
    [[nodiscard]] size_t RecordSize(const std::string &record) const;
    // Where to read what the process knows by this pointer. They differ in an emulator.
    [[nodiscard]] uint64_t Place(uint64_t pointer) const;

    Layout layout;
    std::string library; // the file that it is in

  private:
    bool ReadImage(Memory &memory, const Mapping &mapping);
    void ReadTable(Memory &memory, uint64_t address);

    std::map<std::string, Row> m_rows;
    uint64_t m_shift = 0;
};

// Whether a process has the library in it.
bool HasLibrary(Memory &memory);

} // namespace inspect

#endif
