// All works, each in a thread of its own, while a storm goes on around them.
//   storms                            the storms, an empty line, the works
//   storms STORM SECONDS [WORK...]    all works if none is named
// Prints figures as JSON. Exit status: 0 nothing was found, 1 findings, on standard error.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <random>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <vyx/vyx.h>

#include "torture/resources/failing.h"
#include "torture/torture.h"
#include "torture/works.h"

namespace {

using torture::Check;
using torture::Held;
using torture::In;
using torture::Milliseconds;
using torture::Pause;
using torture::Work;

std::map<std::string, int64_t> s_figures;
std::mt19937 s_random{1}; // the same every time
unsigned Random(unsigned limit) {
    return static_cast<unsigned>(s_random() % limit);
}

// ---- Storms: each is called until its time is over; a figure tells how often something was done. ----

std::atomic<int64_t> s_handlers{0};

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
    action.sa_handler = [](int /*signal*/) {
        ++s_handlers;
    }; // NOLINT(cppcoreguidelines-pro-type-union-access)
    action.sa_flags = flags;
    (void)sigaction(SIGUSR1, &action, nullptr);
}

// What a child can do, in the order in which it does it. The status is the first work that did not go well.
int Child() {
    constexpr std::array<const char *, 6> kWorks = {"bounded-sem", "queue", "sendn-recvn",
                                                    "pool",        "timer", "flexible-pool"};
    (void)alarm(30);
    if (VYX_Fini() != VYX_OK || VYX_Init() != VYX_OK || WriteLog(VYX_LOG_LEVEL_INF, "c", 1, "x") != -5)
        return 1;
    for (size_t number = 0; number < kWorks.size(); ++number)
        for (const Work &work : torture::Works())
            if (work.name == kWorks[number] && (!work.round() || torture::Findings() > 0))
                return static_cast<int>(2 + number);
    return 0;
}
// Waits for children that end, until so many are left at most.
int s_children = 0;
void Reap(int most) {
    for (int status = 0; s_children > 0 && waitpid(-1, &status, s_children > most ? 0 : WNOHANG) > 0;
         --s_children) {
        (void)Check(status == 0, "a forked child: status ", status);
        ++s_figures["forks"];
    }
}
void Forks() {
    const pid_t child = fork();
    if (child == 0)
        _exit(torture::Findings() > 0 ? 0 : Child());
    s_children += Check(child > 0, "fork") ? 1 : 0;
    Reap(5);
}

void StopsAndStarts() {
    (void)Check(VYX_Fini() == VYX_OK, "Fini");
    Pause(Random(3) * 300);
    (void)Check(VYX_Init() == VYX_OK, "Init");
    Pause(Random(5) * 1000);
    ++s_figures["stops and starts"];
}

// Two threads at once start the library from nothing, and stop it to nothing; nothing else runs.
void StartsAlone() {
    pthread_barrier_t both{};
    (void)pthread_barrier_init(&both, nullptr, 2);
    const auto turns = [&both](bool judges) {
        for (int turn = 0; turn < 500; ++turn) {
            VYX_HANDLE_MSGQ queue = nullptr;
            (void)(judges && Check(VYX_MsgQCreateEx(&queue) == VYX_ERROR, "a stop does not reach nothing"));
            (void)pthread_barrier_wait(&both);
            (void)Check(VYX_Init() == VYX_OK, "Init");
            (void)pthread_barrier_wait(&both);
            (void)(judges && Check(VYX_MsgQCreateEx(&queue) == VYX_OK, "a start brings nothing"));
            (void)pthread_barrier_wait(&both);
            (void)Check(VYX_Fini() == VYX_OK, "Fini");
            (void)pthread_barrier_wait(&both);
        }
    };
    std::thread partner(turns, false);
    turns(true);
    partner.join();
    (void)pthread_barrier_destroy(&both);
    s_figures["starts alone"] += 1000;
    s_figures["from nothing and to nothing"] += 500;
}

