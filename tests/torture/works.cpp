#include "torture/works.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <vyx/vyx.h>

#include "torture/channels.h"
#include "torture/torture.h"

namespace torture {

unsigned g_weather = 0;
std::atomic<bool> g_end{false};
std::string g_folder;

std::array<Limit, 3> g_limits = {{
    {"timers", VYX_MAX_TIMERS,
     [] { return VYX_SetTimer([](uint32_t, void *) {}, nullptr, 1, nullptr) == VYX_OK; }},
    {"pools", VYX_MAX_THREADPOOLS, [] { return VYX_ThreadPool_Create(0, 1) != nullptr; }},
    {"queues", VYX_MAX_MSGQ,
     [] {
         VYX_HANDLE_MSGQ queue = nullptr;
         return VYX_MsgQCreateEx(&queue) == VYX_OK;
     }},
}};

void Limit::Hold(int count) {
    if (!In(kLoad))
        return;
    std::unique_lock<std::mutex> lock(mutex);
    held += count;
    const int64_t before = refused;
    if (held == most) {
        (void)Check(!more(), name, ": one more than there may be");
        ++refused;
        reached.notify_all();
    }
    // Others may hold fewer for good.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (refused == before && !g_end && std::chrono::steady_clock::now() < end)
        (void)reached.wait_for(lock, std::chrono::milliseconds(300));
}

void Limit::GiveBack(int count) {
    if (!In(kLoad)) // nor may a forked child take the mutex
        return;
    const std::lock_guard<std::mutex> lock(mutex);
    held -= count;
}

namespace {

constexpr int kTurns = 20;
// Of works that make something in each turn, which under load takes a second or more.
int MakingTurns() {
    return In(kLoad) ? 5 : kTurns;
}
Limit &s_timers = g_limits[0], &s_pools = g_limits[1], &s_queues = g_limits[2];

thread_local int t_cancelIn = 0;
void BeforeCall() {
    if (t_cancelIn > 0 && --t_cancelIn == 0)
        (void)pthread_cancel(pthread_self());
}

// ---- Turns on a pair of channels ----

struct Pair {
    const char *name;
    std::unique_ptr<Channel> there, back;
    std::array<VYX_THREAD_T, kMostPartners> partners{};
    size_t threads = 0;
    std::atomic<bool> ended{false};

