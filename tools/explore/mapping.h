// What the front end and the preload library share: a mapping that the front end makes, into which it writes what a
// schedule is to be, and from which it reads what became of it. The process under exploration may end at any moment,
// killed or crashed, so everything that is worth knowing afterwards is kept here while it happens.
#ifndef VYX_EXPLORE_MAPPING_H_
#define VYX_EXPLORE_MAPPING_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace explore {

constexpr uint32_t kLayout = 1;        // both sides are of one build; checked when the mapping is opened
constexpr uint32_t kMaxThreads = 1024; // threads that a schedule may start, ended ones included
constexpr uint32_t kMaxDecisions = 1u << 20;
constexpr uint32_t kMaxRecords = 1u << 18;
constexpr uint32_t kMaxFrames = 8; // of the call stack at a point
constexpr uint32_t kMaxModules = 64;
constexpr uint32_t kStoppedStatus = 125; // exit status of a process that the runtime ended at a fault

constexpr const char *kMappingVariable = "VYX_EXPLORE_MAPPING"; // the descriptor of the mapping
constexpr const char *kServerVariable = "VYX_EXPLORE_SERVER"; // two descriptors, commands and answers: "3,4"

enum class Strategy : uint32_t { Random, Pct, Round, Replay };

enum class Fault : uint32_t {
    None,
    Deadlock, // no thread can go on, and no deadline is left
    Endless,  // more points than a schedule may have
    Race,     // two plain accesses that nothing orders
    Leak,     // something is left at the exit
    Misuse,   // a thread unlocks what it does not hold, and the like; only noted
    Status,   // exit status other than 0: found by the front end, as the next three
    Signal,
    Stuck, // no end within the real time of a schedule
    Sanitizer,
};

// What a thread does at a point. The texts are in names.cpp, in this order.
enum class Op : uint8_t {
    None,
    Start,
    Exit,
    Create,
    Join,
    Detach,
    Cancel,
    Lock,
    TryLock,
    TimedLock,
    Unlock,
    ReadLock,
    WriteLock,
    Wait,
    TimedWait,
    Signal,
    Broadcast,
    Post,
    TryWait,
    Open,
    Close,
    Barrier,
    Once,
    Yield,
    Sleep,
    Read,
    Write,
    Accept,
    Connect,
    Poll,
    Shutdown,
    FutexWait,
    FutexWake,
    Fork,
    Outside,
    Load,
    Store,
    Exchange,
    Fence,
    Clock,
    Relock,
    Free,
    Count
};

enum class Kind : uint8_t { // of an object; numbered by first use, each kind by itself
    None,
    Thread,
    Mutex,
    Condition,
    Semaphore,
    RwLock,
    SpinLock,
    Barrier,
    Once,
    Descriptor,
    Futex,
    Memory,
    Stream,
    Count
};

// A departure from the default schedule, in which a thread goes on until it cannot, and then the next by number goes.
// It is named by the thread's own count of such moments, so that it stays where it is when others are taken out.
struct Decision {
    enum Type : uint8_t {
        Switch, // value: the number of the thread that goes on instead
        Wake,   // value: the number of the thread that a signal wakes instead of the one that waits longest
        Late,   // value: how many deadlines pass although threads can run
        Fail,   // value: 1, this call fails
        Types
    };
    uint32_t thread;
    uint32_t at;
    uint32_t value;
    Type type;
    uint8_t unused[3];
};

struct Frame {
    uint32_t module; // index into modules, from 1; 0: nothing known
    uint32_t padding;
    uint64_t offset; // in the module, of the return address
};

// One point, kept only if the front end asks for a trace.
struct Record {
    enum Flag : uint8_t {
        Forced = 1,
        Blocked = 2,
        TimedOut = 4,
        After = 8,
        Crash = 16,
        WasLate = 32,
        Failed = 64
    };
    int64_t time; // nanoseconds since the start
    uint32_t object;
    uint16_t thread;
    uint16_t next; // the thread that goes on
    Op op;
    Kind kind;
    uint8_t flags;
    uint8_t frames;
    uint8_t unused[4];
    Frame frame[kMaxFrames];
};

struct Module {
    uint64_t base;
    char path[248];
};

// What a thread waits for when the process is stopped.
struct Waiting {
    uint16_t thread;
    uint16_t owner; // the thread that holds the object; kNobody where nobody does or nobody can
    uint32_t object;
    Op op;
    Kind kind;
    uint8_t unused[2];
    uint32_t record; // index of the thread's last record, if there is a trace
    uint64_t site;   // return address of the call
};
constexpr uint16_t kNobody = 0xFFFF;
constexpr uint32_t kMaxWaiting = 64;

// What the front end says.
struct Order {
    uint32_t layout;
    uint64_t seed;     // of this schedule
    uint64_t schedule; // its number
    Strategy strategy;
    uint32_t depth;       // pct: change points + 1; round: points that a thread has in a turn
    uint64_t length;      // pct: points that a schedule is expected to have
    uint64_t max_points;  // after which a schedule counts as endless
    int64_t lateness;     // nanoseconds: how far the clock may run ahead of threads that can run, in all
    uint32_t real_time;   // the clock is the platform's
    uint32_t trace;       // keep records
    uint32_t check_races; // follow plain accesses of instrumented code
    uint32_t check_leaks;
    int64_t usual_blocks;   // of the heap, left at the exit of schedules without a fault: the fewest so far
    uint32_t fail_calls;    // bits of FailCall
    uint32_t fail_millions; // probability in millionths
    uint32_t decisions;     // replay: how many are in `given`, sorted by thread, type and moment
};
enum FailCall : uint32_t { FailMalloc = 1, FailThread = 2, FailSem = 4, FailIo = 8 };

// What the runtime answers, kept up to date all the time.
struct Answer {
    uint64_t points;
    uint64_t hash;  // of the sequence of points
    uint64_t site;  // of the fault
    int64_t blocks; // of the heap, left at the exit
    Fault fault;
    uint32_t threads;   // started, the main thread included
    uint32_t decisions; // in `made`
    uint32_t records;
    uint32_t waiting;
    uint32_t modules;
    uint32_t outside; // times that the schedule depended on something unknown
    uint32_t padding;
    char text[2048];  // about the fault, lines
    char notes[1024]; // misuse, lines
};

// How the process that serves (it forks one child for each schedule) helps when the running thread stays away: it
// hands the baton to a thread that waits. See scheduler.h.
struct Baton {
    std::atomic<uint32_t> holder; // thread number * 4 + mode
    std::atomic<uint32_t> taken;  // number + 1 of the thread it was taken from
    std::atomic<uint32_t> moves;  // grows with every point
    std::atomic<uint32_t> go[kMaxThreads];
    std::atomic<uint8_t> parked[kMaxThreads]; // may be given the baton
    std::atomic<int32_t> task[kMaxThreads];   // the system's number of each thread
};

struct Mapping {
    Order order;
    Answer answer;
    Baton baton;
    std::atomic<int32_t> child; // process of the running schedule, 0: none
    Module modules[kMaxModules];
    Waiting waiting[kMaxWaiting];
    Decision given[kMaxDecisions];
    Decision made[kMaxDecisions];
    Record records[kMaxRecords];
};

const char *OpText(Op op);
const char *KindText(Kind kind);

} // namespace explore

#endif
