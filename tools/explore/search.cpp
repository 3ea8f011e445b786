#include "search.h"

#include <cstdio>
#include <thread>
#include <unistd.h>

#include "page.h"
#include "shorten.h"

namespace explore {
namespace {

constexpr size_t kMaxFaults = 8; // kept, each with a file

uint64_t Scramble(uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

} // namespace

Fault Counts(const Options &options, const Outcome &outcome) {
    uint32_t needed = 0;
    switch (outcome.fault) {
    case Fault::None:
        return Fault::None;
    case Fault::Race:
        return Fault::Race;
    case Fault::Deadlock:
    case Fault::Endless:
    case Fault::Stuck:
        needed = OnHang;
        break;
    case Fault::Leak:
        needed = OnLeak;
        break;
    case Fault::Misuse:
        needed = OnMisuse;
        break;
    case Fault::Status:
    case Fault::Signal:
        needed = OnExit;
        break;
    case Fault::Sanitizer:
        needed = OnSanitizer;
        break;
    }
    return (options.fail_on & needed) != 0 ? outcome.fault : Fault::None;
}

Order OrderFor(const Options &options, const Order &common, uint64_t index, uint64_t length) {
    Order order = common;
    order.seed = Scramble(options.seed * 0x9E3779B97F4A7C15u + index);
    order.schedule = index;
    order.length = length;
    Choice choice = options.strategy;
    if (choice == Choice::Mix)
        choice = index % 2 == 0 ? Choice::Random : Choice::Pct;
    switch (choice) {
    case Choice::Pct:
        order.strategy = Strategy::Pct;
        order.depth = options.depth > 0 ? options.depth : 2 + static_cast<uint32_t>(index / 2 % 4);
        break;
    case Choice::Round:
        order.strategy = Strategy::Round;
        order.depth = 1;
        for (uint64_t rest = index; rest >= order.depth; order.depth++) // 1, 2, 2, 3, 3, 3, ...
            rest -= order.depth;
        break;
    default:
        order.strategy = Strategy::Random;
        break;
    }
    if (index == 0) // the default schedule: what everything else departs from
        order.strategy = Strategy::Replay;
    return order;
}

Search::Search(const Options &options) : m_options(options), m_start(std::chrono::steady_clock::now()) {}

bool Search::Run(std::string &message) {
    if (!m_options.trace.empty() && (m_trace = std::fopen(m_options.trace.c_str(), "we")) == nullptr) {
        message = m_options.trace + ": cannot be written";
        return false;
    }
    std::vector<std::thread> threads;
    for (uint32_t number = 1; number < m_options.jobs; number++)
        threads.emplace_back([this, number] { Work(number); });
    Work(0);
    for (std::thread &thread : threads)
        thread.join();
    if (m_trace != nullptr)
        (void)std::fclose(m_trace);
    m_totals.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (isatty(2) != 0 && !m_options.json)
        (void)std::fputs("\r\033[K", stderr);
    message = m_failure;
    return m_failure.empty();
}

bool Search::Next(uint64_t index) const {
    if (m_stop || index >= m_options.schedules)
        return false;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    return m_options.seconds == 0 || seconds < m_options.seconds;
}

void Search::Work(uint32_t number) {
    Worker worker(m_options);
    std::string message;
    bool good = worker.Start(message);
    Order common = worker.NewOrder();
    common.trace = m_trace != nullptr ? 1 : 0;
    uint64_t length =
        100; // points that a schedule is expected to have: the mean so far, looked at now and then
    uint64_t points = 0;
    uint64_t done = 0;
    int64_t blocks = INT64_MAX;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (uint64_t index = number; good && Next(index); index += m_options.jobs) {
        lock.unlock();
        Order order = OrderFor(m_options, common, index, length);
        order.usual_blocks = blocks;
        Outcome outcome;
        good = worker.Run(order, {}, outcome);
        points += outcome.points;
        if (outcome.fault == Fault::None)
            blocks = std::min(blocks, outcome.blocks);
        done++;
        if ((done & (done - 1)) == 0)
            length = points / done + 1;
        lock.lock();
        if (good)
            Note(worker, order, outcome, index);
        else
            message = "the program under exploration is gone: " + worker.Output();
    }
    if (!good && m_failure.empty())
        m_failure = message;
    m_stop = m_stop || !good;
}

// Called with the lock held, as the next three.
void Search::Note(Worker &worker, const Order &order, const Outcome &outcome, uint64_t index) {
    m_totals.schedules++;
    m_totals.points += outcome.points;
    m_totals.most_points = std::max(m_totals.most_points, outcome.points);
    m_totals.threads = std::max(m_totals.threads, outcome.threads);
    m_totals.outside += outcome.outside > 0 ? 1 : 0;
    m_distinct.Add(outcome.hash);
    if (m_trace != nullptr)
        WriteTrace(worker, index);
    if (Counts(m_options, outcome) != Fault::None) {
        m_totals.failed++;
        const auto found = m_faults.find(outcome.signature);
        if (found != m_faults.end())
            found->second.times++;
        else if (m_faults.size() < kMaxFaults)
            Keep(worker, order, outcome, index);
        m_stop = m_stop || m_options.first;
    }
    Progress();
}

void Search::Keep(Worker &worker, const Order &order, const Outcome &outcome, uint64_t index) {
    Found found;
    found.outcome = outcome;
    found.replay.seed = m_options.seed;
    found.replay.schedule = index;
    found.replay.strategy = StrategyText(m_options);
    found.replay.fault = FaultText(outcome.fault);
    found.replay.order = order;
    found.replay.program = m_options.program;
    found.replay.decisions = worker.Made();
    found.made = found.replay.decisions.size();
    Shorten(worker, found);
    found.page = MakePage(worker, m_options, found.replay, found.outcome);
    char name[64];
    (void)std::snprintf(name, sizeof name, "vyx-explore-%016llx.replay",
                        static_cast<unsigned long long>(outcome.signature));
    found.file = m_options.directory + "/" + name;
    if (!WriteReplay(found.file, found.replay))
        m_failure = found.file + ": cannot be written";
    m_faults[outcome.signature] = found;
}

void Search::WriteTrace(const Worker &worker, uint64_t index) {
    const Mapping &mapping = worker.Shared();
    for (uint32_t i = 0; i < mapping.answer.records; i++) {
        const Record &record = mapping.records[i];
        (void)std::fprintf(m_trace, "%llu %u %s %s %u %lld -> %u\n", static_cast<unsigned long long>(index),
                           record.thread, OpText(record.op), KindText(record.kind), record.object,
                           static_cast<long long>(record.time), record.next);
    }
}

void Search::Progress() {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (m_options.json || seconds - m_shown < 0.5 || isatty(2) == 0)
        return;
    m_shown = seconds;
    (void)std::fprintf(
        stderr, "\r%llu schedules, %.0f a second, %llu distinct, %u threads, %llu points, %zu found\033[K",
        static_cast<unsigned long long>(m_totals.schedules),
        static_cast<double>(m_totals.schedules) / seconds,
        static_cast<unsigned long long>(m_distinct.Count()), m_totals.threads,
        static_cast<unsigned long long>(m_totals.points), m_faults.size());
}

} // namespace explore