// A thread in rounds of a work, which cancels itself before a call, or is cancelled at any moment.
struct Cancelled {
    const Work *work;
    int call; // 0: at any moment
};
void *RunCancelled(void *pCancelled) {
    const auto *cancelled = static_cast<const Cancelled *>(pCancelled);
    torture::CancelBeforeCall(cancelled->call);
    for (;;) {
        (void)cancelled->work->round();
        pthread_testcancel();
    }
}
void CancelIn(const Work &work) {
    Cancelled cancelled = {&work, Random(3) == 0 ? static_cast<int>(1 + Random(8)) : 0};
    pthread_t thread{};
    if (!Check(pthread_create(&thread, nullptr, RunCancelled, &cancelled) == 0, "pthread_create"))
        return;
    Pause(Random(3000)); // to the moment of the cancellation
    (void)(cancelled.call > 0 || Check(pthread_cancel(thread) == 0, "pthread_cancel"));
    void *result = nullptr;
    for (const int64_t start = Milliseconds(); pthread_tryjoin_np(thread, &result) != 0; Pause(200)) {
        if (Milliseconds() - start > 10000)
            (void)pthread_cancel(thread); // a round may make fewer calls
        if (Milliseconds() - start > 60000 && !Check(false, work.name, ": cancelled, and goes on"))
            _exit(1);
    }
    (void)Check(result == PTHREAD_CANCELED, work.name, ": not cancelled");
    ++s_figures["cancellations"];
}
void Cancellations() {
    for (const Work &work : torture::Works())
        CancelIn(work);
}

void ClockJumps() {
    failing_set_clock((static_cast<int>(Random(9)) - 4) * 3600);
    Pause(20000);
    ++s_figures["jumps"];
}

// A wait that is pending while the clock is set.
struct Pending {
    const char *name;
    std::function<void(uint32_t)> wait;
    bool follows; // the wall clock
    std::atomic<int64_t> took{-1};
    void Run(uint32_t limit) {
        const int64_t start = Milliseconds();
        wait(limit);
        took = Milliseconds() - start;
    }
};

// Waits until the condition is met, about a minute at most.
template <class Met>
void Await(Met met) {
    for (int part = 0; part < 3000 && !met(); ++part)
        Pause(20000);
}
bool OthersSleep() { // all other threads of the process
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::all_of(begin(threads), end(threads), [](const auto &thread) {
        std::ifstream stat(thread.path() / "stat");
        std::string number, command, state;
        stat >> number >> command >> state;
        return state == "S" || number == std::to_string(syscall(SYS_gettid));
    });
}

// Set forward by three hours, what follows the wall clock ends at once although its limit is two hours; set back, it goes
// on when its limit is over. (Only forward for the queue: a receiver that is woken up ends where the clock was set back.)
// What does not follow it is not affected.
// Result: false if a limit of so many milliseconds was over before the clock was set; then nothing is known.
bool SetWhilePending(bool forward, uint32_t brief) {
    VYX_SEM_T sem = nullptr;
    VYX_HANDLE_MSGQ queue = nullptr;
    const VYX_EVENT event = VYX_CreateEvent(0);
    static VYX_MSG_BLOCK_T block;
    static std::atomic<bool> called{false};
    std::atomic<bool> end{false};
    (void)Check(VYX_SemCreate(&sem, 0) == VYX_OK && VYX_MsgQCreateEx(&queue) == VYX_OK && event != nullptr,
                "not granted");
    const auto await = [&](uint32_t limit) {
        uint32_t timer = VYX_MAX_TIMERS;
        called = false;
        (void)VYX_SetTimer([](uint32_t, void *) { called = true; }, nullptr, limit, &timer);
        while (!called && !end)
            Pause(1000);
        (void)VYX_KillTimer(static_cast<int32_t>(timer));
    };
    block.iDataLen = VYX_MSG_DATA_SIZE;
    std::array<Pending, 5> all = {{
        {"sem", [&](uint32_t limit) { (void)VYX_SemTimedWait(&sem, limit); }, true},
        {"timer", await, true},
        {"event", [&](uint32_t limit) { (void)VYX_WaitForSingleObject(event, limit); }, false},
        {"events", [&](uint32_t limit) { (void)VYX_WaitForMultipleObjects(1, &event, 0, limit); }, false},
        {"queue",
         [&](uint32_t limit) { (void)VYX_MsgQReceiveEx(queue, &block, static_cast<int32_t>(limit)); }, true},
    }};
    std::vector<std::thread> threads;
    for (Pending &pending : all)
        threads.emplace_back(&Pending::Run, &pending, pending.follows && forward ? 7200000 : brief);
    Await(OthersSleep);
    failing_set_clock(forward ? 10800 : -10800);
    const bool inTime = forward || (all[0].took < 0 && all[1].took < 0);
    for (uint32_t part = 0; inTime && part < brief + 200; part += 100)
        Pause(100000); // for the limits to be over, if they were not prolonged
    Await([&] {
        return std::all_of(all.begin(), all.end(), [&](const Pending &pending) {
            return pending.took >= 0 || (pending.follows && !forward);
        });
    });
    for (size_t number = 0; number < (forward ? 5 : 4); ++number)
        (void)Check(!inTime || ((all[number].took >= 0) == (forward || !all[number].follows) &&
                                (all[number].follows || all[number].took >= brief - 1)),
                    all[number].name, ": a pending wait does not follow its clock");
    failing_set_clock(0);
    end = true;
    for (std::thread &thread : threads)
        thread.join();
    (void)(VYX_MsgQDestroyEx(queue) + VYX_SemDestroy(&sem) + VYX_CloseEvent(event));
    ++s_figures["set while pending"];
    return inTime;
}

