#include "page.h"

#include <cstdio>
#include <sstream>

#include "symbols.h"

namespace explore {
namespace {

constexpr uint32_t kShownAtStart = 3; // points of a turn that are printed; those between are counted
constexpr uint32_t kShownAtEnd = 4;

std::string ObjectText(Kind kind, uint32_t number) {
    return kind == Kind::None ? "" : std::string(KindText(kind)) + " " + std::to_string(number);
}

std::string Padded(std::string text, size_t width) {
    if (text.size() < width)
        text.append(width - text.size(), ' ');
    return text;
}

std::string PointText(const Record &record, const Symbols &symbols) {
    std::string text = "   ";
    text += (record.flags & Record::After) != 0 ? "after " : "";
    text += (record.flags & Record::Blocked) != 0 ? "waits: " : "";
    text += std::string(OpText(record.op)) + " " + ObjectText(record.kind, record.object);
    return Padded(text, 34) + " " + symbols.Place(record);
}

// Who goes on after this point, and why.
std::string SwitchText(const Record &record) {
    if ((record.flags & Record::WasLate) != 0 && record.next == record.thread)
        return "   --- the clock goes on to the next deadline\n";
    if (record.next == record.thread)
        return "";
    std::string text = "   --- ";
    if ((record.flags & Record::Forced) != 0)
        text += "FORCED SWITCH to thread " + std::to_string(record.next);
    else
        text += "thread " + std::to_string(record.next) + " goes on";
    if ((record.flags & Record::WasLate) != 0)
        text += ", after the next deadline";
    return text + "\n";
}

// One thread's turn: records from `begin` to before `end`.
void PrintTurn(const Mapping &mapping, const Symbols &symbols, uint32_t begin, uint32_t end,
               std::ostringstream &out) {
    const Record &first = mapping.records[begin];
    out << "thread " << first.thread << ", " << first.time / 1000 << " us\n";
    for (uint32_t i = begin; i < end; i++) {
        const uint32_t left = end - i;
        if (i - begin == kShownAtStart && left > kShownAtEnd + 1) {
            out << "   ... " << left - kShownAtEnd << " more points ...\n";
            i = end - kShownAtEnd - 1;
            continue;
        }
        const Record &record = mapping.records[i];
        if ((record.flags & Record::Crash) != 0 && record.op != Op::None)
            out << Padded(record.op == Op::Store ? "   THE RACE: write" : "   THE RACE: read", 34) << " "
                << symbols.Place(record) << "\n";
        else if ((record.flags & Record::Crash) != 0)
            out << Padded("   CRASH", 34) << " " << symbols.Stack(record) << "\n";
        else
            out << PointText(record, symbols) << "\n" << SwitchText(record);
    }
}

void PrintWaiting(const Mapping &mapping, const Symbols &symbols, std::ostringstream &out) {
    for (uint32_t i = 0; i < mapping.answer.waiting; i++) {
        const Waiting &entry = mapping.waiting[i];
        out << "thread " << entry.thread;
        if (entry.op == Op::None) {
            out << " runs\n";
            continue;
        }
        out << " waits: " << OpText(entry.op) << " " << ObjectText(entry.kind, entry.object);
        if (entry.owner != kNobody && entry.kind != Kind::Thread)
            out << ", held by thread " << entry.owner;
        if (entry.record < mapping.answer.records)
            out << ", at " << symbols.Place(mapping.records[entry.record]);
        out << "\n";
    }
}

std::string Escaped(const std::string &text) {
    std::string escaped;
    for (const char letter : text) {
        char code[8];
        if (letter == '"' || letter == '\\')
            escaped += std::string("\\") + letter;
        else if (static_cast<unsigned char>(letter) < 0x20) {
            (void)std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(letter));
            escaped += code;
        } else
            escaped += letter;
    }
    return escaped;
}

} // namespace

Order ReplayOrder(const Options &options, const Replay &replay) {
    Order order = replay.order;
    order.layout = kLayout;
    order.max_points = options.max_points;
    order.strategy = Strategy::Replay;
    order.trace = 0;
    return order;
}

