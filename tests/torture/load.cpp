// The library's limits, all used and given back again and again, with exact accounting.
//   load SECONDS [LOAD...]    the loads named, all at once; all that there are if none is
// A load goes on in cycles, each of which begins with nothing and leaves nothing. Prints figures as JSON. Exit status: 0
// nothing was found, 1 findings, on standard error.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vyx/vyx.h>

#include "torture/torture.h"

namespace {

using torture::Check;
using torture::Held;
using torture::Milliseconds;
using torture::Pause;

constexpr uint32_t kLimit = 60000; // milliseconds for what takes a few

std::atomic<bool> s_end{false};
std::atomic<bool> s_slowDisk{false};
bool s_alone = false; // no other load needs the library
std::string s_folder;

template <class Predicate>
bool Await(const char *what, Predicate predicate) {
    for (const int64_t start = Milliseconds(); !predicate(); Pause(500))
        if (Milliseconds() - start > kLimit)
            return Check(false, what);
    return true;
}

// So many threads that each run the work, with a number of their own; ends when all have.
void RunCrew(size_t count, const std::function<void(size_t)> &work) {
    std::vector<std::thread> crew;
    for (size_t number = 0; number < count; ++number)
        crew.emplace_back(work, number);
    for (std::thread &member : crew)
        member.join();
}

// ---- Loads: each call is a cycle, its result what it counted. ----

void *CountItem(void *pCount) {
    ++*static_cast<std::atomic<int64_t> *>(pCount);
    return nullptr;
}

int64_t Pools() {
    std::atomic<int64_t> ran{0}, accepted{0};
    std::vector<VYX_HANDLE_THREADPOOL> pools(VYX_MAX_THREADPOOLS);
    for (size_t number = 0; number < pools.size(); ++number) {
        pools[number] = VYX_ThreadPool_CreateFlex(1, 3, 65536, number % 2 == 0 ? 1 : VYX_INFINITE);
        if (!Check(pools[number] != nullptr, "ThreadPool_CreateFlex"))
            return 0;
    }
    (void)Check(VYX_ThreadPool_Create(0, 1) == nullptr, "one pool too many");
    RunCrew(8, [&](size_t number) {
        for (size_t item = 0; item < 500; ++item) {
            const bool wait = item % 2 == 0;
            const bool taken = VYX_ThreadPool_WorkEx(pools[(number * 8 + item) % pools.size()], CountItem,
                                                     &ran, wait ? 1 : 0) == VYX_OK;
            (void)Check(taken || !wait, "WorkEx refuses");
            accepted += taken ? 1 : 0;
        }
    });
    for (const VYX_HANDLE_THREADPOOL pool : pools)
        (void)Check(VYX_ThreadPool_Destroy(pool) == VYX_OK, "ThreadPool_Destroy");
    (void)Check(ran == accepted,
                "items accepted: " + std::to_string(accepted) + ", run: " + std::to_string(ran));
    return ran;
}

// Each of 100 senders sends to all queues, each of 100 receivers takes from one of them.
int64_t Queues() {
    constexpr size_t kMessages = 30; // of a sender
    std::vector<VYX_HANDLE_MSGQ> queues(VYX_MAX_MSGQ);
    for (VYX_HANDLE_MSGQ &queue : queues)
        if (!Check(VYX_MsgQCreateEx(&queue) == VYX_OK, "MsgQCreate"))
            return 0;
    VYX_HANDLE_MSGQ more = nullptr;
    (void)Check(VYX_MsgQCreateEx(&more) == VYX_ERROR, "one queue too many");
    std::atomic<int64_t> sent{0}, received{0};
    RunCrew(2 * queues.size(), [&](size_t number) {
        VYX_MSG_BLOCK_T block;
        const size_t self = number / 2;
        for (size_t message = 0; message < kMessages; ++message) {
            block.iPriority = static_cast<int32_t>((self * 7 + message) % 5);
            block.iMsgType = static_cast<int32_t>(self * kMessages + message);
            block.iDataLen = number % 2 == 0 ? block.iMsgType : VYX_MSG_DATA_SIZE;
            if (number % 2 == 0) {
                (void)Check(VYX_MsgQSendEx(queues[(self + message) % queues.size()], &block) == VYX_OK,
                            "MsgQSend");
                sent += block.iMsgType;
            } else if (Check(VYX_MsgQReceiveEx(queues[self], &block, kLimit) == VYX_OK, "MsgQReceive")) {
                received += block.iMsgType;
                (void)Check(block.iDataLen == block.iMsgType, "another message's length");
            }
        }
    });
    VYX_MSG_BLOCK_T block;
    for (const VYX_HANDLE_MSGQ queue : queues) {
        block.iDataLen = VYX_MSG_DATA_SIZE;
        (void)Check(queue == queues[0] || VYX_MsgQReceiveEx(queue, &block, 1) == VYX_ERROR,
                    "a message too many");
        (void)Check(VYX_MsgQDestroyEx(queue) == VYX_OK, "MsgQDestroy");
    }
    (void)Check(sent == received, "sums of messages differ");
    return static_cast<int64_t>(queues.size() * kMessages);
}

void CountTick(uint32_t /*nTimerId*/, void *pTicks) {
    ++*static_cast<std::atomic<int> *>(pTicks);
}

int64_t Timers() {
    std::vector<std::atomic<int>> ticks(VYX_MAX_TIMERS);
    std::vector<uint32_t> ids(VYX_MAX_TIMERS);
    for (size_t number = 0; number < ids.size(); ++number)
        (void)Check(VYX_SetTimer(CountTick, &ticks[number], 1 + number % 16, &ids[number]) == VYX_OK,
                    "SetTimer");
    (void)Check(VYX_SetTimer(CountTick, nullptr, 1, nullptr) == VYX_ERROR, "one timer too many");
    (void)Await("a timer does not call", [&] {
        return std::all_of(ticks.begin(), ticks.end(), [](const auto &n) { return n >= 3; });
    });
    for (const uint32_t id : ids)
        (void)VYX_KillTimer(static_cast<int32_t>(id));
    const auto sum = [&] { return std::accumulate(ticks.begin(), ticks.end(), int64_t{0}); };
    const int64_t killed = sum();
    Pause(3000);
    (void)Check(sum() == killed, "a timer calls after its end");
    return killed;
}

// Pairs of sockets: what is sent at one end comes out at the other, which an event watches.
void Exchange(size_t pairs, std::atomic<int64_t> &bytes) {
    struct Pair {
        int ends[2];
        int64_t sent = 0, received = 0;
    };
    std::vector<Pair> all(pairs);
    std::vector<VYX_EVENT> events;
    for (Pair &pair : all) {
        events.push_back(VYX_CreateEvent(0));
        (void)Check(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.ends) == 0 &&
                        VYX_EventSelect(pair.ends[1], events.back(), VYX_FD_READ) == VYX_OK,
                    "a pair of sockets");
    }
    char data[1000] = {};
    for (int32_t round = 1; round <= 5; ++round) {
        size_t open = pairs;
        for (Pair &pair : all) {
            (void)Check(VYX_Sendn(pair.ends[0], data, 200 * round, kLimit) == 200 * round, "Sendn");
            pair.sent += 200 * round;
        }
        while (open > 0) {
            const uint32_t index =
                VYX_WaitForMultipleObjects(static_cast<int32_t>(pairs), events.data(), 0, kLimit);
            if (!Check(index < pairs, "WaitForMultipleObjects"))
                break;
            Pair &pair = all[index];
            const int32_t count = VYX_Recv(pair.ends[1], data, sizeof data);
            (void)Check(count > 0, "Recv");
            pair.received += count;
            open -= pair.received == pair.sent ? 1 : 0;
        }
    }
    for (size_t number = 0; number < pairs; ++number) {
        bytes += all[number].received;
        (void)Check(all[number].received == all[number].sent && VYX_CloseEvent(events[number]) == VYX_TRUE &&
                        VYX_CloseSocket(all[number].ends[0], 0) == 0 &&
                        VYX_CloseSocket(all[number].ends[1], 0) == 0,
                    "bytes sent are not those received, or a close fails");
    }
}
int64_t Sockets() {
    std::atomic<int64_t> bytes{0};
    RunCrew(10, [&](size_t /*number*/) { Exchange(100, bytes); });
    return bytes;
}

