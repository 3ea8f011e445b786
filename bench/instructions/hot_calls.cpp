// Thirty calls that programs make often, each repeated by one thread between two marks for Callgrind, which counts the
// instructions that they take, in the library and in what it calls. instructions.py runs it; without Valgrind it only
// shows that the calls succeed.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <valgrind/callgrind.h>
#include <vyx/vyx.h>

namespace {

constexpr int kWarmUps = 20;
constexpr int kTimes = 500; // instructions.py divides by it
constexpr int kRounds = 3;  // it takes the least: what is done once a second may be in one of them

bool g_bFailed = false;

void Check(bool bDone) {
    g_bFailed |= !bDone;
}

// A call that fails counts too: then the program's result is not 0, and nothing is compared.
template <class Call>
void Count(const char *szName, Call fnCall) {
    for (int i = 0; i < kWarmUps; ++i)
        Check(fnCall());
    for (int nRound = 0; nRound < kRounds; ++nRound) {
        CALLGRIND_ZERO_STATS;
        for (int i = 0; i < kTimes; ++i)
            Check(fnCall());
        CALLGRIND_DUMP_STATS_AT(szName);
    }
    if (g_bFailed) {
        (void)std::fprintf(stderr, "%s fails\n", szName);
        std::exit(1);
    }
}

void CountLocks() {
    VYX_MUTEX_T hMutex;
    Check(VYX_MutexCreate(&hMutex, VYX_MUTEX_NORMAL) == VYX_OK);
    // Through pointers, as languages without inline functions call them.
    int32_t (*volatile fnLock)(VYX_MUTEX_T *) = VYX_MutexLock;
    int32_t (*volatile fnUnlock)(VYX_MUTEX_T *) = VYX_MutexUnlock;
    Count("mutex lock, unlock", [&] { return (fnLock(&hMutex) | fnUnlock(&hMutex)) == VYX_OK; });
    VYX_Mutex mutex;
    Count("VYX_Mutex Lock, Unlock", [&] {
        mutex.Lock();
        mutex.Unlock();
        return true;
    });
    VYX_COND_T hCond;
    Check(VYX_CondCreate(&hCond) == VYX_OK);
    Count("condition signal, nobody waits", [&] { return VYX_CondSignal(&hCond) == VYX_OK; });
    Count("condition wait, time-out 0", [&] {
        (void)VYX_MutexLock(&hMutex);
        (void)VYX_CondTimedWait(&hCond, &hMutex, 0);
        return VYX_MutexUnlock(&hMutex) == VYX_OK;
    });
    VYX_SEM_T hSem = nullptr;
    Check(VYX_SemCreate(&hSem, 0) == VYX_OK);
    Count("semaphore post, wait", [&] { return (VYX_SemPost(&hSem) | VYX_SemWait(&hSem)) == VYX_OK; });
    Count("semaphore post, wait with a limit",
          [&] { return (VYX_SemPost(&hSem) | VYX_SemTimedWait(&hSem, 1000)) == VYX_OK; });
    Check(VYX_SemDestroy(&hSem) == VYX_OK && VYX_CondDestroy(&hCond) == VYX_OK &&
          VYX_MutexDestroy(&hMutex) == VYX_OK);
    volatile uint32_t nValue = 0;
    Count("atomic add", [&] {
        (void)VYX_AtomicAdd(&nValue, 1);
        return true;
    });
}

void CountMessages() {
    VYX_HANDLE_MSGQ hQueue = nullptr;
    Check(VYX_MsgQCreateEx(&hQueue) == VYX_OK);
    static VYX_MSG_BLOCK_T sent = {1, 0, 64, {}};
    static VYX_MSG_BLOCK_T received;
    const auto SendAndReceive = [&] {
        received.iDataLen = VYX_MSG_DATA_SIZE;
        return (VYX_MsgQSendEx(hQueue, &sent) | VYX_MsgQReceiveEx(hQueue, &received, 1000)) == VYX_OK;
    };
    Count("message send, receive", SendAndReceive);
    for (sent.iPriority = 0; sent.iPriority < 1000; ++sent.iPriority)
        Check(VYX_MsgQSendEx(hQueue, &sent) == VYX_OK);
    Count("message send, receive, 1000 queued", [&] {
        sent.iPriority = (sent.iPriority + 61) % 1000;
        return SendAndReceive();
    });
    Check(VYX_MsgQDestroyEx(hQueue) == VYX_OK);
    vyx::vyx_msgq queue;
    Count("vyx_msgq putq, getq", [&] {
        VYX_MSG_BLOCK_T *pOut = nullptr;
        return queue.putq(&sent) != -1 && queue.getq(&pOut, 0) != -1 && pOut == &sent;
    });
}

void CountEvents() {
    VYX_EVENT hEvent = VYX_CreateEvent(0);
    Count("event set, wait, reset", [&] {
        return VYX_SetEvent(hEvent) == VYX_TRUE &&
               VYX_WaitForSingleObject(hEvent, VYX_INFINITE) == VYX_WAIT_OBJECT_0 &&
               VYX_ResetEvent(hEvent) == VYX_TRUE;
    });
    std::vector<VYX_EVENT> events(64);
    for (VYX_EVENT &hOne : events)
        hOne = VYX_CreateEvent(0);
    events.back() = hEvent;
    Check(VYX_SetEvent(hEvent) == VYX_TRUE);
    Count("event wait for 64", [&] { return VYX_WaitForMultipleObjects(64, events.data(), 0, 1000) == 63; });
    for (VYX_EVENT hOne : events)
        Check(hOne == hEvent || VYX_CloseEvent(hOne) == VYX_TRUE);
    Check(VYX_CloseEvent(hEvent) == VYX_TRUE);
    Count("event create, close", [] { return VYX_CloseEvent(VYX_CreateEvent(0)) == VYX_TRUE; });
}

void CountSockets() {
    int iEnds[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM, 0, iEnds) == 0);
    char szBytes[64] = {};
    Count("Send, Recv",
          [&] { return VYX_Send(iEnds[0], szBytes, 64) == 64 && VYX_Recv(iEnds[1], szBytes, 64) == 64; });
    Count("Sendn, Recvn", [&] {
        return VYX_Sendn(iEnds[0], szBytes, 64, 1000) == 64 && VYX_Recvn(iEnds[1], szBytes, 64, 1000) == 64;
    });
    Check(VYX_CloseSocket(iEnds[0], 0) == VYX_OK && VYX_CloseSocket(iEnds[1], 0) == VYX_OK);
    uint8_t bytes[16];
    char szText[64];
    Count("InetPton, IPv4", [&] { return VYX_InetPton("192.168.117.203", bytes) >= 0; });
    Count("InetNtop, IPv6", [&] {
        bytes[15] = 1;
        return VYX_InetNtop(AF_INET6, bytes, szText, sizeof szText) != nullptr;
    });
}

