// All calls that block, each in a loop whose every result is checked, while a storm goes on around them.
//   storms STORM SECONDS [WORK...]    the works that it tells with "storms list"; all if none is named
// Prints figures as JSON. Exit status: 0 nothing was found, 1 findings, on standard error.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <vyx/vyx.h>

#include "torture/cancellation.h"
#include "torture/channels.h"
#include "torture/torture.h"

namespace {

using torture::Check;
using torture::g_weather;
using torture::Limit;
using torture::Milliseconds;
using torture::Pause;

constexpr int kTurns = 20;
constexpr int64_t kHang = 60000; // milliseconds for a round

std::atomic<bool> s_end{false};
std::string s_folder; // for files

// ---- Works: each call is a round. False: the system did not grant what it needs. ----

bool TakeTurn(torture::Channel &channel, size_t me) {
    while (!channel.over)
        if (channel.Take(me))
            return true;
    return false;
}
bool GiveTurn(torture::Channel &channel, size_t to) {
    for (int attempt = 0; !channel.over && attempt < 1000; ++attempt) {
        if (channel.Give(to))
            return true;
        if (!Check(g_weather.little || g_weather.stops, "a turn cannot be given"))
            break;
        Pause(100);
    }
    channel.over = true;
    (void)channel.Give(to); // for one who waits without a limit
    return false;
}

void *Partner(void *pChannel) {
    auto &channel = *static_cast<torture::Channel *>(pChannel);
    for (int turn = 0; turn < kTurns && TakeTurn(channel, 1) && GiveTurn(channel, 0); ++turn) {
    }
    return nullptr;
}

bool TakeTurns(const torture::ChannelKind &kind) {
    const auto channel = kind.make();
    if (!channel->Open())
        return false;
    const VYX_THREAD_T partner = VYX_Thread_Create(Partner, channel.get(), 0, 0, 0, 0);
    if (partner == VYX_INVALID_THREAD)
        return false;
    for (int turn = 0; turn < kTurns && GiveTurn(*channel, 1) && TakeTurn(*channel, 0); ++turn) {
    }
    (void)Check(VYX_Thread_Wait(partner) == VYX_OK, "Thread_Wait");
    (void)(channel->over || Check(channel->Empty(), std::string(kind.name) + ": something is left"));
    return !channel->over;
}

std::atomic<int> s_items{0};
void *Item(void * /*pParam*/) {
    ++s_items;
    return nullptr;
}
bool FixedPool() {
    const int before = s_items;
    int accepted = 0;
    const VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_CreateFlex(1, 3, 0, 1);
    if (pool == nullptr)
        return false;
    for (int item = 0; item < kTurns; ++item)
        accepted += VYX_ThreadPool_WorkEx(pool, Item, nullptr, 1) == VYX_OK ? 1 : 0;
    (void)Check(VYX_ThreadPool_Destroy(pool) == VYX_OK, "ThreadPool_Destroy");
    (void)Check(s_items - before == accepted, "items ran that were refused, or not that were accepted");
    return Check(accepted == kTurns || g_weather.little, "ThreadPool_WorkEx refuses");
}

VYX_SEM_T s_handled = nullptr;
void Handle(void * /*pData*/) {
    (void)VYX_SemPost(&s_handled);
}
bool FlexiblePool() {
    if (VYX_SemCreate(&s_handled, 0) != VYX_OK)
        return false;
    const VYX_HANDLE_THREADPOOLFLEX pool = VYX_ThreadPoolFlex_Create(3, 1, Handle, 0);
    bool first = pool != nullptr;
    for (int item = 0; first && item < kTurns; ++item) {
        const bool queued = VYX_ThreadPoolFlex_Work(pool, nullptr) == VYX_OK;
        first = queued || item > 0; // without a first worker nobody handles what is queued
        while (queued && VYX_SemWait(&s_handled) != VYX_OK)
            (void)Check(errno == EINTR && g_weather.interrupted, "SemWait");
    }
    (void)Check(VYX_ThreadPoolFlex_Destroy(pool) == VYX_OK && VYX_SemDestroy(&s_handled) == VYX_OK,
                "ThreadPoolFlex_Destroy");
    return first;
}

std::atomic<int> s_ticks{0};
void Tick(uint32_t /*nTimerId*/, void * /*pUserData*/) {
    ++s_ticks;
}
bool Timer() {
    uint32_t id = VYX_MAX_TIMERS;
    const int before = s_ticks;
    if (VYX_SetTimer(Tick, nullptr, 1, &id) != VYX_OK)
        return false;
    const int64_t start = Milliseconds(); // without a thread it never calls
    while (s_ticks < before + 2 && !s_end && (!g_weather.little || Milliseconds() - start < 50))
        Pause(500);
    (void)VYX_KillTimer(static_cast<int32_t>(id));
    const int killed = s_ticks;
    Pause(2000);
    return Check(s_ticks == killed, "a timer calls after its end");
}

int64_t s_taken = 0;    // lines
bool s_logIsOff = true; // as it is at first, and after a stop
bool Log() {
    static int folder = 0;
    if (g_weather.stops)
        Pause(3000); // a stop takes as long as writing what is queued
    for (int line = 0; line < kTurns; ++line) {
        const int32_t result = WriteLog(VYX_LOG_LEVEL_INF, "storms", line, "%0500d", line);
        s_taken += result == 0 ? 1 : 0;
        if (result == 0)
            continue;
        (void)Check(result == -4 || (result == -5 && s_logIsOff) || g_weather.stops ||
                        (g_weather.little && result == -1),
                    "WriteLog: " + std::to_string(result));
        if (result == -4) {
            Pause(1000);
            continue;
        }
        // The library's stop switches the log off. In a folder of its own, as the file written last would be emptied.
        (void)StartLogService();
        if (result == -5 || result == -2)
            (void)EnableTarget(VYX_LOG_TARGET_FILE, (s_folder + "log" + std::to_string(folder++)).c_str(),
                               100000, 0);
        if (g_weather.little)
            return false;
    }
    return true;
}

bool CopyFile() {
    const std::string source = s_folder + "source", target = s_folder + "target";
    if (VYX_CopyFile(source.c_str(), target.c_str(), 0) != 1)
        return Check(g_weather.little, "CopyFile") && false;
    VYX_FINFO_T info{};
    const VYX_FILE_T file = VYX_OpenFile(target.c_str(), VYX_OPEN_READ, 0);
    if (file == VYX_INVALID_FILE)
        return false;
    return Check(VYX_FileStat(file, &info) == 0 && info.size == 300000 && VYX_CloseFile(file) == 0,
                 "CopyFile: the size");
}

bool Small() { // what only looks
    VYX_TIME_EXP_T fields;
    VYX_ADAPTER_INFO *adapters = nullptr;
    const bool listed = VYX_GetAdapterInfo(&adapters) == VYX_OK;
    if (listed)
        (void)VYX_FreeAdapterInfo(adapters);
    (void)Check(VYX_Sleep(1) == 0 || (errno == EINTR && g_weather.signals), "Sleep");
    return Check(VYX_ExpTimeFromTimeLocal(VYX_TimeNow(), &fields) == VYX_OK, "ExpTimeFromTimeLocal") &&
           listed;
}

VYX_MUTEX_T s_mutex = PTHREAD_MUTEX_INITIALIZER;
int64_t s_locked = 0;
void *Lock(void * /*pParam*/) {
    for (int turn = 0; turn < 1000; ++turn) {
        (void)Check(VYX_MutexLock(&s_mutex) == VYX_OK, "MutexLock");
        ++s_locked;
        (void)Check(VYX_MutexUnlock(&s_mutex) == VYX_OK, "MutexUnlock");
    }
    return nullptr;
}
bool Mutex() {
    const int64_t before = s_locked;
    const VYX_THREAD_T partner = VYX_Thread_Create(Lock, nullptr, 0, 0, 0, 0);
    (void)Lock(nullptr);
    const bool two = partner != VYX_INVALID_THREAD && VYX_Thread_Wait(partner) == VYX_OK;
    (void)Check(s_locked - before == (two ? 2000 : 1000), "a mutex lets two in");
    return two;
}

struct Work {
    std::string name;
    std::function<bool()> round;
    std::atomic<int64_t> rounds{0}, refused{0}, last{0}; // last: when a round ended
    VYX_THREAD_T thread = VYX_INVALID_THREAD;
};
std::vector<std::unique_ptr<Work>> s_works;

void AddWork(const std::string &name, std::function<bool()> round) {
    s_works.push_back(std::make_unique<Work>());
    s_works.back()->name = name;
    s_works.back()->round = std::move(round);
}

void MakeWorks() {
    for (const torture::ChannelKind &kind : torture::ChannelKinds())
        AddWork(kind.name, [&kind] { return TakeTurns(kind); });
    AddWork("mutex", Mutex);
    AddWork("pool", FixedPool);
    AddWork("flexible-pool", FlexiblePool);
    AddWork("timer", Timer);
    AddWork("log", Log);
    AddWork("copy", CopyFile);
    AddWork("small", Small);
}

bool Round(Work &work) {
    bool done = false;
    try {
        done = work.round();
    } catch (const std::bad_alloc &) { // of this program
        (void)Check(g_weather.little, "memory is short");
    }
    ++(done ? work.rounds : work.refused);
    work.last = Milliseconds();
    (void)Check(done || g_weather.little || g_weather.stops, work.name + ": not granted");
    return done;
}

void *RunWork(void *pWork) {
    auto &work = *static_cast<Work *>(pWork);
    while (!s_end)
        if (!Round(work))
            Pause(1000);
    return nullptr;
}

// ---- Storms: each is called until its time is over; a figure tells how often something was done. ----

std::map<std::string, int64_t> s_figures;
std::mt19937 s_random{1}; // NOLINT(cert-msc32-c): the same every time
unsigned Random(unsigned limit) {
    return static_cast<unsigned>(s_random() % limit);
}

std::atomic<int64_t> s_handlers{0};
void Handler(int /*signal*/) {
    ++s_handlers;
}

// Ten thousand a second, to all threads in turn, those of the library too.
void Signals() {
    static const long self = syscall(SYS_gettid);
    static const int64_t start = Milliseconds();
    static int64_t sent = 0;
    std::vector<int> threads;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task"))
        threads.push_back(std::atoi(entry.path().filename().c_str()));
    for (int round = 0; round < 20; ++round) {
        const int64_t due = std::min((Milliseconds() - start) * 10, sent + 100);
        for (size_t next = Random(1000); sent < due; ++next)
            if (const int thread = threads[next % threads.size()]; thread != self)
                sent += syscall(SYS_tgkill, getpid(), thread, SIGUSR1) == 0 ? 1 : 0;
        Pause(1000);
    }
    s_figures["signals"] = sent;
    s_figures["handlers"] = s_handlers;
}
void CatchSignals(int flags) {
    struct sigaction action = {};
    action.sa_handler = Handler; // NOLINT(cppcoreguidelines-pro-type-union-access)
    action.sa_flags = flags;
    (void)sigaction(SIGUSR1, &action, nullptr);
}

// What a child can do. The status is the first thing that it could not.
int Child() {
    (void)alarm(30);
    VYX_SEM_T sem = nullptr;
    if (VYX_Fini() != VYX_OK || VYX_Init() != VYX_OK)
        return 1;
    if (VYX_SemCreate(&sem, 1) != VYX_OK || VYX_SemTimedWait(&sem, 5000) != VYX_OK ||
        VYX_SemTimedWait(&sem, 1) != VYX_ERROR || VYX_SemDestroy(&sem) != VYX_OK)
        return 2;
    if (!TakeTurns(torture::ChannelKinds()[5]) || !TakeTurns(torture::ChannelKinds()[7]))
        return 3;
    if (!FixedPool())
        return 4;
    if (!FlexiblePool() || !Timer())
        return 5;
    VYX_TIME_EXP_T fields;
    if (VYX_ExpTimeFromTimeLocal(VYX_TimeNow(), &fields) != VYX_OK ||
        WriteLog(VYX_LOG_LEVEL_INF, "c", 1, "x") != -5)
        return 6;
    return torture::Findings() == 0 ? 0 : 7;
}
// Waits for children that end, until so many are left at most.
int s_children = 0;
void Reap(int most) {
    for (int status = 0; s_children > 0 && waitpid(-1, &status, s_children > most ? 0 : WNOHANG) > 0;
         --s_children) {
        (void)Check(status == 0, "a forked child: status " + std::to_string(status));
        ++s_figures["forks"];
    }
}
void Forks() {
    const pid_t child = fork();
    if (child == 0) {
        const int before = torture::Findings();
        const int status = Child();
        _exit(before == 0 ? status : 0);
    }
    s_children += Check(child > 0, "fork") ? 1 : 0;
    Reap(5);
}

void StopsAndStarts() {
    (void)Check(VYX_Fini() == VYX_OK, "Fini");
    Pause(Random(3) * 300);
    (void)Check(VYX_Init() == VYX_OK, "Init");
    Pause(Random(5) * 1000);
    ++s_figures["starts"];
}

void ClockJumps() {
    torture::SetClock((static_cast<int>(Random(9)) - 4) * 3600);
    Pause(20000);
    ++s_figures["jumps"];
}

void Nothing() {
    Pause(20000);
}

// A wait that is pending while the clock is set.
struct Pending {
    const char *name;
    std::function<void(uint32_t)> wait;
    bool follows; // the wall clock
    std::atomic<bool> begun{false};
    std::atomic<int64_t> took{-1};
    void Run(uint32_t limit) {
        const int64_t start = Milliseconds();
        begun = true;
        wait(limit);
        took = Milliseconds() - start;
    }
};

// Set forward by three hours, what follows the wall clock ends at once although its limit is two hours; set back, it goes
// on when its limit is over. (Only forward for the queue: a receiver that is woken up ends where the clock was set back.)
// What does not follow it is not affected.
void SetWhilePending(bool forward) {
    VYX_SEM_T sem = nullptr;
    VYX_HANDLE_MSGQ queue = nullptr;
    const VYX_EVENT event = VYX_CreateEvent(0);
    static VYX_MSG_BLOCK_T block;
    (void)Check(VYX_SemCreate(&sem, 0) == VYX_OK && VYX_MsgQCreateEx(&queue) == VYX_OK && event != nullptr,
                "not granted");
    std::array<Pending, 4> all = {
        Pending{"sem", [&](uint32_t limit) { (void)VYX_SemTimedWait(&sem, limit); }, true},
        Pending{"queue",
                [&](uint32_t limit) {
                    block.iDataLen = VYX_MSG_DATA_SIZE;
                    (void)VYX_MsgQReceiveEx(queue, &block, static_cast<int32_t>(limit));
                },
                true},
        Pending{"event", [&](uint32_t limit) { (void)VYX_WaitForSingleObject(event, limit); }, false},
        Pending{"events", [&](uint32_t limit) { (void)VYX_WaitForMultipleObjects(1, &event, 0, limit); },
                false},
    };
    std::vector<std::thread> threads;
    for (Pending &pending : all)
        threads.emplace_back(&Pending::Run, &pending, pending.follows && forward ? 7200000 : 300);
    uint32_t timer = VYX_MAX_TIMERS;
    const int before = s_ticks;
    (void)VYX_SetTimer(Tick, nullptr, forward ? 7200000 : 300, &timer);
    while (!std::all_of(all.begin(), all.end(), [](const Pending &pending) { return pending.begun.load(); }))
        Pause(1000);
    Pause(100000); // from there to the sleep
    torture::SetClock(forward ? 10800 : -10800);
    Pause(600000); // for the limits to be over, if they were not prolonged
    for (Pending &pending : all) {
        if (!forward && std::strcmp(pending.name, "queue") == 0)
            continue;
        (void)Check((pending.took >= 0) == (!pending.follows || forward),
                    std::string(pending.name) + ": a pending wait does not follow its clock");
        (void)Check(pending.follows || pending.took >= 299,
                    "a wait that does not follow the wall clock is shortened");
    }
    (void)Check((s_ticks > before) == forward, "a timer does not follow the wall clock");
    torture::SetClock(0);
    for (std::thread &thread : threads)
        thread.join();
    (void)VYX_KillTimer(static_cast<int32_t>(timer));
    (void)VYX_MsgQDestroyEx(queue);
    (void)VYX_SemDestroy(&sem);
    (void)VYX_CloseEvent(event);
    ++s_figures["set while pending"];
}

rlim_t AddressSpace() {
    std::ifstream statm("/proc/self/statm");
    rlim_t pages = 0;
    statm >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}
void LittleMemory() { // more than at the first call
    static const rlim_t held = AddressSpace();
    Limit(RLIMIT_AS, held + (24 << 20));
    Nothing();
}

void Cancellations() {
    s_figures["cancellations"] += torture::CancelInEveryCall();
    s_taken += torture::LinesOfCancelled();
}

void NoMore() {}
struct Storm {
    const char *name;
    torture::Weather weather;
    std::function<void()> blow, begin = NoMore, end = NoMore;
    std::vector<std::string> without = {}; // works that it makes impossible
};
const std::vector<Storm> &Storms() {
    constexpr torture::Weather kStops{true}, kLittle{false, true}, kClock{false, false, true};
    constexpr torture::Weather kInterrupted{false, false, false, true, true},
        kSignals{false, false, false, false, true};
    static const std::vector<Storm> storms = {
        {"calm", {}, Nothing}, // stopped and continued from outside, for instance
        {"restarting-signals", kSignals, Signals, [] { CatchSignals(SA_RESTART); }},
        {"signals", kInterrupted, Signals, [] { CatchSignals(0); }},
        {"forks", {}, Forks, NoMore, [] { Reap(0); }},
        {"starts", kStops, StopsAndStarts, NoMore, NoMore, {"pool"}},
        {"cancellation",
         {},
         Cancellations,
         [] { torture::BeginCancellation(s_folder); },
         torture::EndCancellation},
        // At its end everything is over that was prolonged.
        {"clock", kClock, ClockJumps,
         [] { torture::SetClock(0), SetWhilePending(true), SetWhilePending(false); },
         [] { torture::SetClock(36000); }},
        {"descriptors", kLittle, [] { Limit(RLIMIT_NOFILE, 16), Nothing(); }, NoMore,
         [] { Limit(RLIMIT_NOFILE, RLIM_INFINITY); }},
        {"memory", kLittle, LittleMemory, NoMore, [] { Limit(RLIMIT_AS, RLIM_INFINITY); }},
    };
    return storms;
}

[[noreturn]] void Hang(const Work &work) {
    (void)Check(false, work.name + ": a round takes longer than a minute");
    _exit(1);
}

void Blow(const Storm &storm, int64_t milliseconds) {
    const int64_t start = Milliseconds();
    for (int64_t now = start; now - start < milliseconds; now = Milliseconds()) {
        storm.blow();
        for (const auto &work : s_works)
            if (now - work->last > kHang)
                Hang(*work);
    }
    s_end = true;
    storm.end();
    for (const auto &work : s_works) {
        for (const int64_t end = Milliseconds();
             work->thread != VYX_INVALID_THREAD && pthread_tryjoin_np(work->thread, nullptr) != 0;) {
            if (Milliseconds() - end > kHang)
                Hang(*work);
            Pause(2000);
        }
    }
}

void RunStorm(const Storm &storm, int64_t milliseconds) {
    const torture::Held start = torture::HeldNow();
    torture::Held before = start;
    g_weather = storm.weather;
    storm.begin();
    for (const auto &work : s_works) {
        work->last = Milliseconds();
        work->thread = VYX_Thread_Create(RunWork, work.get(), 0, 0, 0, 0);
    }
    Blow(storm, milliseconds);
    g_weather = {};
    s_figures["lines"] = s_taken;
    for (int again = 0; again < 2; ++again) { // in the calm everything works, and nothing grows
        for (const auto &work : s_works)
            (void)Round(*work);
        (void)StopLogService(false);
        s_logIsOff = true;
        const torture::Held held = torture::HeldNow();
        (void)Check(again == 0 || (held.descriptors == before.descriptors && held.threads == before.threads &&
                                   held.names == before.names),
                    "descriptors, threads or names stay behind");
        before = held;
    }
    const int64_t lines = torture::LinesOfLog(s_folder);
    (void)Check(lines == s_taken || (storm.weather.little && lines <= s_taken),
                "lines taken: " + std::to_string(s_taken) + ", written: " + std::to_string(lines));
    (void)Check(before.descriptors == start.descriptors && before.names == 0,
                std::to_string(before.descriptors) + " descriptors and " + std::to_string(before.names) +
                    " names stay behind");
}

int Main(const std::string &name, double seconds, const std::vector<std::string> &works) {
    const auto storm =
        std::find_if(Storms().begin(), Storms().end(), [&](const Storm &s) { return s.name == name; });
    if (storm == Storms().end())
        return 2;
    MakeWorks();
    s_works.erase(std::remove_if(s_works.begin(), s_works.end(),
                                 [&](const std::unique_ptr<Work> &work) {
                                     const auto has = [&](const std::vector<std::string> &names) {
                                         return std::count(names.begin(), names.end(), work->name) > 0;
                                     };
                                     return has(storm->without) || (!works.empty() && !has(works));
                                 }),
                  s_works.end());
    std::string folder = std::filesystem::temp_directory_path() / "vyx-storms-XXXXXX";
    s_folder = std::string(mkdtemp(folder.data())) + "/";
    std::filesystem::resize_file(
        (std::fclose(std::fopen((s_folder + "source").c_str(), "w")), s_folder + "source"), 300000);
    (void)Check(VYX_Init() == VYX_OK, "Init");
    RunStorm(*storm, static_cast<int64_t>(seconds * 1000));
    VYX_HANDLE_MSGQ queue = nullptr;
    (void)Check(VYX_Fini() == VYX_OK && VYX_MsgQCreateEx(&queue) == VYX_ERROR,
                "Fini does not stop the library");
    std::filesystem::remove_all(folder);
    for (const auto &work : s_works) {
        s_figures["rounds"] += work->rounds;
        s_figures["refused"] += work->refused;
        std::fprintf(stderr, "%s: %s: %lld rounds, %lld refused\n", storm->name, work->name.c_str(),
                     static_cast<long long>(work->rounds), static_cast<long long>(work->refused));
    }
    return torture::PrintFigures(stdout, s_figures);
}

} // namespace

int main(int argc, char **argv) {
    if (argc >= 3)
        return Main(argv[1], std::atof(argv[2]), {argv + 3, argv + argc}); // NOLINT(cert-err34-c)
    for (const Storm &storm : Storms())
        std::printf("%s\n", storm.name);
    MakeWorks();
    std::printf("\n");
    for (const auto &work : s_works)
        std::printf("%s\n", work->name.c_str());
    return argc == 2 ? 0 : 2;
}