// Waits whose limits end when posts come.
size_t s_waiters = 250;
int64_t Waits() {
    std::atomic<int64_t> posts{0}, taken{0}, waits{0};
    RunCrew(s_waiters, [&](size_t number) {
        VYX_SEM_T sem = nullptr;
        if (!Check(VYX_SemCreate(&sem, 0) == VYX_OK, "SemCreate"))
            return;
        std::thread poster;
        if (number % 5 == 0)
            poster = std::thread([&] {
                for (int turn = 0; turn < 20; ++turn, Pause(1000))
                    posts += VYX_SemPost(&sem) == VYX_OK ? 1 : 0;
            });
        for (uint32_t turn = 0; turn < 20; ++turn) {
            if (!poster.joinable() && turn % 3 == 0)
                posts += VYX_SemPost(&sem) == VYX_OK ? 1 : 0;
            taken += VYX_SemTimedWait(&sem, 1 + turn % 2) == VYX_OK ? 1 : 0;
            ++waits;
        }
        if (poster.joinable())
            poster.join();
        while (VYX_SemTimedWait(&sem, 0) == VYX_OK)
            ++taken;
        (void)Check(VYX_SemDestroy(&sem) == VYX_OK, "SemDestroy");
    });
    (void)Check(posts == taken, "posts: " + std::to_string(posts) + ", taken: " + std::to_string(taken));
    return waits;
}