    // No more turns.
    void End() {
        if (ended.exchange(true))
            return;
        there->over = back->over = true;
        for (int thread = 0; thread < kMostPartners; ++thread)
            there->Wake(), back->Wake();
    }
    bool Take(Channel &channel) {
        while (!there->over && !back->over) {
            BeforeCall();
            if (channel.Take()) {
                ++channel.taken;
                return true;
            }
        }
        return false;
    }
    bool Give(Channel &channel) {
        for (int attempt = 0; attempt < 1000 && !channel.over; ++attempt) {
            BeforeCall();
            if (channel.Give()) {
                ++channel.given;
                return true;
            }
            if (!Check(In(kLittle | kStops) || channel.over, name, ": a turn cannot be given"))
                break;
            Pause(100);
        }
        End();
        return false;
    }
    void Close(bool done) {
        if (!done)
            End();
        for (size_t thread = 0; thread < threads; ++thread)
            (void)Check(VYX_Thread_Wait(partners[thread]) == VYX_OK, "Thread_Wait");
        for (auto *channel : {&there, &back}) {
            if ((*channel)->granted && !(In(kStops) && (*channel)->over)) {
                const int64_t left = (*channel)->Left();
                (void)Check((*channel)->given == (*channel)->taken + left, name,
                            ": turns given: ", (*channel)->given, ", taken: ", (*channel)->taken,
                            ", left: ", left);
            }
            channel->reset();
        }
    }
};

void *Partner(void *pPair) {
    auto &pair = *static_cast<Pair *>(pPair);
    for (int turn = 0; turn < kTurns && pair.Take(*pair.there) && pair.Give(*pair.back); ++turn) {
    }
    return nullptr;
}

// Alone: a thread takes the turns that it gives, so that hardly a call waits.
bool TakeTurns(const ChannelKind &kind, bool alone) {
    Pair pair{kind.name, kind.make(), kind.make()};
    bool done = false;
    const Finally close([&] { pair.Close(done); });
    done = !pair.there->granted || !pair.back->granted;
    if (done)
        return false;
    const int queues = kind.name == std::string("queue") ? 2 : 0;
    if (queues > 0)
        s_queues.Hold(queues);
    const Finally giveBack([&] { s_queues.GiveBack(queues); });
    for (int turn = 0; alone && turn < 10 * kTurns; ++turn)
        if (!pair.Give(*pair.there) || !pair.Take(*pair.there))
            return false;
    for (; !alone && pair.threads < static_cast<size_t>(kind.partners); ++pair.threads) {
        pair.partners[pair.threads] = VYX_Thread_Create(Partner, &pair, 0, 0, 0, 0);
        if (pair.partners[pair.threads] == VYX_INVALID_THREAD)
            return false;
    }
    for (int turn = 0; !alone && turn < kTurns; ++turn) {
        for (size_t thread = 0; thread < pair.threads; ++thread)
            if (!pair.Give(*pair.there))
                return false;
        for (size_t thread = 0; thread < pair.threads; ++thread)
            if (!pair.Take(*pair.back))
                return false;
    }
    done = true;
    return true;
}

// ---- Locks, pools and timers ----

struct Locked {
    VYX_MUTEX_T mutex = PTHREAD_MUTEX_INITIALIZER;
    int64_t count = 0;
};
void *Lock(void *pLocked) {
    auto &locked = *static_cast<Locked *>(pLocked);
    for (int turn = 0; turn < 1000; ++turn) {
        (void)Check(VYX_MutexLock(&locked.mutex) == VYX_OK, "MutexLock");
        ++locked.count;
        (void)Check(VYX_MutexUnlock(&locked.mutex) == VYX_OK, "MutexUnlock");
    }
    return nullptr;
}
bool Mutex() {
    Locked locked;
    const VYX_THREAD_T partner = VYX_Thread_Create(Lock, &locked, 0, 0, 0, 0);
    if (partner == VYX_INVALID_THREAD)
        return false;
    bool waited = false;
    const Finally wait([&] { (void)(waited || VYX_Thread_Wait(partner) == VYX_OK); });
    (void)Lock(&locked);
    BeforeCall();
    waited = VYX_Thread_Wait(partner) == VYX_OK;
    return Check(waited && locked.count == 2000, "a mutex lets two in");
}

void *CountItem(void *pCount) {
    ++*static_cast<std::atomic<int> *>(pCount);
    return nullptr;
}
bool FixedPool() {
    const int turns = MakingTurns();
    std::atomic<int> ran{0};
    int accepted = 0;
    const VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_CreateFlex(1, 3, 65536, 1);
    if (pool == nullptr)
        return false;
    s_pools.Hold(1);
    const Finally destroy([&] {
        s_pools.GiveBack(1);
        (void)Check(VYX_ThreadPool_Destroy(pool) == VYX_OK, "ThreadPool_Destroy");
        (void)Check(ran == accepted || (In(kCancels) && ran == accepted + 1), "items accepted: ", accepted,
                    ", run: ", ran);
    });
    for (int item = 0; item < turns; ++item) {
        BeforeCall();
        accepted += VYX_ThreadPool_WorkEx(pool, CountItem, &ran, 1) == VYX_OK ? 1 : 0;
    }
    return Check(accepted == turns || In(kLittle), "ThreadPool_WorkEx refuses");
}

void PostItem(void *pSem) {
    (void)VYX_SemPost(static_cast<VYX_SEM_T *>(pSem));
}
bool FlexiblePool() {
    const int turns = MakingTurns();
    VYX_SEM_T handled = nullptr;
    if (VYX_SemCreate(&handled, 0) != VYX_OK)
        return false;
    VYX_HANDLE_THREADPOOLFLEX pool = nullptr;
    const Finally destroy([&] {
        (void)Check(VYX_ThreadPoolFlex_Destroy(pool) == VYX_OK && VYX_SemDestroy(&handled) == VYX_OK,
                    "ThreadPoolFlex_Destroy");
    });
    pool = VYX_ThreadPoolFlex_Create(3, 1, PostItem, 0);
    bool first = pool != nullptr;
    for (int item = 0; first && item < turns; ++item) {
        BeforeCall();
        const bool queued = VYX_ThreadPoolFlex_Work(pool, &handled) == VYX_OK;
        first = queued || item > 0; // without a first worker nobody handles what is queued
        while (queued && VYX_SemWait(&handled) != VYX_OK)
            (void)Check(errno == EINTR && In(kInterrupted), "SemWait");
    }
    return first;
}

std::array<std::atomic<int>, 65536> s_ticks; // one for each of the last timers
void Tick(uint32_t /*nTimerId*/, void *pTicks) {
    ++*static_cast<std::atomic<int> *>(pTicks);
}
bool Timer() {
    static std::atomic<size_t> number{0};
    const size_t self = number++;
    std::atomic<int> &ticks = s_ticks[self % s_ticks.size()];
    const int before = ticks;
    uint32_t id = VYX_MAX_TIMERS;
    bool holds = false;
    const Finally kill([&] {
        s_timers.GiveBack(holds ? 1 : 0);
        (void)VYX_KillTimer(static_cast<int32_t>(id));
        const int killed = ticks;
        Pause(2000);
        (void)Check(ticks == killed, "a timer calls after its end");
    });
    BeforeCall();
    if (VYX_SetTimer(Tick, &ticks, In(kLoad) ? 1 + self % 16 : 1, &id) != VYX_OK)
        return false;
    holds = true;
    s_timers.Hold(1);
    const int64_t start = Milliseconds(); // without a thread it never calls
    while (ticks < before + 2 && !g_end && (!In(kLittle) || Milliseconds() - start < 50))
        Pause(In(kLoad) ? 20000 : 500);
    return true;
}

// ---- The log ----

constexpr int64_t kSlowMicros = 2000; // what a slow disk takes for a write

std::atomic<int64_t> s_taken{0}, s_refused{0}, s_off{0}; // lines
std::atomic<int64_t> s_switches{0};                      // of targets
std::atomic<bool> s_slowDisk{false};
std::mutex s_targets; // held by whoever switches them

// Into a folder of its own each time, as the file written last would be emptied.
void OpenFiles() {
    static int folder = 0;
    ++s_switches;
    (void)StartLogService();
    (void)EnableTarget(VYX_LOG_TARGET_FILE, (g_folder + "log" + std::to_string(folder++)).c_str(), 10000, 0);
}
// Where the console is on alone, lines go there: the files are switched with the console off.
void SwitchTargets() {
    static int turn = 0;
    ++turn;
    s_slowDisk = turn % 8 > 4;
    if (turn % 8 == 1) {
        (void)(DisableTarget(VYX_LOG_TARGET_CONSOLE) + DisableTarget(VYX_LOG_TARGET_FILE));
        OpenFiles();
    } else if (!s_slowDisk) {
        ++s_switches;
        (void)(turn % 2 == 0 ? EnableTarget(VYX_LOG_TARGET_CONSOLE, nullptr, 0, 0)
                             : DisableTarget(VYX_LOG_TARGET_CONSOLE));
    }
}
bool Log() {
    if (In(kStops))
        Pause(3000); // a stop takes as long as writing what is queued
    if (const std::unique_lock<std::mutex> one(s_targets, std::try_to_lock); one && In(kLoad))
        SwitchTargets();
    for (int line = 0; line < (In(kLoad) ? 100 * kTurns : kTurns); ++line) {
        BeforeCall();
        const int32_t result = WriteLog(VYX_LOG_LEVEL_INF, "storms", line, "%0500d", line);
        s_taken += result == 0 ? 1 : 0;
        s_refused += result == -4 ? 1 : 0;
        s_off += result == -5 || result == -2 ? 1 : 0;
        (void)Check(result == 0 || result == -4 || result == -5 || (result == -2 && In(kLoad)) ||
                        (result == -1 && In(kLittle)) || In(kStops),
                    "WriteLog: ", result);
        if ((result == -4 && !s_slowDisk) || result == -5)
            Pause(1000);
        if (result == 0 || result == -4 || In(kLoad))
            continue;
        // The library's stop switches the log off.
        if (const std::unique_lock<std::mutex> one(s_targets, std::try_to_lock); one)
            OpenFiles();
        if (In(kLittle))
            return false;
    }
    return true;
}

// ---- The others ----

bool CopyFile() {
    static std::atomic<int> number{0};
    const std::string source = g_folder + "source", target = g_folder + "target" + std::to_string(number++);
    const Finally removal([&] { (void)unlink(target.c_str()); });
    BeforeCall();
    if (VYX_CopyFile(source.c_str(), target.c_str(), 0) != 1)
        return Check(In(kLittle), "CopyFile") && false;
    return Check(std::filesystem::file_size(target) == 300000, "CopyFile: the size");
}

bool Small() { // a call or two each
    VYX_TIME_EXP_T fields;
    VYX_ADAPTER_INFO *adapters = nullptr;
    const Finally give([&] { (void)VYX_FreeAdapterInfo(adapters); });
    BeforeCall();
    const bool listed = VYX_GetAdapterInfo(&adapters) == VYX_OK;
    BeforeCall();
    const VYX_DIR_T directory = VYX_OpenDir("/proc/self");
    const Finally close([&] { (void)(directory == nullptr || VYX_CloseDir(directory) == 0); });
    _FILE_FIND_INFO entry;
    while (directory != nullptr && VYX_FindFileInDir(directory, &entry) == 0) {
    }
    BeforeCall();
    (void)Check(VYX_Sleep(1) == 0 || (errno == EINTR && In(kSignals)), "Sleep");
    return Check(VYX_ExpTimeFromTimeLocal(VYX_TimeNow(), &fields) == VYX_OK, "ExpTimeFromTimeLocal") &&
           listed && directory != nullptr;
}

bool Make() {
    for (int turn = 0; turn < MakingTurns(); ++turn) {
        BeforeCall();
        VYX_SEM_T sem = nullptr;
        const bool made = VYX_SemCreate(&sem, 1) == VYX_OK && VYX_SemDestroy(&sem) == VYX_OK;
        const VYX_EVENT event = VYX_CreateEvent(1);
        if (event == nullptr || !Check(VYX_CloseEvent(event) == VYX_TRUE, "CloseEvent") || !made)
            return false;
    }
    return true;
}

bool Starts() { // counted only
    for (int turn = 0; turn < 1000; ++turn) {
        BeforeCall();
        (void)Check(VYX_Init() == VYX_OK && VYX_Fini() == VYX_OK, "a start and a stop");
    }
    Pause(1000);
    return true;
}

} // namespace

void CancelBeforeCall(int number) {
    t_cancelIn = number;
}

const std::vector<Work> &Works() {
    static const std::vector<Work> works = [] {
        std::vector<Work> all = {{"timer", Timer, VYX_MAX_TIMERS},
                                 {"pool", FixedPool, VYX_MAX_THREADPOOLS},
                                 {"mutex", Mutex},
                                 {"flexible-pool", FlexiblePool},
                                 {"log", Log, 4},
                                 {"copy", CopyFile},
                                 {"small", Small},
                                 {"make", Make},
                                 {"starts", Starts}};
        for (const ChannelKind &kind : kChannelKinds)
            all.push_back({kind.name, [&kind] { return TakeTurns(kind, false); }, kind.many});
        for (const ChannelKind &kind : kChannelKinds)
            if (kind.alone)
                all.push_back({kind.name + std::string("-alone"), [&kind] { return TakeTurns(kind, true); }});
        return all;
    }();
    return works;
}

Lines EndLog() {
    s_slowDisk = false;
    (void)DisableTarget(VYX_LOG_TARGET_CONSOLE);
    (void)StopLogService(false);
    Lines lines = {s_taken, 0, s_refused, s_off, s_switches, 0};
    std::set<std::string> folders; // the first file of each follows none
    for (const auto &entry : std::filesystem::recursive_directory_iterator(g_folder)) {
        if (!entry.is_regular_file() || entry.path().parent_path().filename().string().rfind("log", 0) != 0)
            continue;
        lines.rotations += folders.insert(entry.path().parent_path()).second ? 0 : 1;
        (void)chmod(entry.path().c_str(), 0600);
        std::ifstream file(entry.path(), std::ios::binary);
        lines.written += std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    }
    return lines;
}

} // namespace torture

// The log's writes to its files.
extern "C" ssize_t writev(int file, const struct iovec *parts, int count) {
    if (torture::s_slowDisk)
        torture::Pause(torture::kSlowMicros);
    return syscall(SYS_writev, file, parts, count);
}