void ClockBeforeAll() {
    failing_set_clock(0);
    for (const bool forward : {true, false}) {
        uint32_t limit = 700;
        while (!SetWhilePending(forward, limit) && Check(limit < 30000, "limits end early"))
            limit *= 2;
    }
}

// At most so much of what setrlimit names, and not more than the process may have.
void Limit(int resource, rlim_t most) {
    struct rlimit limit = {};
    (void)getrlimit(resource, &limit);
    limit.rlim_cur = std::min(most, limit.rlim_max);
    (void)setrlimit(resource, &limit);
}
void Wait() {
    Pause(20000);
}
void LittleMemory() { // more than at the first call
    static const auto held = static_cast<rlim_t>(torture::HeldNow().addresses) * 1024;
    Limit(RLIMIT_AS, held + (24 << 20));
    Wait();
}

// Thousands of descriptors, and of threads, whose stacks are small.
void ManyThreads() {
    pthread_attr_t small{};
    Limit(RLIMIT_NOFILE, 16384);
    (void)Check(pthread_attr_init(&small) == 0 && pthread_attr_setstacksize(&small, 262144) == 0 &&
                    pthread_setattr_default_np(&small) == 0,
                "small stacks");
}

// Of the samples of memory since the first quarter of the time: the last quarter's least is not more than the first's.
std::vector<long> s_samples; // KiB
void Sample() {
    s_samples.push_back(torture::HeldNow().kilobytes);
    Pause(100000);
}
void CheckMemory() {
    const auto quarter = static_cast<long>(s_samples.size() / 4);
    const auto least = [&](long number) {
        return *std::min_element(s_samples.begin() + number * quarter,
                                 s_samples.begin() + (number + 1) * quarter);
    };
    if (quarter >= 50) // a few seconds
        (void)Check(least(3) <= least(1) + least(1) / 20 + 4096, "memory grows: ", least(1), " KiB, then ",
                    least(3));
}

void NoMore() {}
struct Storm {
    const char *name;
    unsigned weather;
    void (*blow)(), (*begin)() = NoMore, (*end)() = NoMore;
    const char *without = ""; // works that it makes impossible, a space around each; null: all
};
constexpr Storm kStorms[] = {
    {"calm", 0, Wait}, // stopped and continued from outside, for instance
    {"restarting-signals", torture::kSignals, Signals, [] { CatchSignals(SA_RESTART); }},
    {"signals", torture::kSignals | torture::kInterrupted, Signals, [] { CatchSignals(0); }},
    {"forks", 0, Forks, NoMore, [] { Reap(0); }, " starts "},
    {"starts", torture::kStops, StopsAndStarts, NoMore, NoMore, " pool starts "},
    {"cancellation", torture::kCancels, Cancellations},
    // At its end everything is over that was prolonged.
    {"clock", torture::kClock, ClockJumps, [] { ClockBeforeAll(); }, [] { failing_set_clock(36000); }},
    {"descriptors", torture::kLittle, [] { Limit(RLIMIT_NOFILE, 16), Wait(); }, NoMore,
     [] { Limit(RLIMIT_NOFILE, RLIM_INFINITY); }},
    {"memory", torture::kLittle, LittleMemory, NoMore, [] { Limit(RLIMIT_AS, RLIM_INFINITY); }},
    {"load", torture::kLoad, Sample, ManyThreads, CheckMemory},
    {"starts-alone", 0, StartsAlone, [] { (void)Check(VYX_Fini() == VYX_OK, "Fini"); },
     [] { (void)Check(VYX_Init() == VYX_OK, "Init"); }, nullptr},
};

