// What the tests look at from outside.
//   target still        known states; prints what a reader must see, and waits for the end of its input
//   target closed       the same, as a process that others may not look at
//   target busy COUNTS  works at full speed until its input ends, and counts in the file COUNTS what it has done
//   target deadlock     two threads that wait for each other's mutex
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vyx/vyx.h>

// Known by name to the symbols' test.
void RoutineOfTheTimer(uint32_t nTimerId, void *pCount);
void HandlerOfTheItems(void *pData);

namespace {

std::atomic<bool> s_bEnd{false};

void AwaitEndOfInput() {
    (void)std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    s_bEnd = true;
}

void Check(bool bGood, const char *szWhat) {
    if (bGood)
        return;
    (void)std::fprintf(stderr, "target: %s failed\n", szWhat);
    std::_Exit(3);
}

void Send(VYX_HANDLE_MSGQ hQueue, int32_t iPriority, int32_t iBytes) {
    VYX_MSG_BLOCK_T block;
    std::memset(&block, 0, sizeof block);
    block.iPriority = iPriority;
    block.iDataLen = iBytes;
    Check(VYX_MsgQSendEx(hQueue, &block) == VYX_OK, "send");
}

bool Receive(VYX_HANDLE_MSGQ hQueue, uint32_t nTimeOut) {
    VYX_MSG_BLOCK_T block;
    block.iDataLen = VYX_MSG_DATA_SIZE;
    return VYX_MsgQReceiveEx(hQueue, &block, static_cast<int32_t>(nTimeOut)) == VYX_OK;
}

uint32_t ThreadNumber() {
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

/* ---- Known states */

VYX_SEM_T s_hItems;   // posted by each item that runs
VYX_SEM_T s_hHeld;    // items wait for it
VYX_SEM_T s_hBounded; // one bounded wait

void *HoldItem(void * /*pParam*/) {
    (void)VYX_SemPost(&s_hItems);
    (void)VYX_SemWait(&s_hHeld);
    return nullptr;
}

template <class Predicate>
void Await(Predicate fn) {
    while (!fn())
        (void)sched_yield();
}

// A thread that is about to sleep is not asleep yet: its state is the kernel's to tell.
void AwaitAsleep(const std::atomic<uint32_t> &nThread) {
    Await([&] {
        const std::string path = "/proc/self/task/" + std::to_string(nThread.load()) + "/stat";
        char szText[512] = {};
        FILE *pFile = std::fopen(path.c_str(), "r");
        if (pFile == nullptr)
            return false;
        const size_t nRead = std::fread(szText, 1, sizeof szText - 1, pFile);
        (void)std::fclose(pFile);
        const char *pEnd = std::strrchr(szText, ')');
        return nRead > 0 && pEnd != nullptr && pEnd[2] == 'S';
    });
}

// Result: the number of a new thread, which sleeps.
uint32_t StartSleeper(const std::function<void()> &fnSleep) {
    static std::atomic<uint32_t> s_nThread;
    s_nThread = 0;
    std::thread([fnSleep] {
        s_nThread = ThreadNumber();
        fnSleep();
    }).detach();
    Await([] { return s_nThread != 0; });
    AwaitAsleep(s_nThread);
    return s_nThread;
}

constexpr uint32_t kHour = 3600000;

void Still() {
    Check(VYX_Init() == VYX_OK && VYX_Init() == VYX_OK, "start");
    Check(VYX_SemCreate(&s_hItems, 0) == VYX_OK && VYX_SemCreate(&s_hHeld, 0) == VYX_OK &&
              VYX_SemCreate(&s_hBounded, 0) == VYX_OK,
          "semaphores");
    VYX_SEM_T hFive = nullptr;
    Check(VYX_SemCreate(&hFive, 5) == VYX_OK, "semaphore");

    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(3, 5);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(1, -1, HandlerOfTheItems, 0);
    for (int i = 0; i < 2; ++i)
        Check(VYX_ThreadPool_Work(hPool, HoldItem, nullptr) == VYX_OK, "item");
    const VYX_HANDLE_THREADPOOL hFull = VYX_ThreadPool_Create(1, 1);
    Check(VYX_ThreadPool_Work(hFull, HoldItem, nullptr) == VYX_OK, "item of the full pool");
    for (int i = 0; i < 4; ++i)
        Check(VYX_ThreadPoolFlex_Work(hFlex, nullptr) == VYX_OK, "flexible item");
    for (int i = 0; i < 4; ++i)
        Check(VYX_SemWait(&s_hItems) == VYX_OK, "wait for items");

    VYX_HANDLE_MSGQ hQueue = nullptr;
    VYX_HANDLE_MSGQ hEmpty = nullptr;
    Check(VYX_MsgQCreateEx(&hQueue) == VYX_OK && VYX_MsgQCreateEx(&hEmpty) == VYX_OK, "queues");
    for (const int32_t iPriority : {4, -2, 9, 9})
        Send(hQueue, iPriority, 100);
    Check(Receive(hQueue, 1000), "receive"); // the others are in order now
    Send(hQueue, 12, 7);                     // and this one is not
    (void)StartSleeper([&] { (void)VYX_ThreadPool_WorkEx(hFull, HoldItem, nullptr, 1); });
    const uint32_t nReceiver = StartSleeper([&] { (void)Receive(hEmpty, VYX_INFINITE); });
    const uint32_t nBounded = StartSleeper([&] { (void)Receive(hEmpty, kHour); });
    const uint32_t nWaiter = StartSleeper([] { (void)VYX_SemTimedWait(&s_hBounded, kHour); });
    VYX_MUTEX_T hMutex;
    VYX_COND_T hCond;
    Check(VYX_MutexCreate(&hMutex, VYX_MUTEX_NORMAL) == VYX_OK && VYX_CondCreate(&hCond) == VYX_OK,
          "condition");
    const uint32_t nOther =
        StartSleeper([&] { (void)(VYX_MutexLock(&hMutex), VYX_CondTimedWait(&hCond, &hMutex, kHour)); });

    static std::atomic<uint32_t> s_nRuns{0};
    uint32_t nFast = 0;
    uint32_t nSlow = 0;
    Check(VYX_SetTimer(RoutineOfTheTimer, nullptr, kHour, &nSlow) == VYX_OK &&
              VYX_SetTimer(RoutineOfTheTimer, &s_nRuns, 1, &nFast) == VYX_OK,
          "timers");
    Await([] { return s_nRuns >= 3; });
    (void)VYX_KillTimer(static_cast<int32_t>(nFast));

    const VYX_EVENT hEvents[] = {VYX_CreateEvent(1), VYX_CreateEvent(0), VYX_CreateEvent(0)};
    const VYX_SOCK_T hSocket = socket(AF_INET, SOCK_DGRAM, 0);
    Check(VYX_EventSelect(hSocket, hEvents[2], VYX_FD_READ | VYX_FD_CLOSE) == VYX_OK, "socket event");
    const VYX_EVENT hAwaited[] = {hEvents[1], nullptr, hEvents[2]};
    const uint32_t nSingle = StartSleeper([&] { (void)VYX_WaitForSingleObject(hEvents[1], kHour); });
    const uint32_t nSeveral = StartSleeper([&] { (void)VYX_WaitForMultipleObjects(3, hAwaited, 0, kHour); });
    Check(AdjustLogLevel(VYX_LOG_LEVEL_ERR) == 0 && EnableTarget(VYX_LOG_TARGET_DEBUG, nullptr, 0, 0) == 0,
          "log");

    (void)std::printf(
        R"json({"library": {"starts": 2, "version": "1.0.1"},
 "pools": [{"pool": 0, "workers": 3, "most": 5, "busy": 2, "idle": 1, "waiting": 0, "items": 2},
           {"pool": 1, "workers": 1, "most": 1, "busy": 1, "idle": 0, "waiting": 1, "items": 1}],
 "flexible_pools": [{"pool": 0, "workers": 1, "most": 1, "busy": 1, "idle": 0, "queued": 3, "items": 1,
                     "handler": "HandlerOfTheItems(void*)"}],
 "queues": [{"queue": 0, "messages": 4, "bytes": 307, "highest": 12}, {"queue": 1, "messages": 0, "bytes": 0}],
 "receivers": [{"queue": 1, "thread": %u, "left_ms": null}, {"queue": 1, "thread": %u}],
 "timers": [{"timer": %u, "period_ms": 3600000, "runs": 0,
             "routine": "RoutineOfTheTimer(unsigned int, void*)"}],
 "waits": [{"kind": "semaphore", "on": "NAME", "thread": %u}, {"kind": "semaphore"},
           {"kind": "condition", "on": "%p", "thread": %u}, {"kind": "message", "on": "queue 1", "thread": %u},
           {"kind": "event", "on": "PIPE", "thread": %u}, {"kind": "event", "on": "BOTH", "thread": %u}],
 "events": [{"bound_to": "PIPE", "signalled": "yes"}, {"bound_to": "PIPE", "signalled": "no"},
            {"bound_to": "socket %d", "asked": "read+close", "signalled": null}],
 "log": {"level": %d, "targets": "debug", "queued": 0, "refused": 0, "ring_bytes": 0, "file": null},
 "counts": [5, 0], "threads": ["vyx-pool0.0", "vyx-pool0.2", "vyx-flex0.0", "vyx-timer%u", "timer_svc"]}
)json",
        nReceiver, nBounded, nSlow, nWaiter, static_cast<void *>(&hCond), nOther, nBounded, nSingle, nSeveral,
        static_cast<int>(hSocket), static_cast<int>(VYX_LOG_LEVEL_ERR), nSlow);
    (void)std::puts("ready");
    AwaitEndOfInput();
}

