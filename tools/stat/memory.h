// The memory of a process, from outside: a living one, or what a core has kept of a dead one.
#ifndef VYX_STAT_MEMORY_H_
#define VYX_STAT_MEMORY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace inspect {

// What is told to the user; the program ends with status 1.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// There is no such process any more.
struct Ended : Error {
    using Error::Error;
};

// What is to be read, and where to.
struct Part {
    uint64_t address;
    void *to;
    size_t size; // bytes
};

// A part of a file in memory.
struct Mapping {
    uint64_t start;
    uint64_t end;
    uint64_t offset; // in the file
    std::string path;
};

struct Thread {
    uint32_t number;  // as the system has it
    std::string name; // empty in a core, which has no names
    uint64_t millis;  // of processor time
};

class Memory {
  public:
    Memory() = default;
    virtual ~Memory() = default;
    Memory(const Memory &) = delete;
    Memory &operator=(const Memory &) = delete;

    // Reads the parts, one after the other. False: not all of it is there. Throws if that is not allowed.
    virtual bool Read(const std::vector<Part> &parts) = 0;
    [[nodiscard]] virtual std::vector<Thread> Threads() const = 0;
    // Whether a byte is in the pipe with that descriptor: 1 yes, 0 no, -1 not known.
    [[nodiscard]] virtual int PipeState(int64_t descriptor) const = 0;

    // The monotonic clock as the process has it, in microseconds. Not of a core.
    [[nodiscard]] virtual int64_t MonotonicMicros() const { return 0; }

    std::vector<Mapping> mappings;
    std::string program; // its file; empty if that is not known
    int64_t number = 0;  // of the process; 0 for a core
    std::string name;    // for messages: "process 17", "core FILE"
    [[nodiscard]] bool IsLive() const { return number != 0; }
};

std::unique_ptr<Memory> OpenProcess(int64_t number);
std::unique_ptr<Memory> OpenCore(const std::string &path);

} // namespace inspect

#endif
