// The order of the library's own locks. This list is the order: it stands nowhere else.
//
// A thread that holds a lock may take only locks that stand further down, with a higher level. Two locks of one level
// are held together only by a thread that forks, which is not checked. Builds with VYX_CHECK_LOCKS end the process with
// both names at the first lock that is taken out of order; the presets demo, release and darwin-* build the library
// without it, and the tests of release use a second one with it.
//
// Not in the list: an application's own mutexes. A thread may hold any of them when it calls the library, and the
// library takes one only in a condition wait, or by trying it (sync/cond.cpp), so that it waits for nobody.
#ifndef VYX_BASE_RANKS_H
#define VYX_BASE_RANKS_H

#include <cstdint>

namespace vyx_inter {

enum class Rank : uint8_t {
    Fork,          // held by a thread that forks, around all others
    StartStop,     // the start counter and the stage flags; held through every stage's start and stop
    LogService,    // the log service's start and stop
    Timers,        // the table of timers; not held while a routine runs or a thread is joined
    QueueRegistry, // which message queues are live
    Queue,         // one queue's messages in order; senders do without it
    QueueReceiver, // who waits for a message
    PoolRegistry,  // which fixed pools are taken
    FixedPool,     // one fixed pool: its live count, its thread records, who waits
    FlexRegistry,  // the list of all flexible pools
    FlexPool,      // one flexible pool: its queue, its live count, the start of workers
    Event,         // who takes bytes out of one event's pipe; the lists of events and of those who wait
    LogQueue,      // the ring of log lines and their queue
    LogFile,       // the log files
    SemWaits,      // bounded waits for semaphores
    CondWaits,     // bounded waits for conditions
    Calendar,      // the C library's zone data
    CLibrary,      // the C library's random numbers and converters
    Atomic,        // the atomic operations
    Ring,          // one cycle buffer: what is free of its storage
    SemTurns,      // who is next to make or destroy a semaphore
    SemNames,      // the names of semaphores, and their opening and closing
};

struct RankRow {
    uint8_t nLevel;
    const char *szName;
};

// In the order of the enumeration.
inline constexpr RankRow kRanks[] = {
    {5, "Fork"},        {10, "StartStop"},     {30, "LogService"},   {40, "Timers"},    {50, "QueueRegistry"},
    {60, "Queue"},      {70, "QueueReceiver"}, {80, "PoolRegistry"}, {90, "FixedPool"}, {95, "FlexRegistry"},
    {100, "FlexPool"},  {110, "Event"},        {120, "LogQueue"},    {120, "LogFile"},  {130, "SemWaits"},
    {130, "CondWaits"}, {160, "Calendar"},     {165, "CLibrary"},    {170, "Atomic"},   {180, "Ring"},
    {185, "SemTurns"},  {190, "SemNames"},
};

// Who holds one of the innermost locks waits for no thread but one that holds another of them; or, while the C library
// loads a converter, one that is loading a module.
constexpr bool IsInnermost(Rank eRank) {
    return eRank >= Rank::SemWaits;
}

} // namespace vyx_inter

#endif
