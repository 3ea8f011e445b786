// What the tests look at from outside.
//   target still        known states; prints what a reader must see, and waits for the end of its input
//   target busy COUNTS  works at full speed until its input ends, and counts in the file COUNTS what it has done
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vyx/vyx.h>

// Known by name to the symbols' test.
void RoutineOfTheTimer(uint32_t nTimerId, void *pRuns);
void HandlerOfTheItems(void *pData);

namespace {

std::atomic<bool> s_bEnd{false};
VYX_SEM_T s_hItems = nullptr; // posted by each item that runs; nullptr: they end at once
VYX_SEM_T s_hHeld = nullptr;  // items wait for it

void AwaitEndOfInput() {
    (void)std::puts("ready");
    (void)std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    s_bEnd = true;
}

bool Send(VYX_HANDLE_MSGQ hQueue, int32_t iPriority, int32_t iBytes) {
    VYX_MSG_BLOCK_T block;
    std::memset(&block, 0, sizeof block);
    block.iPriority = iPriority;
    block.iDataLen = iBytes;
    return VYX_MsgQSendEx(hQueue, &block) == VYX_OK;
}

bool Receive(VYX_HANDLE_MSGQ hQueue, uint32_t nTimeOut) {
    VYX_MSG_BLOCK_T block;
    block.iDataLen = VYX_MSG_DATA_SIZE;
    return VYX_MsgQReceiveEx(hQueue, &block, static_cast<int32_t>(nTimeOut)) == VYX_OK;
}

void *Item(void * /*pParam*/) {
    if (s_hItems != nullptr) {
        (void)VYX_SemPost(&s_hItems);
        (void)VYX_SemWait(&s_hHeld);
    }
    return nullptr;
}

/* ---- Known states */

template <class Predicate>
void Await(Predicate fn) {
    while (!fn())
        (void)sched_yield();
}

// A thread that is about to sleep is not asleep yet: its state is the kernel's to tell.
void AwaitAsleep(uint32_t nThread) {
    Await([&] {
        std::string number, name, state;
        std::ifstream("/proc/self/task/" + std::to_string(nThread) + "/stat") >> number >> name >> state;
        return state == "S";
    });
}

// Result: the number of a new thread, which sleeps.
uint32_t StartSleeper(const std::function<void()> &fnSleep) {
    static std::atomic<uint32_t> s_nThread;
    s_nThread = 0;
    std::thread([fnSleep] {
        s_nThread = static_cast<uint32_t>(syscall(SYS_gettid));
        fnSleep();
    }).detach();
    Await([] { return s_nThread != 0; });
    AwaitAsleep(s_nThread);
    return s_nThread;
}

// Two threads that wait for each other's mutex.
void Deadlock() {
    static VYX_Mutex s_first, s_second;
    static VYX_SEM_T s_hSecondIsHeld;
    (void)VYX_SemCreate(&s_hSecondIsHeld, 0);
    const uint32_t nFirst =
        StartSleeper([] { (void)(s_first.Lock(), VYX_SemWait(&s_hSecondIsHeld), s_second.Lock()); });
    (void)StartSleeper([] { (void)(s_second.Lock(), VYX_SemPost(&s_hSecondIsHeld), s_first.Lock()); });
    AwaitAsleep(nFirst);
}

constexpr uint32_t kHour = 3600000;

void Still() {
    VYX_SEM_T hFive = nullptr;
    VYX_SEM_T hBounded = nullptr;
    (void)(VYX_Init(), VYX_Init());
    (void)(VYX_SemCreate(&s_hItems, 0), VYX_SemCreate(&s_hHeld, 0), VYX_SemCreate(&hBounded, 0));
    (void)VYX_SemCreate(&hFive, 5);

    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(3, 5);
    const VYX_HANDLE_THREADPOOL hFull = VYX_ThreadPool_Create(1, 1);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(1, -1, HandlerOfTheItems, 0);
    for (const VYX_HANDLE_THREADPOOL hEach : {hPool, hPool, hFull})
        (void)VYX_ThreadPool_Work(hEach, Item, nullptr);
    for (int i = 0; i < 4; ++i)
        (void)VYX_ThreadPoolFlex_Work(hFlex, nullptr);
    for (int i = 0; i < 4; ++i)
        (void)VYX_SemWait(&s_hItems);
    (void)StartSleeper([&] { (void)VYX_ThreadPool_WorkEx(hFull, Item, nullptr, 1); });

    VYX_HANDLE_MSGQ hQueue = nullptr;
    VYX_HANDLE_MSGQ hEmpty = nullptr;
    (void)(VYX_MsgQCreateEx(&hQueue), VYX_MsgQCreateEx(&hEmpty));
    for (const int32_t iPriority : {4, -2, 9, 9})
        (void)Send(hQueue, iPriority, 100);
    (void)Receive(hQueue, 1000); // the others are in order now
    (void)Send(hQueue, 12, 7);   // and this one is not
    const uint32_t nReceiver = StartSleeper([&] { (void)Receive(hEmpty, VYX_INFINITE); });
    const uint32_t nBounded = StartSleeper([&] { (void)Receive(hEmpty, kHour); });
    const uint32_t nWaiter = StartSleeper([&] { (void)VYX_SemTimedWait(&hBounded, kHour); });
    VYX_MUTEX_T hMutex;
    VYX_COND_T hCond;
    (void)(VYX_MutexCreate(&hMutex, VYX_MUTEX_NORMAL), VYX_CondCreate(&hCond));
    const uint32_t nOther =
        StartSleeper([&] { (void)(VYX_MutexLock(&hMutex), VYX_CondTimedWait(&hCond, &hMutex, kHour)); });

    static std::atomic<uint64_t> s_nRuns{0};
    uint32_t nFast = 0;
    uint32_t nSlow = 0;
    (void)(VYX_SetTimer(RoutineOfTheTimer, &s_nRuns, kHour, &nSlow),
           VYX_SetTimer(RoutineOfTheTimer, &s_nRuns, 1, &nFast));
    Await([] { return s_nRuns >= 3; });
    (void)VYX_KillTimer(static_cast<int32_t>(nFast));

    const VYX_EVENT hEvents[] = {VYX_CreateEvent(1), VYX_CreateEvent(0), VYX_CreateEvent(0)};
    const VYX_SOCK_T hSocket = socket(AF_INET, SOCK_DGRAM, 0);
    (void)VYX_EventSelect(hSocket, hEvents[2], VYX_FD_READ | VYX_FD_CLOSE);
    const VYX_EVENT hAwaited[] = {hEvents[1], nullptr, hEvents[2]};
    const uint32_t nSingle = StartSleeper([&] { (void)VYX_WaitForSingleObject(hEvents[1], kHour); });
    const uint32_t nSeveral = StartSleeper([&] { (void)VYX_WaitForMultipleObjects(3, hAwaited, 0, kHour); });
    (void)(AdjustLogLevel(VYX_LOG_LEVEL_ERR), EnableTarget(VYX_LOG_TARGET_DEBUG, nullptr, 0, 0));
    Deadlock();

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
    AwaitEndOfInput();
}

/* ---- Full speed */

// Shared with the reader, who takes them before it looks and after: how often each work was begun and done. What is counted
// as begun was begun before it was; what failed is counted no more.
struct Counts {
    std::atomic<uint64_t> begun[6], done[6], runs;
};

void Busy(const char *szPath) {
    const int iFile = open(szPath, O_RDWR | O_CREAT, 0600);
    if (ftruncate(iFile, sizeof(Counts)) != 0)
        std::abort();
    auto &counts =
        *static_cast<Counts *>(mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, iFile, 0));
    (void)VYX_Init();
    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(2, 2);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(2, -1, HandlerOfTheItems, 0);
    VYX_HANDLE_MSGQ hQueue = nullptr;
    uint32_t nTimer = 0;
    VYX_SEM_T hSem = nullptr;
    (void)(VYX_MsgQCreateEx(&hQueue), VYX_SemCreate(&hSem, 2));
    (void)VYX_SetTimer(RoutineOfTheTimer, &counts.runs, 2, &nTimer);
    (void)EnableTarget(VYX_LOG_TARGET_FILE, (std::string(szPath) + ".log/").c_str(), 65536, 1);