// Lines into small files, while the console and the files are switched on and off; each time in a new folder, as the file
// written last would be emptied. Each second cycle has a disk that takes 2 ms for a write, and more lines than that takes.
std::atomic<int64_t> s_rotations{0}, s_refused{0};
int64_t Log() {
    static int cycle = 0;
    const bool slow = ++cycle % 2 == 0;
    const std::string folder = s_folder + "/" + std::to_string(cycle) + "/";
    std::filesystem::create_directory(folder);
    s_slowDisk = slow;
    std::atomic<int64_t> taken{0}, full{0};
    std::atomic<size_t> writing{4};
    const auto enable = [&](int number) {
        (void)EnableTarget(VYX_LOG_TARGET_FILE, (folder + std::to_string(number)).c_str(),
                           slow ? 262144 : 4096, 0);
    };
    enable(0);
    RunCrew(5, [&](size_t number) {
        for (int turn = 1; number == 4 && writing > 0; ++turn, Pause(3000)) {
            (void)(turn % 2 == 0 ? DisableTarget(VYX_LOG_TARGET_CONSOLE)
                                 : EnableTarget(VYX_LOG_TARGET_CONSOLE, nullptr, 0, 0));
            if (turn % 8 == 0 && !slow) {
                (void)DisableTarget(VYX_LOG_TARGET_CONSOLE); // where it is on, the line goes there alone
                (void)DisableTarget(VYX_LOG_TARGET_FILE);
                enable(turn);
            }
        }
        for (int line = 0; number < 4 && line < (slow ? 20000 : 2000); ++line) {
            const int32_t result = WriteLog(VYX_LOG_LEVEL_INF, "load", line, "%0100d", line);
            taken += result == 0 ? 1 : 0;
            full += result == -4 ? 1 : 0;
            const bool off =
                !slow && (result == -5 || result == -2); // the last target, and the service with it
            (void)Check(result == 0 || result == -4 || off, "WriteLog: " + std::to_string(result));
        }
        writing -= number < 4 ? 1 : 0;
    });
    (void)DisableTarget(VYX_LOG_TARGET_CONSOLE);
    (void)DisableTarget(VYX_LOG_TARGET_FILE);
    const int64_t lines = torture::LinesOfLog(folder);
    (void)Check(lines == taken,
                "lines taken: " + std::to_string(taken) + ", in the files: " + std::to_string(lines));
    (void)Check(!slow || full > 0, "a slow disk refuses nothing");
    s_refused += full;
    s_rotations += std::count_if(std::filesystem::recursive_directory_iterator(folder), {},
                                 [](const auto &entry) { return entry.is_regular_file(); });
    std::filesystem::remove_all(folder);
    return lines;
}

