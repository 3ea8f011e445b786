#include "reader.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace inspect {
namespace {

constexpr int kTries = 2000;
constexpr uint64_t kMostEntries = 4096; // of an array
constexpr size_t kLongestList = 100000;
constexpr size_t kLargestList = size_t{32} << 20; // bytes of its records

// Lets the holder of a lock go on. On a full machine sched_yield would cost a whole round of all that run.
void Pause() {
    static const timespec kPause = {0, 50000}; // nanoseconds
    (void)nanosleep(&kPause, nullptr);
}

} // namespace

Record::Record(const Description &description, std::string record, uint64_t place)
    : m_description(&description), m_record(std::move(record)), m_place(place),
      m_bytes(description.RecordSize(m_record)) {}

const Row &Record::Field(const char *field) const {
    return m_description->Get(m_record + "." + field);
}

uint64_t Record::PlaceOf(const char *field) const {
    return m_place + Field(field).offset;
}

uint64_t Record::Number(const char *field) const {
    const Row &row = Field(field);
    return ToNumber(m_bytes.data(), m_bytes.size(), row.offset, row.size, m_description->layout);
}

int64_t Record::Signed(const char *field) const {
    return static_cast<int32_t>(
        ToNumber(m_bytes.data(), m_bytes.size(), Field(field).offset, 4, m_description->layout));
}

uint64_t Record::Pointer(const char *field) const {
    return m_description->Place(Number(field));
}

int64_t Record::Deadline(const char *field) const {
    const Row &micros = m_description->Get("deadline.micros");
    return static_cast<int64_t>(ToNumber(m_bytes.data(), m_bytes.size(), Field(field).offset + micros.offset,
                                         8, m_description->layout));
}

uint64_t Record::CountBits(const char *field) const {
    const Row &row = Field(field);
    uint64_t bits = 0;
    for (size_t at = row.offset; at < size_t{row.offset} + row.size && at < m_bytes.size(); at++)
        bits += static_cast<uint64_t>(__builtin_popcount(m_bytes[at]));
    return bits;
}

std::string Record::Text(const char *field) const {
    const Row &row = Field(field);
    if (size_t{row.offset} + row.size > m_bytes.size())
        return "";
    const auto *text = reinterpret_cast<const char *>(&m_bytes[row.offset]);
    return std::string(text, strnlen(text, row.size));
}

bool Record::IsSame(const Record &other) const {
    const auto fields = m_description->FieldsOf(m_record);
    return std::all_of(fields.begin(), fields.end(), [&](const auto &field) {
        return field.first == m_record + ".next" ||
               std::memcmp(Bytes(field.second), other.Bytes(field.second), field.second.size) == 0;
    });
}

uint64_t Reader::PlaceOf(const std::string &name) const {
    return m_description.Place(m_description.Get(name).address);
}

uint64_t Reader::Value(const std::string &name) {
    unsigned char bytes[8] = {};
    const size_t size = std::min<size_t>(m_description.Get(name).size, sizeof bytes);
    if (!m_memory.Read({{PlaceOf(name), bytes, size}}))
        throw Error(m_memory.name + ": \"" + name + "\" is not in the memory that can be read");
    return ToNumber(bytes, sizeof bytes, 0, size, m_description.layout);
}

std::optional<Reader::LockState> Reader::Look(uint64_t lock) {
    const Row &mutex = m_description.Get("lock.mutex");
    const Row &state = m_description.Get("mutex.state");
    const Row &taken = m_description.Get("lock.taken");
    unsigned char state_bytes[4] = {};
    unsigned char taken_bytes[4] = {};
    if (!m_memory.Read({{lock + mutex.offset + state.offset, state_bytes, sizeof state_bytes},
                        {lock + taken.offset, taken_bytes, sizeof taken_bytes}}))
        return {};
    return LockState{ToNumber(state_bytes, 4, 0, 4, m_description.layout),
                     ToNumber(taken_bytes, 4, 0, 4, m_description.layout)};
}

