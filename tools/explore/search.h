// The search: schedule after schedule, by the strategy that the options name.
#ifndef VYX_EXPLORE_SEARCH_H_
#define VYX_EXPLORE_SEARCH_H_

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "distinct.h"
#include "replay_file.h"
#include "worker.h"

namespace explore {

struct Found {
    Outcome outcome;
    Replay replay;
    uint64_t times = 1;
    uint64_t made = 0; // decisions before it was made shorter
    std::string file;
    std::string page;
};

struct Totals {
    uint64_t schedules = 0;
    uint64_t points = 0;
    uint64_t most_points = 0;
    uint32_t threads = 0;
    uint64_t outside = 0;
    uint64_t failed = 0; // schedules
    double seconds = 0;
};

class Search {
  public:
    explicit Search(const Options &options);
    // False: it could not be run; `message` says why.
    bool Run(std::string &message);

    const Totals &Sum() const { return m_totals; }
    uint64_t DistinctCount() const { return m_distinct.Count(); }
    bool DistinctFull() const { return m_distinct.Full(); }
    const std::map<uint64_t, Found> &Faults() const { return m_faults; }

  private:
    void Work(uint32_t number);
    bool Next(uint64_t index) const; // there is a schedule of this number to run
    void Note(Worker &worker, const Order &order, const Outcome &outcome, uint64_t index);
    void Keep(Worker &worker, const Order &order, const Outcome &outcome, uint64_t index);
    void WriteTrace(const Worker &worker, uint64_t index);
    void Progress();

    const Options &m_options;
    std::chrono::steady_clock::time_point m_start;
    std::mutex m_mutex; // guards all below
    std::string m_failure;
    Totals m_totals;
    Distinct m_distinct;
    std::map<uint64_t, Found> m_faults; // by signature
    bool m_stop = false;
    double m_shown = 0;
    std::FILE *m_trace = nullptr;
};

// What is a fault under these options; Fault::None otherwise.
Fault Counts(const Options &options, const Outcome &outcome);

// The order for schedule `index`, a function of the options, the index and the expected length only.
Order OrderFor(const Options &options, const Order &common, uint64_t index, uint64_t length);

} // namespace explore

#endif
