// Values of the public types, each with what gdb must print for it; and the library's static probes.
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <vyx/vyx.h>

extern "C" __attribute__((noinline)) void Stop();
void Stop() {
    __asm__ volatile("");
}

VYX_MUTEX_T s_hMutex;
VYX_COND_T s_hCond;
int s_iCalls = 0;

void *Item(void *pParam) {
    (void)VYX_MutexLock(&s_hMutex);
    ++s_iCalls;
    (void)(VYX_CondSignal(&s_hCond), VYX_MutexUnlock(&s_hMutex));
    return pParam;
}

void AwaitCalls(int iCalls) {
    while (s_iCalls < iCalls)
        (void)VYX_CondWait(&s_hCond, &s_hMutex);
}

unsigned Low(const void *pArgument) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pArgument));
}

// Passes the static probes, and prints what a tracer must see there: their arguments, the low 32 bits of each, as patterns.
void PassProbes(VYX_SEM_T *pSem, VYX_EVENT hEvent, VYX_HANDLE_MSGQ hQueue, VYX_HANDLE_THREADPOOL hPool) {
    (void)(VYX_Init(), VYX_Fini());
    (void)std::printf("passed start 2\npassed stop 1\n");

    (void)(VYX_SemPost(pSem), VYX_SemWait(pSem), VYX_SemTimedWait(pSem, 1000), VYX_SemTimedWait(pSem, 1));
    const unsigned nSem = Low(*pSem);
    (void)std::printf("passed sem_post %x\n", nSem);
    for (const int iEnd : {0, 0, 1})
        (void)std::printf("passed sem_wait_begin %x\npassed sem_wait_end %x %d\n", nSem, nSem, iEnd);

    (void)(VYX_MutexCreate(&s_hMutex, 0), VYX_CondCreate(&s_hCond), VYX_MutexLock(&s_hMutex));
    (void)VYX_CondTimedWait(&s_hCond, &s_hMutex, 1);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(
        1, 1000, [](void *p) { (void)Item(p); }, 0);
    (void)VYX_ThreadPool_WorkEx(hPool, Item, &hFlex, 1);
    AwaitCalls(1);
    (void)VYX_ThreadPoolFlex_Work(hFlex, &hPool);
    AwaitCalls(2);
    uint32_t nTimer = 0;
    (void)VYX_SetTimer([](uint32_t, void *p) { (void)Item(p); }, nullptr, 1, &nTimer);
    AwaitCalls(4);
    (void)(VYX_MutexUnlock(&s_hMutex), VYX_KillTimer(static_cast<int32_t>(nTimer)));
    const unsigned nCond = Low(&s_hCond);
    for (const unsigned nResult : {0xffffffffU, 0U})
        (void)std::printf("passed cond_wait_begin %x\npassed cond_wait_end %x %x\n", nCond, nCond, nResult);
    (void)std::printf("passed pool_hand_over %x \\w+ %x\npassed flex_hand_over %x %x\n", Low(hPool),
                      Low(&hFlex), Low(hFlex), Low(&hPool));
    (void)std::printf("passed timer_begin \\w+ %x\npassed timer_end \\w+\n", nTimer);

    const bool bNone = VYX_WaitForSingleObject(hEvent, 0) == VYX_WAIT_TIMEOUT;
    (void)VYX_SetEvent(hEvent);
    const bool bSet = VYX_WaitForMultipleObjects(1, &hEvent, 0, 0) == VYX_WAIT_OBJECT_0;
    const unsigned nEvent = Low(hEvent);
    (void)std::printf("passed event_set %x\npassed event_wait_begin %x\npassed event_wait_end %x %d\n",
                      nEvent, nEvent, nEvent, bNone ? 0 : 9);
    (void)std::printf("passed event_wait_begin \\w+\npassed event_wait_end \\w+ %d\n", bSet ? 1 : 9);

    static VYX_MSG_BLOCK_T s_block = {1, 1, 4, "abc"};
    (void)(VYX_MsgQSendEx(hQueue, &s_block), VYX_MsgQSendEx(hQueue, &s_block));
    s_block.iDataLen = VYX_MSG_DATA_SIZE;
    for (int i = 0; i < 3; ++i)
        (void)VYX_MsgQReceiveEx(hQueue, &s_block, 1);
    (void)std::printf("passed queue_send %x\npassed queue_receive %x 2\npassed queue_receive %x 1\npassed "
                      "cond_wait_end \\w+ ffffffff\n",
                      Low(hQueue), Low(hQueue), Low(hQueue));

    (void)EnableTarget(VYX_LOG_TARGET_DEBUG, nullptr, 0, 0);
    const int32_t iResult = WriteLog(VYX_LOG_LEVEL_ERR, "printed.cpp", 7, "%s", "traced");
    (void)(VYX_Log(0, nullptr), DisableTarget(VYX_LOG_TARGET_DEBUG));
    (void)std::printf("passed log_line \\w+ \\w+ %d\npassed log_written 1\n", iResult);
    (void)std::fflush(stdout);
}