std::string MakePage(Worker &worker, const Options &options, const Replay &replay, Outcome &outcome) {
    Order order = ReplayOrder(options, replay);
    order.trace = 1;
    Outcome again;
    std::ostringstream out;
    if (!worker.Run(order, replay.decisions, again))
        return "the program could not be run again\n";
    const Mapping &mapping = worker.Shared();
    const Symbols symbols(mapping);
    const uint32_t count = std::min(mapping.answer.records, kMaxRecords);
    for (uint32_t begin = 0; begin < count;) {
        uint32_t end = begin + 1;
        while (end < count && mapping.records[end].thread == mapping.records[begin].thread)
            end++;
        PrintTurn(mapping, symbols, begin, end, out);
        begin = end;
    }
    out << "\n" << FaultText(again.fault) << ": " << StatusText(again) << "\n";
    if (again.fault != Fault::Misuse)
        out << again.notes;
    PrintWaiting(mapping, symbols, out);
    const std::string output = worker.Output();
    if (!output.empty())
        out << "the program printed:\n" << output << (output.back() == '\n' ? "" : "\n");
    if (again.hash != replay.hash && replay.points != 0)
        out << "this schedule is not the one that was recorded: the program depends on something else, too\n";
    outcome = again;
    return out.str();
}

void PrintTable(const Options &options, const Search &search) {
    const Totals &sum = search.Sum();
    for (const auto &[signature, found] : search.Faults()) {
        (void)std::printf(
            "== %s, first in schedule %llu, %llu times; %llu of %llu decisions are needed\n\n%s\n",
            found.replay.fault.c_str(), static_cast<unsigned long long>(found.replay.schedule),
            static_cast<unsigned long long>(found.times),
            static_cast<unsigned long long>(found.replay.decisions.size()),
            static_cast<unsigned long long>(found.made), found.page.c_str());
        (void)std::printf("replay: vyx-explore --replay %s --", found.file.c_str());
        for (const std::string &argument : options.program)
            (void)std::printf(" %s", argument.c_str());
        (void)std::printf("\n\n");
    }
    const auto schedules = static_cast<double>(sum.schedules);
    (void)std::printf(
        "schedules  %llu (%s%llu distinct) in %.1f s, %.0f a second; seed %llu, strategy %s\n",
        static_cast<unsigned long long>(sum.schedules), search.DistinctFull() ? "at least " : "",
        static_cast<unsigned long long>(search.DistinctCount()), sum.seconds, schedules / sum.seconds,
        static_cast<unsigned long long>(options.seed), StrategyText(options).c_str());
    (void)std::printf("points     %.1f a schedule, at most %llu; %.0f a second\n",
                      sum.schedules > 0 ? static_cast<double>(sum.points) / schedules : 0,
                      static_cast<unsigned long long>(sum.most_points),
                      static_cast<double>(sum.points) / sum.seconds);
    (void)std::printf("threads    at most %u\n", sum.threads);
    if (sum.outside > 0)
        (void)std::printf(
            "outside    %llu schedules waited for something unknown; they may not be repeatable\n",
            static_cast<unsigned long long>(sum.outside));
    (void)std::printf("found      %zu faults, in %llu schedules\n", search.Faults().size(),
                      static_cast<unsigned long long>(sum.failed));
}

void PrintJson(const Options &options, const Search &search) {
    const Totals &sum = search.Sum();
    std::ostringstream out;
    out << "{\"program\": \"" << Escaped(options.program[0]) << "\", \"seed\": " << options.seed
        << ", \"strategy\": \"" << StrategyText(options) << "\", \"schedules\": " << sum.schedules
        << ", \"distinct\": " << search.DistinctCount() << ", \"seconds\": " << sum.seconds
        << ", \"points\": " << sum.points << ", \"most_points\": " << sum.most_points
        << ", \"threads\": " << sum.threads << ", \"outside\": " << sum.outside
        << ", \"failed\": " << sum.failed << ", \"faults\": [";
    const char *separator = "";
    for (const auto &[signature, found] : search.Faults()) {
        out << separator << "{\"fault\": \"" << found.replay.fault
            << "\", \"schedule\": " << found.replay.schedule << ", \"times\": " << found.times
            << ", \"decisions\": " << found.replay.decisions.size() << ", \"decisions_found\": " << found.made
            << ", \"points\": " << found.replay.points << ", \"text\": \""
            << Escaped(StatusText(found.outcome)) << "\", \"replay\": \"" << Escaped(found.file)
            << "\", \"page\": \"" << Escaped(found.page) << "\"}";
        separator = ", ";
    }
    out << "]}\n";
    (void)std::fputs(out.str().c_str(), stdout);
}

} // namespace explore