// The whole library, where nobody else needs it; else only the counting.
int64_t Starts() {
    for (int turn = 0; turn < 100; ++turn) {
        (void)Check((s_alone ? VYX_Fini() : VYX_Init()) == VYX_OK, "a stop or a start");
        (void)Check((s_alone ? VYX_Init() : VYX_Fini()) == VYX_OK, "a start or a stop");
    }
    Pause(s_alone ? 0 : 1000);
    return 100;
}

struct Load {
    const char *name;
    int64_t (*cycle)();
    std::atomic<int64_t> cycles{0}, count{0};
};
Load s_loads[] = {{"items", Pools}, {"messages", Queues}, {"ticks", Timers}, {"bytes", Sockets},
                  {"waits", Waits}, {"lines", Log},       {"starts", Starts}};

// Of the samples of memory since the first quarter of the time: the last quarter's least is not more than the first's.
void CheckMemory(const std::vector<long> &samples) {
    const size_t quarter = samples.size() / 4;
    if (quarter < 50) // a few seconds
        return;
    const auto least = [&](size_t number) {
        return *std::min_element(samples.begin() + static_cast<long>(number * quarter),
                                 samples.begin() + static_cast<long>((number + 1) * quarter));
    };
    (void)Check(least(3) <= least(1) + least(1) / 20 + 4096,
                "memory grows: " + std::to_string(least(1)) + " KiB, then " + std::to_string(least(3)));
}

void RunLoads(const std::vector<Load *> &loads, int64_t milliseconds) {
    s_alone = loads.size() == 1;
    std::vector<long> samples;
    const int64_t start = Milliseconds();
    RunCrew(loads.size() + 1, [&](size_t number) {
        for (; number == loads.size() && !s_end; Pause(100000)) {
            samples.push_back(torture::HeldNow().kilobytes);
            s_end = Milliseconds() - start >= milliseconds;
        }
        for (; number < loads.size() && (!s_end || loads[number]->cycles < (s_alone ? 2 : 1));
             ++loads[number]->cycles)
            loads[number]->count += loads[number]->cycle();
    });
    CheckMemory(samples);
}

int Main(double seconds, const std::vector<std::string> &names) {
    FILE *figures = fdopen(dup(1), "w"); // standard output is a target of the log
    if (figures == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr)
        return 2;
    torture::Limit(RLIMIT_NOFILE, 8192);
    pthread_attr_t small{}; // stacks, of which there may be thousands
    (void)(pthread_attr_init(&small) + pthread_attr_setstacksize(&small, 262144) +
           pthread_setattr_default_np(&small));
    std::string folder = std::filesystem::temp_directory_path() / "vyx-load-XXXXXX";
    s_folder = mkdtemp(folder.data());
    s_waiters = seconds >= 60 ? 5000 : s_waiters;
    std::vector<Load *> loads;
    for (Load &load : s_loads)
        if (names.empty() || std::count(names.begin(), names.end(), load.name) > 0)
            loads.push_back(&load);
    const Held before = torture::HeldNow();
    (void)Check(VYX_Init() == VYX_OK, "Init");
    RunLoads(loads, static_cast<int64_t>(seconds * 1000));
    (void)StopLogService(false);
    (void)Check(VYX_Fini() == VYX_OK, "Fini");
    (void)Await("threads stay behind", [&] { return torture::HeldNow().threads == before.threads; });
    const Held after = torture::HeldNow();
    (void)Check(after.descriptors == before.descriptors && after.names == 0,
                "descriptors or names stay behind");
    std::filesystem::remove_all(folder);
    std::map<std::string, int64_t> found = {
        {"kilobytes", after.kilobytes}, {"rotations", s_rotations}, {"refused", s_refused}};
    for (const Load *load : loads) {
        found[load->name] = load->count;
        found[load->name + std::string(" cycles")] = load->cycles;
    }
    return torture::PrintFigures(figures, found);
}

} // namespace

// The log's writes to its files.
extern "C" ssize_t writev(int file, const struct iovec *parts, int count) {
    if (s_slowDisk)
        Pause(2000); // what the disk takes
    return syscall(SYS_writev, file, parts, count);
}

int main(int argc, char **argv) {
    return argc >= 2 ? Main(std::atof(argv[1]), {argv + 2, argv + argc}) : 2; // NOLINT(cert-err34-c)
}
