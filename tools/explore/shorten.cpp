#include "shorten.h"

#include <chrono>

namespace explore {
namespace {

constexpr int kMaxRuns = 3000;
constexpr double kMaxSeconds = 10;

class Shortener {
  public:
    Shortener(Worker &worker, Found &found) : m_worker(worker), m_found(found), m_order(found.replay.order) {
        m_order.strategy = Strategy::Replay;
        m_order.trace = 0;
    }

    // Runs the decisions; if the fault shows, they are the schedule from now on, as far as they played a part.
    bool Try(const std::vector<Decision> &decisions) {
        Outcome outcome;
        m_runs++;
        if (!m_worker.Run(m_order, decisions, outcome))
            return false;
        const Outcome &wanted = m_found.outcome;
        if (outcome.fault != wanted.fault ||
            ((wanted.fault == Fault::Status || wanted.fault == Fault::Signal) &&
             outcome.status != wanted.status))
            return false;
        const std::vector<Decision> made = m_worker.Made();
        if (made.size() > decisions.size())
            return false;
        m_found.replay.decisions = made;
        m_found.replay.points = outcome.points;
        m_found.replay.hash = outcome.hash;
        return true;
    }

    bool MayGoOn() const {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        return m_runs < kMaxRuns && seconds < kMaxSeconds;
    }

    // Leaves out blocks of `size`, from the end on, while the fault shows. True if one could be left out.
    bool Pass(size_t size) {
        bool shorter = false;
        size_t end = m_found.replay.decisions.size();
        while (end > 0 && MayGoOn()) {
            const std::vector<Decision> &all = m_found.replay.decisions;
            end = std::min(end, all.size());
            const size_t begin = end > size ? end - size : 0;
            std::vector<Decision> rest(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(begin));
            rest.insert(rest.end(), all.begin() + static_cast<std::ptrdiff_t>(end), all.end());
            shorter = Try(rest) || shorter;
            end = begin;
        }
        return shorter;
    }

  private:
    Worker &m_worker;
    Found &m_found;
    Order m_order;
    int m_runs = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace

void Shorten(Worker &worker, Found &found) {
    if (found.outcome.fault == Fault::Stuck)
        return; // each try would take as long
    Shortener shortener(worker, found);
    if (!shortener.Try(found.replay.decisions))
        return; // it does not come back: the page says so
    size_t size = found.replay.decisions.size();
    while (size > 0 && shortener.MayGoOn()) {
        const bool shorter = shortener.Pass(size);
        if (size == 1 && !shorter)
            break;
        size = size == 1 ? 1 : (size + 1) / 2;
        size = std::min(size, found.replay.decisions.size());
    }
}

} // namespace explore