template <class... Values>
void Use(const Values &.../*values*/) {}

int main() {
    (void)VYX_Init();
    VYX_MSG_BLOCK_T message = {3, 7, 2, "ab"}; // message = message of type 3, priority 7, 2 bytes: b'ab'
    VYX_NETWORKEVENTS_T events = {VYX_FD_READ | VYX_FD_CLOSE, {}}; // events = read\+close, connect error 0
    VYX_ADDR_T address = {};                                       // address = 127\.0\.0\.1:8080
    address.in4.sin_family = AF_INET;
    address.in4.sin_port = htons(8080);
    address.in4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    VYX_ADDR_EXP_T apart = {AF_INET6, {0xfe, 0x80}, 53}; // apart = \[fe80::\]:53
    VYX_ADDRESS_INFO_T info = {
        0, AF_INET, 1, 6, address, nullptr, nullptr}; // info = 127\.0\.0\.1:8080, socket type 1, protocol 6
    VYX_IPADDR_STRING quads = {nullptr, "10.0.0.1", "255.0.0.0"}; // quads = 10\.0\.0\.1 mask 255\.0\.0\.0
    VYX_IP6ADDR_ENTRY six = {nullptr, {0xfe, 0x80}, {0xff}};      // six = fe80:: mask ff00::
    VYX_ADAPTER_INFO adapter = {
        nullptr, 2,      "eth0",  6,       {1, 2, 3, 4, 5, 6},
        0,       &quads, nullptr, nullptr, &six}; // adapter = adapter eth0, index 2, 01:02:03:04:05:06
    VYX_FINFO_T file = {VYX_TYPE_REG, 1, 2, 0x600, 0, 1, 9,
                        321,          0, 0, 0}; // file = file, 321 bytes, permissions 0x600, owner 1:2
    VYX_TIME_EXP_T moment = {5,   4, 3, 2, 1,     0,
                             126, 4, 0, 0, -19800};          // moment = 2026-01-01 02:03:04\.000005 -05:30
    _VYX_ENTRY entry = {const_cast<char *>("key"), nullptr}; // entry = key: 0x0
    _VYX_INTITEM item = {17, nullptr};                       // item = 17: 0x0
    struct VYX_HSEARCH_DATA words = {nullptr, 7, 3};         // words = hash table of 7 slots, 3 filled
    struct VYX_HSEARCH_INTDATA numbers = {nullptr, 5, 2};    // numbers = hash table of 5 slots, 2 filled
    _FILE_FIND_INFO found = {"a", file};                     // found = a: file, 321 bytes
    VYX_MEMORY_STATUS_T storage = {};                        // storage = memory status, not filled
    VYX_CPU_PERFORMANCE_T processor = {};                    // processor = processor times, not filled
    const vyx::vyx_time second(1767232984);                  // second = 2026-01-01 02:03:04\.000 UTC
    const vyx::vyx_time_tick tick(1767232984005000);         // tick = 2026-01-01 02:03:04\.005 UTC
    const VYX_Thread thread;                                 // thread = thread 0x
    VYX_SEM_T sem = nullptr; // sem = semaphore vyx_named_semaphore_\d+, 0 bounded waits
    (void)VYX_SemCreate(&sem, 1);
    VYX_Sema sema(
        1, 4); // sema = semaphore vyx_named_semaphore_\d+, 0 bounded waits \(0x[0-9a-f]+\), 1 of 4 counts
    VYX_EVENT event = VYX_CreateEvent(0); // event = event on pipe \d+
    VYX_HANDLE_MSGQ queue = nullptr;      // queue = queue 0 \(0x
    (void)VYX_MsgQCreateEx(&queue);
    VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_Create(1, 2); // pool = pool 0, 1 workers
    VYX_Mutex mutex;                                          // mutex = mutex held by thread 1
    (void)mutex.Lock();
    vyx::vyx_mutex unlocked;        // unlocked = free mutex
    vyx::vyx_recursive_mutex again; // again = mutex held by thread 1
    (void)again.lock();
    VYX_ThreadPool keeper; // keeper = pool 1, 2 workers
    (void)keeper.Create(2, 2);
    vyx::vyx_msgq blocks; // blocks = message queue of 70 blocks
    VYX_MSG_BLOCK_T *block = nullptr;
    for (int i = 0; i < 140; i++)
        (void)(blocks.putq(&message), i % 2 == 0 && blocks.getq(&block, 0) == 0);
    PassProbes(&sem, event, queue, pool);
    Stop();
    Use(message, events, apart, info, adapter, file, moment, entry, item, words, numbers, found, storage,
        processor, second, tick, thread, event, pool);
}
