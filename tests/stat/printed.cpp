// Values of the public types, each with what gdb must print for it.
#include <arpa/inet.h>
#include <cstring>
#include <vyx/vyx.h>

extern "C" __attribute__((noinline)) void Stop();
void Stop() {
    __asm__ volatile("");
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
    Stop();
    Use(message, events, apart, info, adapter, file, moment, entry, item, words, numbers, found, storage,
        processor, second, tick, thread, event, pool);
}