/* ---- Full speed */

// Shared with the reader, who takes them before it looks and after. What is counted as begun was begun before it was.
struct Counts {
    std::atomic<uint64_t> itemsBegun, itemsDone, flexBegun, sentBegun, sentDone, receivedBegun, receivedDone,
        runs, linesBegun, linesDone;
};

void *EmptyItem(void * /*pParam*/) {
    return nullptr;
}

Counts &MapCounts(const char *szPath) {
    const int iFile = open(szPath, O_RDWR | O_CREAT, 0600);
    Check(iFile >= 0 && ftruncate(iFile, sizeof(Counts)) == 0, "file of counts");
    void *pCounts = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0);
    Check(pCounts != MAP_FAILED, "mapping of counts");
    return *static_cast<Counts *>(pCounts);
}

constexpr int32_t kBytes = 24;   // of each message
constexpr uint64_t kMost = 2000; // messages in the queue

void Busy(const char *szPath) {
    Counts &counts = MapCounts(szPath);
    Check(VYX_Init() == VYX_OK, "start");
    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(2, 2);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(2, -1, HandlerOfTheItems, 0);
    VYX_HANDLE_MSGQ hQueue = nullptr;
    uint32_t nTimer = 0;
    VYX_SEM_T hSem = nullptr;
    Check(VYX_MsgQCreateEx(&hQueue) == VYX_OK && VYX_SemCreate(&hSem, 2) == VYX_OK, "queue");
    Check(VYX_SetTimer(RoutineOfTheTimer, &counts.runs, 2, &nTimer) == VYX_OK, "timer");
    const std::string folder = std::string(szPath) + ".log/";
    Check(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 65536, 1) == 0, "log");

    const std::vector<std::function<void()>> works = {
        [&] {
            ++counts.itemsBegun;
            counts.itemsDone += VYX_ThreadPool_WorkEx(hPool, EmptyItem, nullptr, 1) == VYX_OK ? 1 : 0;
        },
        [&] {
            ++counts.flexBegun;
            (void)VYX_ThreadPoolFlex_Work(hFlex, nullptr);
        },
        [&] {
            if (counts.sentDone - counts.receivedDone > kMost)
                return (void)sched_yield();
            Send(hQueue, static_cast<int32_t>(++counts.sentBegun % 5) + 1, kBytes);
            ++counts.sentDone;
        },
        [&] {
            ++counts.receivedBegun;
            if (Receive(hQueue, 1))
                ++counts.receivedDone;
            else
                --counts.receivedBegun;
        },
        [&] {
            VYX_EVENT hEvent = VYX_CreateEvent(1);
            (void)VYX_WaitForSingleObject(hEvent, 1);
            (void)VYX_CloseEvent(hEvent);
            (void)VYX_SemTimedWait(&hSem, 1);
            (void)VYX_SemPost(&hSem);
        },
        [&] {
            ++counts.linesBegun;
            counts.linesDone += WriteLog(VYX_LOG_LEVEL_ERR, "target.cpp", 1, "a line") == 0 ? 1 : 0;
        },
    };
    std::vector<std::thread> threads;
    for (const auto &fnWork : works)
        threads.emplace_back([&fnWork] {
            while (!s_bEnd)
                fnWork();
        });
    (void)std::puts("ready");
    AwaitEndOfInput();
    for (std::thread &thread : threads)
        thread.join();
    (void)VYX_KillTimer(static_cast<int32_t>(nTimer));
    (void)VYX_ThreadPool_Destroy(hPool);
    (void)VYX_ThreadPoolFlex_Destroy(hFlex);
    (void)VYX_Fini();
}