bool Reader::UnderLock(uint64_t lock, const std::function<bool()> &read) {
    for (int i = 0; i < (m_memory.IsLive() ? kTries : 1); i++) {
        const auto before = Look(lock);
        if (before && before->state == 0 && read()) {
            const auto after = Look(lock);
            if (after && after->state == 0 && after->taken == before->taken)
                return true;
        }
        if (i % 16 == 15)
            Pause();
    }
    return false;
}

// As UnderLock, with lock and record in one system call: the shorter it takes, the less often a change comes between.
std::optional<Record> Reader::ReadLocked(const std::string &record, uint64_t place, const char *lock) {
    const uint64_t state = m_description.Get("lock.mutex").offset + m_description.Get("mutex.state").offset;
    const uint64_t taken = m_description.Get("lock.taken").offset;
    Record read(m_description, record, place);
    const uint64_t lock_place = read.PlaceOf(lock);
    unsigned char looks[4][4] = {};
    const std::vector<Part> parts = {{lock_place + state, looks[0], 4},
                                     {lock_place + taken, looks[1], 4},
                                     read.ToPart(),
                                     {lock_place + taken, looks[2], 4},
                                     {lock_place + state, looks[3], 4}};
    static const unsigned char kFree[4] = {};
    for (int i = 0; i < (m_memory.IsLive() ? kTries : 1); i++) {
        if (m_memory.Read(parts) && std::memcmp(looks[0], kFree, 4) == 0 &&
            std::memcmp(looks[3], kFree, 4) == 0 && std::memcmp(looks[1], looks[2], 4) == 0)
            return read;
        if (i % 16 == 15)
            Pause();
    }
    return {};
}

// In one go: there are hundreds, and a system call for each takes longer than all the rest.
std::vector<Record> Reader::ReadArray(const std::string &registry) {
    std::vector<Record> records;
    if (!m_description.Has(registry))
        return records;
    const Row &row = m_description.Get(registry);
    std::vector<Part> parts;
    for (uint64_t i = 0; i < std::min<uint64_t>(row.count, kMostEntries); i++)
        records.emplace_back(m_description, registry, PlaceOf(registry) + i * row.size);
    parts.reserve(records.size());
    for (Record &record : records)
        parts.push_back(record.ToPart());
    if (!m_memory.Read(parts))
        records.clear();
    return records;
}

bool Reader::ReadList(const std::string &record, uint64_t first, std::vector<Record> &records) {
    for (uint64_t place = first; place != 0; place = records.back().Pointer("next")) {
        Record read(m_description, record, place);
        if (records.size() == kLongestList || (records.size() + 1) * read.ToPart().size > kLargestList ||
            !Read(read))
            return false;
        records.push_back(std::move(read));
    }
    return true;
}

Reader::List Reader::ReadRegistry(const std::string &record, const std::string &rank) {
    List list = {{}, true};
    if (!m_description.Has(record))
        return list;
    list.complete = UnderLock(LockOf(rank), [&] {
        list.records.clear();
        return ReadList(record, m_description.Place(Value(record)), list.records);
    });
    if (!list.complete)
        list.records = m_memory.IsLive() ? ReadTwice(record) : std::vector<Record>();
    return list;
}

// An entry that two passes through the list find unchanged was in it from the first pass to the second.
std::vector<Record> Reader::ReadTwice(const std::string &record) {
    std::vector<Record> first;
    std::vector<Record> second;
    (void)ReadList(record, m_description.Place(Value(record)),
                   first); // what was changed on the way is left out
    (void)ReadList(record, m_description.Place(Value(record)), second);
    std::map<uint64_t, const Record *> seen;
    for (const Record &each : first)
        seen[each.Place()] = &each;
    std::vector<Record> both;
    for (Record &each : second) {
        const auto found = seen.find(each.Place());
        if (found != seen.end() && found->second->IsSame(each)) {
            seen.erase(found); // a torn link may lead round in circles
            both.push_back(std::move(each));
        }
    }
    return both;
}

} // namespace inspect