// ---- The works' threads ----

struct Worker {
    explicit Worker(const Work &one) : work(&one) {}
    const Work *work;
    std::atomic<int64_t> rounds{0}, refused{0}, last{Milliseconds()}; // last: when a round ended
    VYX_THREAD_T thread = VYX_INVALID_THREAD;
};
using Workers = std::list<Worker>;

void Round(Worker &worker) {
    bool done = false;
    try {
        done = worker.work->round();
    } catch (const std::bad_alloc &) { // of this program
        (void)Check(In(torture::kLittle), "memory is short");
    }
    ++(done ? worker.rounds : worker.refused);
    worker.last = Milliseconds();
    if (!done && Check(In(torture::kLittle | torture::kStops), worker.work->name, ": not granted"))
        Pause(1000);
}

void *RunWorker(void *pWorker) {
    do
        Round(*static_cast<Worker *>(pWorker));
    while (!torture::g_end);
    return nullptr;
}

void LookAt(const Worker &worker) {
    const int64_t limit = In(torture::kLoad) ? 300 : 60; // seconds
    if (Milliseconds() - worker.last > limit * 1000) {
        (void)Check(false, worker.work->name, ": a round takes longer than ", limit, " s");
        _exit(1);
    }
}

bool s_wholeLoad = false;        // all works under load
bool LimitsReached(long first) { // so many of them
    return std::all_of(torture::g_limits.begin(), torture::g_limits.begin() + (s_wholeLoad ? first : 0),
                       [](const torture::Limit &limit) { return limit.refused > 0; });
}

void RunStorm(const Storm &storm, int64_t milliseconds, Workers &workers) {
    const int64_t start = Milliseconds();
    for (Worker &worker : workers) {
        // All timers and pools are there before thousands of threads keep them from the processors.
        while (worker.work->name == "mutex" && !LimitsReached(2) && Milliseconds() - start < 60000)
            Pause(20000);
        worker.last = Milliseconds(); // the threads before may have taken long
        worker.thread = VYX_Thread_Create(RunWorker, &worker, 0, 0, 0, 0);
    }
    do {
        storm.blow();
        for (Worker &worker : workers)
            LookAt(worker);
    } while (Milliseconds() - start < milliseconds + (LimitsReached(3) ? 0 : 60000));
    torture::g_end = true;
    storm.end();
    for (Worker &worker : workers)
        for (; worker.thread != VYX_INVALID_THREAD && pthread_tryjoin_np(worker.thread, nullptr) != 0;
             Pause(2000))
            LookAt(worker);
}

// What is held when no more threads than that are left: detached workers of a pool that is destroyed end a moment later.
Held HeldOnceGone(long threads) {
    Held held = torture::HeldNow();
    for (int part = 0; part < 1000 && held.threads > threads; ++part, held = torture::HeldNow())
        Pause(10000);
    return held;
}

// In the calm everything works, and nothing stays behind.
void CheckCalm(const Held &start, Workers &workers) {
    Held before = start;
    const bool little = In(torture::kLittle);
    torture::g_weather = 0;
    torture::Lines lines{};
    for (int again = 0; again < 2; ++again) {
        const Work *last = nullptr;
        for (Worker &worker : workers)
            if (std::exchange(last, worker.work) != worker.work)
                Round(worker);
        lines = torture::EndLog();
        const Held held = again == 0 ? torture::HeldNow() : HeldOnceGone(before.threads);
        (void)Check(again == 0 || (held.descriptors == before.descriptors && held.threads <= before.threads),
                    "descriptors or threads stay behind");
        before = held;
    }
    (void)Check(lines.written == lines.taken || (little && lines.written <= lines.taken),
                "lines taken: ", lines.taken, ", written: ", lines.written);
    (void)Check(before.descriptors == start.descriptors && before.names == start.names, before.descriptors,
                " descriptors and ", before.names, " names stay behind");
    s_figures["lines"] = lines.taken;
    s_figures["lines without a target"] = lines.off;
    s_figures["targets switched"] = lines.switches;
    s_figures["rotations"] = lines.rotations;
    s_figures["lines refused"] = lines.refused;
    s_figures["kilobytes"] = before.kilobytes;
}