void CountTables() {
    constexpr uint32_t kKeys = 1000;
    void *pTexts = nullptr;
    void *pInts = nullptr;
    Check(VYX_SimpleHashCreate(2 * kKeys, &pTexts) == VYX_OK &&
          VYX_SimpleIntHashCreate(2 * kKeys, &pInts) == VYX_OK);
    std::vector<std::string> keys;
    for (uint32_t n = 0; n < kKeys; ++n)
        keys.push_back("customer-" + std::to_string(n));
    for (uint32_t n = 0; n < kKeys; ++n) {
        _VYX_ENTRY text = {keys[n].data(), &keys[n]};
        _VYX_INTITEM number = {n * 2654435761U, &keys[n]};
        Check((VYX_SimpleHashEnter(&text, pTexts) | VYX_SimpleIntHashEnter(&number, pInts)) >= 0);
    }
    void *pData = nullptr;
    uint32_t n = 0;
    const auto Next = [&n] { return n = (n + 617) % kKeys; };
    Count("hash find, text", [&] {
        (void)VYX_SimpleHashFind(keys[Next()].c_str(), &pData, pTexts);
        return pData == &keys[n];
    });
    Count("hash find, integer", [&] {
        (void)VYX_SimpleIntHashFind(Next() * 2654435761U, &pData, pInts);
        return pData == &keys[n];
    });
    Count("hash miss, integer", [&] {
        pData = nullptr;
        (void)VYX_SimpleIntHashFind((kKeys + Next()) * 2654435761U, &pData, pInts);
        return pData == nullptr;
    });
    Check((VYX_SimpleHashDestroy(pTexts) | VYX_SimpleIntHashDestroy(pInts)) == VYX_OK);
}