    const std::vector<std::function<bool()>> works = {
        [&] { return VYX_ThreadPool_WorkEx(hPool, Item, nullptr, 1) == VYX_OK; },
        [&] { return VYX_ThreadPoolFlex_Work(hFlex, nullptr) == VYX_OK; },
        [&] {
            return counts.done[2] - counts.done[3] < 2000 &&
                   Send(hQueue, static_cast<int32_t>(counts.done[2] % 5) + 1, 24);
        },
        [&] { return Receive(hQueue, 1); },
        [&] { return WriteLog(VYX_LOG_LEVEL_ERR, "target.cpp", 1, "a line") == 0; },
        [&] {
            VYX_EVENT hEvent = VYX_CreateEvent(1);
            (void)(VYX_WaitForSingleObject(hEvent, 1), VYX_CloseEvent(hEvent));
            return VYX_SemTimedWait(&hSem, 1) == VYX_OK && VYX_SemPost(&hSem) == VYX_OK;
        },
    };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < works.size(); ++i)
        threads.emplace_back([&, i] {
            while (!s_bEnd) {
                ++counts.begun[i];
                if (works[i]())
                    ++counts.done[i];
                else
                    --counts.begun[i];
            }
        });
    AwaitEndOfInput();
    for (std::thread &thread : threads)
        thread.join();
    (void)VYX_KillTimer(static_cast<int32_t>(nTimer));
    (void)(VYX_ThreadPool_Destroy(hPool), VYX_ThreadPoolFlex_Destroy(hFlex));
    (void)VYX_Fini();
}

} // namespace

void RoutineOfTheTimer(uint32_t /*nTimerId*/, void *pRuns) {
    ++*static_cast<std::atomic<uint64_t> *>(pRuns);
}

void HandlerOfTheItems(void *pData) {
    (void)Item(pData);
}

int main(int iCount, char **pArguments) {
    if (iCount > 2)
        Busy(pArguments[2]);
    else
        Still();
    std::_Exit(0); // there are threads that never end
}