// Everything has been asked for, and stopped, the library holds what it held before its first start.
void CheckEnd(const Storm &storm, double seconds, const Held &before) {
    for (const torture::Limit &limit : torture::g_limits)
        if (s_wholeLoad) {
            s_figures[std::string(limit.name) + " refused at the limit"] = limit.refused;
            (void)Check(limit.refused > 0, limit.name, ": the limit is not reached");
        }
    if (seconds >= 60) { // the full form
        (void)Check(!s_wholeLoad || s_figures["rotations"] >= 500, "rotations");
        (void)Check(storm.without != nullptr || s_figures["from nothing and to nothing"] >= 100000, "starts");
    }
    const Held after = HeldOnceGone(before.threads);
    (void)Check(after.descriptors == before.descriptors && after.threads == before.threads &&
                    after.names == before.names,
                "stopped: ", after.descriptors - before.descriptors, " descriptors, ",
                after.threads - before.threads, " threads and ", after.names - before.names,
                " names more than before");
}

int Main(const Storm &storm, double seconds, const std::vector<std::string> &works) {
    FILE *const figures = fdopen(dup(1), "w"); // standard output is a target of the log
    std::string folder = std::filesystem::temp_directory_path() / "vyx-storms-XXXXXX";
    torture::g_folder = std::string(mkdtemp(folder.data())) + "/";
    (void)std::ofstream(torture::g_folder + "source");
    std::filesystem::resize_file(torture::g_folder + "source", 300000);
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 2;
    Workers workers;
    for (const Work &work : torture::Works()) {
        const int many = storm.weather != torture::kLoad ? 1
                         : seconds < 60                  ? std::min(work.many, 500)
                                                         : work.many;
        const bool named = works.empty() || std::count(works.begin(), works.end(), work.name) > 0;
        const bool possible = storm.without != nullptr &&
                              std::string(storm.without).find(" " + work.name + " ") == std::string::npos;
        for (int number = 0; named && possible && number < many; ++number)
            workers.emplace_back(work);
    }
    const Held before = torture::HeldNow();
    (void)Check(VYX_Init() == VYX_OK, "Init");
    const Held start = torture::HeldNow();
    torture::g_weather = storm.weather;
    s_wholeLoad = In(torture::kLoad) && works.empty();
    storm.begin();
    RunStorm(storm, static_cast<int64_t>(seconds * 1000), workers);
    for (Worker &worker : workers) {
        (void)Check(worker.rounds > 0 || In(torture::kLittle | torture::kStops), worker.work->name,
                    ": not a single round");
        s_figures["rounds"] += worker.rounds;
        s_figures["refused"] += worker.refused;
        s_figures[worker.work->name] += worker.rounds;
    }
    CheckCalm(start, workers);
    VYX_HANDLE_MSGQ queue = nullptr;
    (void)Check(VYX_Fini() == VYX_OK && VYX_MsgQCreateEx(&queue) == VYX_ERROR,
                "Fini does not stop the library");
    CheckEnd(storm, seconds, before);
    std::filesystem::remove_all(folder);
    return torture::PrintFigures(figures, s_figures);
}

} // namespace

int main(int argc, char **argv) {
    for (const Storm &storm : kStorms)
        if (argc >= 3 && storm.name == std::string(argv[1]))
            return Main(storm, std::atof(argv[2]), {argv + 3, argv + argc});
    for (const Storm &storm : kStorms)
        std::printf("%s\n", storm.name);
    std::printf("\n");
    for (const Work &work : torture::Works())
        std::printf("%s\n", work.name.c_str());
    return argc == 1 ? 0 : 2;
}
