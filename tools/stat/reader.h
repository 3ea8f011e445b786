// Records of the library, read while it works on them.
//
// Nothing is stopped and no lock is taken. Each lock of the library counts how often it was taken. What a lock guards is
// read between two looks at that lock, and is valid only if it was free both times with the same count; otherwise it is
// read again. What cannot be read in this way is unknown, and shown as such.
#ifndef VYX_STAT_READER_H_
#define VYX_STAT_READER_H_

#include <functional>
#include <optional>

#include "description.h"

namespace inspect {

class Record {
  public:
    Record(const Description &description, std::string record, uint64_t place);
    [[nodiscard]] Part ToPart() { return {m_place, m_bytes.data(), m_bytes.size()}; }
    // Where the record is, or one of its fields.
    [[nodiscard]] uint64_t PlaceOf(const char *field) const;
    [[nodiscard]] uint64_t Place() const { return m_place; }

    [[nodiscard]] uint64_t Number(const char *field) const;
    [[nodiscard]] int64_t Signed(const char *field) const;   // its first four bytes
    [[nodiscard]] uint64_t Pointer(const char *field) const; // as a place; 0 for none
    // The moment of a deadline, in microseconds of its clock; kNever if there is none.
    [[nodiscard]] int64_t Deadline(const char *field) const;
    static constexpr int64_t kNever = INT64_MAX;
    [[nodiscard]] uint64_t CountBits(const char *field) const;
    [[nodiscard]] std::string Text(const char *field) const; // up to its zero

    // Whether all fields but the link are the same in both.
    [[nodiscard]] bool IsSame(const Record &other) const;

  private:
    [[nodiscard]] const Row &Field(const char *field) const;
    [[nodiscard]] const unsigned char *Bytes(const Row &row) const { return m_bytes.data() + row.offset; }
    const Description *m_description;
    std::string m_record;
    uint64_t m_place;
    std::vector<unsigned char> m_bytes;
};

class Reader {
  public:
    Reader(Memory &memory, const Description &description) : m_memory(memory), m_description(description) {}

    // A single object of the library's, by its name: its place, and its value, which is no larger than eight bytes.
    [[nodiscard]] uint64_t PlaceOf(const std::string &name) const;
    [[nodiscard]] uint64_t Value(const std::string &name);

    // Calls `read` until the lock was not taken meanwhile, or many tries have failed. `read` reads what it needs, and
    // answers whether it could. False: no try succeeded.
    bool UnderLock(uint64_t lock, const std::function<bool()> &read);
    // Where a lock is that exists once.
    [[nodiscard]] uint64_t LockOf(const std::string &rank) const { return PlaceOf("lock:" + rank); }

    bool Read(Record &record) { return m_memory.Read({record.ToPart()}); }
    // A record under its own lock.
    std::optional<Record> ReadLocked(const std::string &record, uint64_t place, const char *lock);
    // All records of a registry that is an array. Empty: they are not in the memory.
    std::vector<Record> ReadArray(const std::string &registry);
    // The records of a list from the first on. False: it was changed, and what follows cannot be read.
    bool ReadList(const std::string &record, uint64_t first, std::vector<Record> &records);
    // The list that the registry of that name begins, under the registry's lock.
    struct List {
        std::vector<Record> records;
        bool complete; // false: it was changed all the time; these have been seen in it twice
    };
    List ReadRegistry(const std::string &record, const std::string &rank);

    [[nodiscard]] Memory &Source() const { return m_memory; }
    [[nodiscard]] const Description &What() const { return m_description; }

  private:
    struct LockState {
        uint64_t state;
        uint64_t taken;
    };
    std::optional<LockState> Look(uint64_t lock);
    std::vector<Record> ReadTwice(const std::string &record);

    Memory &m_memory;
    const Description &m_description;
};

} // namespace inspect

#endif
