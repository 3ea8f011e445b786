// Runs single schedules of the program: a mapping shared with it, and a server inside it that forks a child for each.
#ifndef VYX_EXPLORE_WORKER_H_
#define VYX_EXPLORE_WORKER_H_

#include <string>
#include <sys/types.h>
#include <vector>

#include "mapping.h"
#include "options.h"

namespace explore {

// What became of a schedule.
struct Outcome {
    Fault fault = Fault::None;
    int status = 0; // as waitpid has it
    uint64_t points = 0;
    uint64_t hash = 0;
    uint32_t threads = 0;
    uint32_t outside = 0;
    int64_t blocks = 0;     // of the heap, left at the exit
    uint64_t signature = 0; // of the fault: the same for the same fault found again, as far as can be told
    std::string text;       // the runtime's words about the fault
    std::string notes;      // and about misuse, a line each
};

class Worker {
  public:
    explicit Worker(const Options &options);
    ~Worker();
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // False: it cannot be run; `message` says why.
    bool Start(std::string &message);
    // Runs one schedule. False: the server is gone.
    bool Run(const Order &order, const std::vector<Decision> &decisions, Outcome &outcome);
    // Becomes the program, which runs one schedule. Returns only if that fails.
    void Become(const Order &order, const std::vector<Decision> &decisions);

    const Mapping &Shared() const { return *m_mapping; }
    std::vector<Decision> Made() const;
    std::string Output() const; // the end of what the program has printed
    Order NewOrder() const;     // what the options say of every schedule

  private:
    bool MakeMapping(std::string &message);
    void Write(const Order &order, const std::vector<Decision> &decisions);
    void Execute(bool serve, int commands, int answers);
    bool AwaitAnswer(int &status, bool &stuck);
    void Judge(int status, bool stuck, Outcome &outcome) const;
    uint64_t DeadlockSignature(uint64_t signature) const;
    void EmptyDirectory() const;

    const Options &m_options;
    Mapping *m_mapping = nullptr;
    int m_memory = -1; // descriptor of the mapping
    int m_output = -1; // what the program prints
    int m_commands = -1;
    int m_answers = -1;
    pid_t m_server = -1;
    std::string m_directory; // the program's TMPDIR
};

const char *FaultText(Fault fault);
std::string StatusText(const Outcome &outcome);

} // namespace explore

#endif