/* ---- A deadlock */

VYX_Mutex s_first, s_second;
std::atomic<uint32_t> s_nHeld{0};

void LockBoth(VYX_Mutex &own, VYX_Mutex &other, std::atomic<uint32_t> &nThread) {
    nThread = ThreadNumber();
    (void)own.Lock();
    ++s_nHeld;
    Await([] { return s_nHeld == 2; });
    (void)other.Lock();
}

void Deadlock() {
    static std::atomic<uint32_t> s_threads[2];
    std::thread([] { LockBoth(s_first, s_second, s_threads[0]); }).detach();
    std::thread([] { LockBoth(s_second, s_first, s_threads[1]); }).detach();
    Await([] { return s_nHeld == 2; });
    AwaitAsleep(s_threads[0]);
    AwaitAsleep(s_threads[1]);
    (void)std::puts("ready");
    AwaitEndOfInput();
}

} // namespace

void RoutineOfTheTimer(uint32_t /*nTimerId*/, void *pCount) {
    if (pCount != nullptr && s_hItems != nullptr)
        ++*static_cast<std::atomic<uint32_t> *>(pCount);
    else if (pCount != nullptr)
        ++*static_cast<std::atomic<uint64_t> *>(pCount);
}

void HandlerOfTheItems(void * /*pData*/) {
    if (s_hItems != nullptr)
        (void)HoldItem(nullptr);
}

int main(int iCount, char **pArguments) {
    const std::string mode = iCount > 1 ? pArguments[1] : "";
    if (mode == "closed")
        (void)prctl(PR_SET_DUMPABLE, 0);
    if (mode == "still" || mode == "closed")
        Still();
    else if (mode == "busy" && iCount > 2)
        Busy(pArguments[2]);
    else if (mode == "deadlock")
        Deadlock();
    else
        return 2;
    std::_Exit(0); // there are threads that never end
}
