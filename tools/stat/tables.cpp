// What the library's registries say, as tables.
#include "tables.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <map>

#include "reader.h"

namespace inspect {
namespace {

constexpr int kQueueTries = 200;
constexpr size_t kMostNewMessages = 200000; // that are walked through
constexpr size_t kMostReceivers = 100000;   // of all queues, beside those of one more
constexpr int kEventTries = 200;
constexpr size_t kMostWaited = 1024; // events of a wait that are looked at
constexpr size_t kMostNamed = 4;     // and named
constexpr size_t kLongestName = 256; // bytes; the library's are shorter

Cell Count(uint64_t number) {
    return static_cast<int64_t>(number);
}

std::string Hex(uint64_t number) {
    char text[24];
    (void)std::snprintf(text, sizeof text, "0x%" PRIx64, number);
    return text;
}

std::string Version(uint32_t version) {
    return std::to_string(version >> 24) + "." + std::to_string(version >> 16 & 255) + "." +
           std::to_string(version & 65535);
}

int64_t Micros(clockid_t clock) {
    timespec now = {};
    (void)clock_gettime(clock, &now); // these clocks there are
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

std::string Utc(int64_t micros) {
    const auto seconds = static_cast<time_t>(micros / 1000000);
    tm fields = {};
    char text[40] = {};
    if (gmtime_r(&seconds, &fields) != nullptr)
        (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &fields);
    return text;
}

// The names of the bits that are set, joined with '+'; bit 0 has the first name.
template <class Names>
std::string BitNames(uint64_t bits, const Names &names) {
    std::string text;
    for (size_t i = 0; i < names.size(); i++)
        if ((bits >> i & 1) != 0)
            text += (text.empty() ? "" : "+") + std::string(names[i]);
    return text.empty() ? "none" : text;
}

class Collector {
  public:
    explicit Collector(Memory &memory)
        : m_memory(memory), m_description(memory), m_reader(memory, m_description) {
        for (const Thread &thread : memory.Threads())
            m_threads[thread.number] = thread;
    }

    Report All() {
        Report report = {m_memory.number, m_memory.name, m_memory.program, m_description.library, {}};
        if (report.program.empty() && !m_memory.mappings.empty())
            report.program = m_memory.mappings.front().path;
        report.tables = {Library(), Pools(),  FlexiblePools(), Queues(), Receivers(), Timers(),
                         Waits(),   Events(), Semaphores(),    Log(),    Threads()};
        return report;
    }

  private:
    /* ---- Names of things */

    [[nodiscard]] Cell ThreadName(uint64_t number) const {
        const auto found = m_threads.find(static_cast<uint32_t>(number));
        return found == m_threads.end() || found->second.name.empty() ? Cell() : Cell(found->second.name);
    }

    // The function at a pointer; else the file and the place in it.
    [[nodiscard]] Cell Function(uint64_t pointer) const {
        if (pointer == 0)
            return "none";
        const uint64_t place = m_description.Place(pointer);
        const Mapping *image = nullptr;
        for (const Mapping &mapping : m_memory.mappings) {
            if (mapping.offset == 0)
                image = &mapping;
            if (place < mapping.start || place >= mapping.end || image == nullptr ||
                image->path != mapping.path)
                continue;
            const uint64_t linked = LinkedAt(*image, place);
            const std::string function = FunctionAt(mapping.path, linked);
            return function.empty() ? mapping.path.substr(mapping.path.rfind('/') + 1) + "+" + Hex(linked)
                                    : function;
        }
        return Hex(pointer);
    }

    // The address that a place in an image has in its file.
    [[nodiscard]] uint64_t LinkedAt(const Mapping &image, uint64_t place) const {
        unsigned char header[kHeaderSize] = {};
        if (!m_memory.Read({{image.start, header, sizeof header}}))
            return place - image.start;
        const bool fixed =
            ToNumber(header, sizeof header, offsetof(Elf64_Ehdr, e_type), 2, m_description.layout) == ET_EXEC;
        return fixed ? place : place - image.start;
    }

    // The place of record N of a registry.
    [[nodiscard]] uint64_t EntryOf(const std::string &registry, uint64_t number) const {
        return m_reader.PlaceOf(registry) + number * m_description.Get(registry).size;
    }

    [[nodiscard]] uint64_t CountOf(const std::string &registry) const {
        return std::min<uint64_t>(m_description.Get(registry).count, 4096);
    }

    /* ---- The tables */

    Table Library() {
        Table table = {
            "library",
            "library",
            true,
            {{"starts", Metric::Gauge, "Starts not yet matched by a stop"}, {"version", Metric::None, ""}},
            {}};
        const uint64_t starts = m_reader.Value("starts");
        table.rows = {{Cell(int64_t{static_cast<int32_t>(starts)}),
                       Cell(Version(m_description.Get("version").offset))}};
        return table;
    }

    Table Pools() {
        Table table = {"pools",
                       "pool",
                       false,
                       {{"pool", Metric::Label, ""},
                        {"workers", Metric::Gauge, "Live workers"},
                        {"most", Metric::Gauge, "The most workers that there may be"},
                        {"busy", Metric::Gauge, "Workers that have an item"},
                        {"idle", Metric::Gauge, "Workers that wait for an item"},
                        {"waiting", Metric::Gauge, "Callers that wait for a worker"},
                        {"items", Metric::Counter, "Items accepted since the pool was made"}},
                       {}};
        if (!m_description.Has("pool"))
            return table;
        const uint64_t used = m_reader.Value("pool_used");
        for (uint64_t i = 0; i < std::min<uint64_t>(CountOf("pool"), 64); i++) {
            if ((used >> i & 1) == 0)
                continue;
            const auto pool = m_reader.ReadLocked("pool", EntryOf("pool", i), "lock");
            table.rows.emplace_back(table.columns.size());
            table.rows.back()[0] = Count(i);
            if (!pool)
                continue;
            const uint64_t workers = pool->Number("workers");
            const uint64_t idle = pool->CountBits("idle");
            table.rows.back() = {Count(i),
                                 Count(workers),
                                 Count(pool->Number("most")),
                                 Count(workers - idle),
                                 Count(idle),
                                 Count(pool->Number("waiting")),
                                 Count(pool->Number("items"))};
        }
        return table;
    }

    // The pools are freed when they are destroyed, so none may come or go while they are read one by one.
    Table FlexiblePools() {
        Table table = {"flexible_pools",
                       "flexible_pool",
                       false,
                       {{"pool", Metric::Label, ""},
                        {"workers", Metric::Gauge, "Live workers"},
                        {"most", Metric::Gauge, "The most workers that there may be"},
                        {"busy", Metric::Gauge, "Workers that have an item"},
                        {"idle", Metric::Gauge, "Workers without work"},
                        {"queued", Metric::Gauge, "Items that no worker has taken"},
                        {"items", Metric::Counter, "Items taken by workers since the pool was made"},
                        {"handler", Metric::None, ""}},
                       {}};
        if (!m_description.Has("flex"))
            return table;
        table.complete = m_reader.UnderLock(m_reader.LockOf("FlexRegistry"), [&] {
            table.rows.clear();
            std::vector<Record> pools;
            if (!m_reader.ReadList("flex", m_description.Place(m_reader.Value("flex")), pools))
                return false;
            for (const Record &listed : pools) {
                const auto pool = m_reader.ReadLocked("flex", listed.Place(), "lock");
                table.rows.emplace_back(table.columns.size());
                table.rows.back()[0] = Count(listed.Number("number"));
                if (!pool)
                    continue;
                const uint64_t workers = pool->Number("workers");
                const uint64_t idle = pool->Number("idle");
                table.rows.back() = {Count(pool->Number("number")),
                                     Count(workers),
                                     Count(pool->Number("most")),
                                     Count(workers - idle),
                                     Count(idle),
                                     Count(pool->Number("queued")),
                                     Count(pool->Number("items")),
                                     Function(pool->Number("handler"))};
            }
            return true;
        });
        if (!table.complete)
            table.rows.clear();
        return table;
    }

    struct QueueState {
        uint64_t messages;
        uint64_t bytes;
        int64_t highest; // if there are messages
    };

    // A queue's messages: those in order, as the queue counts them, and the new ones, which are counted here. New ones come
    // at the front of their list, and leave it all at once, under the lock. So the list stays as it is behind its first.
    std::optional<QueueState> ReadQueue(uint64_t place) {
        for (int i = 0; i < (m_memory.IsLive() ? kQueueTries : 1); i++) {
            const auto taken = TakenOf(place); // first: whatever is read after it changes under the lock only
            const auto queue = m_reader.ReadLocked("queue", place, "lock");
            if (!queue)
                return {};
            QueueState state = {queue->Number("sorted"), queue->Number("sorted_bytes"), INT32_MIN};
            if (!AddNew(queue->Pointer("newest"), state) || !AddHighest(queue->Pointer("index"), state))
                continue;
            const auto again = m_reader.ReadLocked("queue", place, "lock");
            if (again && TakenOf(place) == taken)
                return state;
        }
        return {};
    }

    // How often the queue's lock was taken.
    uint32_t TakenOf(uint64_t place) {
        const Record queue(m_description, "queue", place);
        unsigned char bytes[4] = {};
        (void)m_memory.Read(
            {{queue.PlaceOf("lock") + m_description.Get("lock.taken").offset, bytes, sizeof bytes}});
        return static_cast<uint32_t>(ToNumber(bytes, 4, 0, 4, m_description.layout));
    }

    bool AddNew(uint64_t place, QueueState &state) {
        const uint64_t closed = m_reader.PlaceOf("queue_closed");
        for (size_t i = 0; place != 0 && place != closed; i++) {
            Record message(m_description, "message", place);
            if (i == kMostNewMessages || !m_reader.Read(message))
                return false;
            state.messages++;
            state.bytes += message.Number("bytes");
            state.highest = std::max(state.highest, message.Signed("priority"));
            place = message.Pointer("next");
        }
        return true;
    }

    // Those that are in order are in a row of buckets; the last one has the highest priority.
    bool AddHighest(uint64_t place, QueueState &state) {
        Record index(m_description, "queue_index", place);
        if (place == 0)
            return true;
        if (!m_reader.Read(index))
            return false;
        if (index.Number("used") == 0)
            return true;
        Record bucket(m_description, "queue_bucket",
                      index.PlaceOf("buckets") +
                          (index.Number("used") - 1) * m_description.Get("queue_bucket").size);
        if (!m_reader.Read(bucket))
            return false;
        state.highest = std::max(state.highest, bucket.Signed("highest"));
        return true;
    }

    Table Queues() {
        Table table = {"queues",
                       "queue",
                       false,
                       {{"queue", Metric::Label, ""},
                        {"messages", Metric::Gauge, "Messages in the queue"},
                        {"bytes", Metric::Gauge, "Bytes of data in them"},
                        {"highest", Metric::Gauge, "The highest priority of a message"}},
                       {}};
        int64_t number = -1;
        for (const Record &queue : m_reader.ReadArray("queue")) {
            number++;
            if (queue.Pointer("newest") == m_reader.PlaceOf("queue_closed"))
                continue;
            const auto state = ReadQueue(queue.Place());
            table.rows.push_back({number, Cell(), Cell(), Cell()});
            if (!state)
                continue;
            std::vector<Cell> &row = table.rows.back();
            row[1] = Count(state->messages);
            row[2] = Count(state->bytes);
            row[3] = state->messages > 0 ? Cell(state->highest) : Cell(None());
        }
        return table;
    }

    Table Receivers() {
        Table table = {
            "receivers",
            "receiver",
            false,
            {{"queue", Metric::Label, ""},
             {"thread", Metric::Label, ""},
             {"name", Metric::None, ""},
             {"waits_ms", Metric::Gauge, "Milliseconds for which the thread has waited for a message"},
             {"left_ms", Metric::Gauge, "Milliseconds until it no longer waits"}},
            {}};
        int64_t number = -1;
        for (const Record &queue : m_reader.ReadArray("queue")) {
            number++;
            std::vector<Record> receivers;
            if (queue.Pointer("receivers") == 0)
                continue;
            if (table.rows.size() > kMostReceivers || !ReadReceivers(queue.Place(), receivers)) {
                table.complete = false;
                receivers.clear();
            }
            const auto now = static_cast<uint32_t>(Micros(CLOCK_REALTIME) / 1000);
            for (const Record &receiver : receivers) {
                const uint64_t thread = receiver.Number("thread");
                const int64_t deadline = receiver.Deadline("deadline");
                const auto waited =
                    static_cast<int32_t>(now - static_cast<uint32_t>(receiver.Number("since")));
                table.rows.push_back(
                    {number, Count(thread), ThreadName(thread),
                     m_memory.IsLive() ? Cell(int64_t{std::max(waited, 0)}) : Cell(),
                     deadline == Record::kNever ? Cell(None()) : Left(deadline, CLOCK_REALTIME)});
                if (deadline != Record::kNever)
                    m_received.push_back(
                        WaitRow("message", "queue " + std::to_string(number), thread, deadline));
            }
        }
        m_received_complete = table.complete;
        return table;
    }

    bool ReadReceivers(uint64_t place, std::vector<Record> &receivers) {
        Record queue(m_description, "queue", place);
        return m_reader.UnderLock(queue.PlaceOf("receive_lock"), [&] {
            receivers.clear();
            return m_reader.Read(queue) &&
                   m_reader.ReadList("receiver", queue.Pointer("receivers"), receivers);
        });
    }

    Table Timers() {
        Table table = {"timers",
                       "timer",
                       false,
                       {{"timer", Metric::Label, ""},
                        {"period_ms", Metric::Gauge, "Period in milliseconds"},
                        {"runs", Metric::Counter, "Runs of the routine"},
                        {"late_us", Metric::Gauge, "Microseconds by which the last run came late"},
                        {"routine", Metric::None, ""}},
                       {}};
        if (!m_description.Has("timer"))
            return table;
        table.complete = m_reader.UnderLock(m_reader.LockOf("Timers"), [&] {
            table.rows.clear();
            int64_t number = -1;
            for (const Record &entry : m_reader.ReadArray("timer")) {
                number++;
                if (entry.Number("used") != 0 && !AddTimer(number, entry.Pointer("record"), table))
                    return false;
            }
            return number >= 0;
        });
        if (!table.complete)
            table.rows.clear();
        return table;
    }

    bool AddTimer(int64_t number, uint64_t place, Table &table) {
        Record timer(m_description, "timer_record", place);
        table.rows.push_back({number, Cell(), Cell(), Cell(), Cell()});
        if (place == 0) // there was no memory for it
            return true;
        if (!m_reader.Read(timer))
            return false;
        table.rows.back() = {number, Count(timer.Number("period")), Count(timer.Number("runs")),
                             Count(timer.Number("late")), Function(timer.Number("routine"))};
        return true;
    }

    Table Waits() {
        Table table = {"waits",
                       "wait",
                       false,
                       {{"kind", Metric::Label, ""},
                        {"on", Metric::Label, ""},
                        {"thread", Metric::Label, ""},
                        {"name", Metric::None, ""},
                        {"left_ms", Metric::Gauge, "Milliseconds until the wait is over"},
                        {"until", Metric::None, ""}},
                       {}};
        const auto semaphores = m_reader.ReadRegistry("sem_wait", "SemWaits");
        for (const Record &wait : semaphores.records)
            table.rows.push_back(WaitRow("semaphore", SemaphoreName(wait.Pointer("semaphore")),
                                         wait.Number("thread"), wait.Deadline("deadline")));
        const auto conditions = m_reader.ReadRegistry("cond_wait", "CondWaits");
        for (const Record &wait : conditions.records)
            table.rows.push_back(WaitRow("condition", Hex(wait.Number("condition")), wait.Number("thread"),
                                         wait.Deadline("deadline")));
        table.rows.insert(table.rows.end(), m_received.begin(), m_received.end());
        const auto waiters = m_reader.ReadRegistry("event_waiter", "EventWaiters");
        table.complete = AddEventWaits(waiters.records, table) && semaphores.complete &&
                         conditions.complete && m_received_complete && waiters.complete;
        return table;
    }

    // What is left until a moment of one of this machine's clocks. When a core was made is not known.
    [[nodiscard]] Cell Left(int64_t deadline, clockid_t clock) const {
        return m_memory.IsLive() ? Cell(std::max<int64_t>(deadline - Micros(clock), 0) / 1000) : Cell();
    }

    // A row of the waits; the deadline is of the wall clock.
    [[nodiscard]] std::vector<Cell> WaitRow(const char *kind, std::string on, uint64_t thread,
                                            int64_t deadline) const {
        return {
            kind,         std::move(on), Count(thread), ThreadName(thread), Left(deadline, CLOCK_REALTIME),
            Utc(deadline)};
    }

    // Each thread that waits for events points to a note of what for. False: some changed all the time.
    bool AddEventWaits(const std::vector<Record> &waiters, Table &table) {
        bool complete = true;
        for (const Record &listed : waiters) {
            Record waiter = listed;
            std::string on;
            int64_t deadline = 0;
            bool read = false;
            for (int i = 0; !read && i < (m_memory.IsLive() ? kEventTries : 1); i++)
                read = m_reader.Read(waiter) && ReadEventWait(waiter, on, deadline);
            complete = complete && read;
            if (!read || on.empty())
                continue;
            const uint64_t thread = waiter.Number("thread");
            const int64_t left = deadline - m_memory.MonotonicMicros();
            table.rows.push_back({"event", on, Count(thread), ThreadName(thread),
                                  m_memory.IsLive() ? Cell(std::max<int64_t>(left, 0) / 1000) : Cell(),
                                  m_memory.IsLive() ? Cell(Utc(Micros(CLOCK_REALTIME) + left)) : Cell()});
        }
        return complete;
    }

    // `on` stays empty if the thread does not wait. False: it waits for something else meanwhile.
    bool ReadEventWait(const Record &waiter, std::string &on, int64_t &deadline) {
        on.clear();
        if (waiter.Pointer("wait") == 0)
            return true;
        Record wait(m_description, "event_wait", waiter.Pointer("wait"));
        Record after(m_description, "event_waiter", waiter.Place());
        if (!m_reader.Read(wait))
            return false;
        deadline = wait.Deadline("deadline");
        on = EventNames(wait.Pointer("events"), static_cast<int32_t>(wait.Number("count")));
        const Row &pointer = m_description.Get("event_waiter.wait");
        // The pointer first, as the thread changes it last.
        unsigned char bytes[8] = {};
        return m_memory.Read({{after.PlaceOf("wait"), bytes, pointer.size}, after.ToPart()}) &&
               m_description.Place(ToNumber(bytes, sizeof bytes, 0, pointer.size, m_description.layout)) ==
                   wait.Place() &&
               after.Number("waits") == waiter.Number("waits");
    }

    // What the events of an array are bound to; null ones are none.
    std::string EventNames(uint64_t place, int32_t count) {
        const auto word = static_cast<size_t>(m_description.layout.word);
        std::vector<unsigned char> bytes(
            std::min<size_t>(static_cast<size_t>(std::max(count, 0)), kMostWaited) * word);
        std::string names;
        size_t found = 0;
        if (!bytes.empty() && !m_memory.Read({{place, bytes.data(), bytes.size()}}))
            return Hex(place);
        for (size_t at = 0; at < bytes.size(); at += word) {
            const uint64_t event =
                m_description.Place(ToNumber(bytes.data(), bytes.size(), at, word, m_description.layout));
            if (event == 0 || found++ >= kMostNamed)
                continue;
            Record record(m_description, "event", event);
            names += (names.empty() ? "" : ", ") + (m_reader.Read(record) ? BoundTo(record) : Hex(event));
        }
        if (found > kMostNamed)
            names += " and " + std::to_string(found - kMostNamed) + " more";
        return found == 0 ? "nothing" : names;
    }

    static std::string BoundTo(const Record &event) {
        return event.Signed("pipe") != -1 ? "pipe " + std::to_string(event.Signed("pipe"))
                                          : "socket " + std::to_string(event.Signed("socket"));
    }

    std::string SemaphoreName(uint64_t place) {
        Record semaphore(m_description, "semaphore", place);
        return m_reader.Read(semaphore) ? semaphore.Text("name").substr(0, kLongestName) : Hex(place);
    }

    Table Events() {
        Table table = {"events",
                       "event",
                       false,
                       {{"event", Metric::Label, ""},
                        {"bound_to", Metric::None, ""},
                        {"asked", Metric::None, ""},
                        {"signalled", Metric::None, ""}},
                       {}};
        if (!m_description.Has("event"))
            return table;
        static constexpr std::array<const char *, 6> kAsked = {"read",   "write",   "",
                                                               "accept", "connect", "close"};
        const auto events = m_reader.ReadRegistry("event", "Events");
        table.complete = events.complete;
        for (const Record &event : events.records) {
            const int64_t pipe = event.Signed("pipe");
            const int state = pipe == -1 ? -1 : m_memory.PipeState(pipe);
            table.rows.push_back({Hex(event.Place()), BoundTo(event),
                                  pipe != -1 ? Cell(None()) : Cell(BitNames(event.Number("asked"), kAsked)),
                                  pipe == -1    ? Cell(None())
                                  : state == -1 ? Cell()
                                                : Cell(state == 1 ? "yes" : "no")});
        }
        return table;
    }

    Table Semaphores() {
        Table table = {"semaphores",
                       "semaphore",
                       false,
                       {{"name", Metric::Label, ""},
                        {"count", Metric::Gauge, "Counts that may be taken"},
                        {"waits", Metric::Gauge, "Bounded waits for it"}},
                       {}};
        if (!m_description.Has("semaphore"))
            return table;
        const auto semaphores = m_reader.ReadRegistry("semaphore", "SemNames");
        table.complete = semaphores.complete;
        for (const Record &semaphore : semaphores.records)
            table.rows.push_back(
                {semaphore.Text("name"), SemaphoreCount(semaphore), Count(semaphore.Number("waits"))});
        return table;
    }

    // As the GNU C library keeps it: in the low half of eight bytes, and where there are four, above a bit of its own. Not in
    // a core, which does not have memory that processes share.
    Cell SemaphoreCount(const Record &semaphore) {
        unsigned char bytes[8] = {};
        const uint32_t word = m_description.layout.word;
        if (semaphore.Number("wakes") != 0 || !m_memory.Read({{semaphore.Pointer("platform"), bytes, word}}))
            return {};
        const uint64_t value = ToNumber(bytes, word, 0, word, m_description.layout);
        return Count(word == 8 ? value & UINT32_MAX : value >> 1);
    }

    // The names of the log's targets, by their bits.
    std::vector<std::string> LogTargets() {
        std::vector<std::string> names;
        for (uint64_t i = 0; i < CountOf("log_target"); i++) {
            Record target(m_description, "log_target", EntryOf("log_target", i));
            names.push_back(m_reader.Read(target) ? target.Text("name") : std::to_string(i));
        }
        return names;
    }

    Table Log() {
        Table table = {"log",
                       "log",
                       true,
                       {{"level", Metric::Gauge, "The highest level that is logged"},
                        {"targets", Metric::None, ""},
                        {"queued", Metric::Counter, "Lines accepted"},
                        {"written", Metric::Counter, "Lines written"},
                        {"waiting", Metric::Gauge, "Lines that wait to be written"},
                        {"refused", Metric::Counter, "Lines for which there was no room"},
                        {"ring_bytes", Metric::Gauge, "Bytes of the ring that are taken"},
                        {"ring_size", Metric::Gauge, "Bytes of the ring"},
                        {"file", Metric::None, ""},
                        {"file_limit", Metric::None, ""}},
                       {std::vector<Cell>(10)}};
        if (!m_description.Has("log"))
            return table;
        std::vector<Cell> &row = table.rows[0];
        const auto ring = m_reader.ReadLocked("log", m_reader.PlaceOf("log"), "ring_lock");
        const uint64_t size = m_description.Get("log_ring").size;
        if (ring) {
            const uint64_t waiting = static_cast<uint32_t>(ring->Number("put") - ring->Number("done"));
            const uint64_t taken = ring->Pointer("memory") == 0 ? 0 : size - ring->Number("free");
            row = {Count(ring->Number("level")),
                   BitNames(ring->Number("targets"), LogTargets()),
                   Count(ring->Number("written") + waiting),
                   Count(ring->Number("written")),
                   Count(waiting),
                   Count(ring->Number("refused")),
                   Count(taken),
                   Count(size),
                   Cell(),
                   Cell()};
        }
        const auto files = m_reader.ReadLocked("log", m_reader.PlaceOf("log"), "files_lock");
        if (files && files->Signed("file") == -1)
            row[8] = row[9] = None();
        else if (files) {
            row[8] = files->Text("file_folder") + "vyx_log_" +
                     std::to_string(files->Signed("file_index") + 1) + "_w.log";
            row[9] = Count(files->Number("file_limit"));
        }
        return table;
    }

    // Those that the library has started, by the names that it gave them.
    Table Threads() {
        Table table = {"threads",
                       "thread",
                       false,
                       {{"thread", Metric::Label, ""},
                        {"name", Metric::Label, ""},
                        {"processor_ms", Metric::Counter, "Milliseconds of processor time"}},
                       {}};
        for (const auto &[number, thread] : m_threads)
            if (thread.name.compare(0, 4, "vyx-") == 0 || thread.name == "timer_svc" ||
                thread.name == "WriteLogProc")
                table.rows.push_back({Count(number), thread.name, Count(thread.millis)});
        return table;
    }

    Memory &m_memory;
    Description m_description;
    Reader m_reader;
    std::map<uint32_t, Thread> m_threads;
    std::vector<std::vector<Cell>> m_received; // the receivers' rows of the waits
    bool m_received_complete = true;
};

} // namespace

Report Collect(Memory &memory) {
    return Collector(memory).All();
}

} // namespace inspect