void CountMemory() {
    uint64_t nTaken = 0;
    uint8_t bytes[64] = {};
    VYX_HANDLE_CYCLEBUFFER hBuffer = nullptr;
    const VYX_CYCLEBUFFER_PROC fnTake = [](uint8_t *, uint32_t nLen, void *pTaken) {
        *static_cast<uint64_t *>(pTaken) += nLen;
        return 0;
    };
    Check(VYX_CycleBufferInit(&hBuffer, 65536, fnTake, &nTaken) == VYX_OK);
    Count("cycle buffer write, read", [&] {
        (void)VYX_CycleBufferWrite(hBuffer, bytes, sizeof bytes);
        (void)VYX_CycleBufferRead(hBuffer);
        return true;
    });
    Check(nTaken == uint64_t{kWarmUps + kRounds * kTimes} * sizeof bytes &&
          VYX_CycleBufferDestroy(hBuffer) == VYX_OK);
    Count("aligned allocation, free", [] { return VYX_AlignedFree(VYX_AlignedMalloc(1000, 64)) == VYX_OK; });
}

// While the only worker is held up, so that the calls queue and start nothing.
void CountPool() {
    static VYX_SEM_T s_hGate = nullptr;
    Check(VYX_SemCreate(&s_hGate, 0) == VYX_OK);
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
        1, -1,
        [](void *pFirst) {
            if (pFirst != nullptr)
                (void)VYX_SemWait(&s_hGate);
        },
        0);
    Check(VYX_ThreadPoolFlex_Work(hPool, &s_hGate) == VYX_OK);
    Count("flexible pool, work", [&] { return VYX_ThreadPoolFlex_Work(hPool, nullptr) == VYX_OK; });
    Check(VYX_SemPost(&s_hGate) == VYX_OK && VYX_ThreadPoolFlex_Destroy(hPool) == VYX_OK);
    Check(VYX_SemDestroy(&s_hGate) == VYX_OK);
}

void CountTexts() {
    char szOut[128];
    Count("Itoa", [&] { return VYX_Itoa(szOut, 1234567, 10) == szOut; });
    Count("StrToi32", [] { return VYX_StrToi32("1234567", nullptr, 10) == 1234567; });
    Count("Strcpy", [&] { return VYX_Strcpy(szOut, "a text of thirty-two characters.") == szOut; });
    Count("Strcasecmp", [] {
        return VYX_Strcasecmp("a text of thirty-two characters.", "A text of thirty-two characterS.") == 0;
    });
    Count("Strcasestr",
          [] { return VYX_Strcasestr("a text of thirty-two characters.", "CHARACTERS") != nullptr; });
}

void CountTimes() {
    char szOut[128];
    Count("TimeNow", [] { return VYX_TimeNow() > 0; });
    const VYX_TIME_T tSome = 1700000000000000;
    Count("CTime", [&] { return VYX_CTime(szOut, tSome) == VYX_OK; });
    VYX_TIME_EXP_T struExp;
    Check(VYX_ExpTimeFromTimeGMT(tSome, &struExp) == VYX_OK);
    Count("StrFmtTime", [&] {
        uint32_t nLen = 0;
        return VYX_StrFmtTime(szOut, &nLen, sizeof szOut, "%Y-%m-%d %H:%M:%S", &struExp) == VYX_OK;
    });
}

void CountLog() {
    std::string folder = (std::filesystem::temp_directory_path() / "vyx_hot_calls_XXXXXX").string();
    Check(mkdtemp(folder.data()) != nullptr);
    Check(EnableTarget(VYX_LOG_TARGET_FILE, folder.c_str(), 0, 0) == 0);
    int iLine = 0;
    Count("WriteLog", [&] {
        return WriteLog(VYX_LOG_LEVEL_INF, __FILE__, __LINE__, "line %d of %s", ++iLine, "many") == 0;
    });
    Count("WriteLog, below the level",
          [&] { return WriteLog(static_cast<log_level>(9), __FILE__, __LINE__, "line %d", ++iLine) == -3; });
    (void)StopLogService(true);
    (void)std::filesystem::remove_all(folder);
}

} // namespace

int main() {
    Check(VYX_Init() == VYX_OK);
    CountLocks();
    CountMessages();
    CountEvents();
    CountSockets();
    CountTables();
    CountMemory();
    CountPool();
    CountTexts();
    CountTimes();
    CountLog();
    Check(VYX_Fini() == VYX_OK);
    return g_bFailed ? 1 : 0;
}
