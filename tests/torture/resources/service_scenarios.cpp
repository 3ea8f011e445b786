// Start and stop, pools, queues, events, timers and the log.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;
using torture::Started;
namespace may = torture::may;

void StartAndStop() {
    Act([] {
        if (OK(CALL(VYX_Init)(), 0))
            MUST(CALL(VYX_Fini)() == VYX_OK);
        if (OK(CALL(VYX_InitEx)(), 0))
            MUST(CALL(VYX_FiniEx)() == VYX_OK);
    });
}

std::atomic<int> s_nItems;
std::atomic<bool> s_bGo;

// An item that lasts until the flag is set, so that the next one needs another worker.
void *CountItem(void *pParam) {
    while (!s_bGo)
        std::this_thread::yield();
    ++s_nItems;
    return pParam;
}

void FixedPool() {
    const Started started;
    s_nItems = 0;
    int nTaken = 0;
    Act([&] {
        const auto Use = [&](VYX_HANDLE_THREADPOOL hPool) {
            constexpr uint32_t kMay = may::interrupts | may::writes | may::files | may::descriptors;
            if (!DONE(hPool != nullptr, hPool == nullptr, kMay))
                return;
            s_bGo = false;
            for (int i = 0; i < 2; ++i)
                nTaken += OK(CALL(VYX_ThreadPool_Work)(hPool, CountItem, nullptr), kMay) ? 1 : 0;
            nTaken += OK(CALL(VYX_ThreadPool_WorkEx)(hPool, CountItem, nullptr, 1), kMay) ? 1 : 0;
            s_bGo = true;
            MUST(CALL(VYX_ThreadPool_Destroy)(hPool) == VYX_OK);
        };
        Use(CALL(VYX_ThreadPool_Create)(1, 3));
        Use(CALL(VYX_ThreadPool_CreateEx)(1, 3, 262144));
        Use(CALL(VYX_ThreadPool_CreateFlex)(1, 3, 262144, 1));
    });
    MUST(s_nItems == nTaken);
}

void FlexiblePool() {
    s_nItems = 0;
    bool bMade = false;
    int nTaken = 0;
    Act([&] {
        const VYX_HANDLE_THREADPOOLFLEX hPool = CALL(VYX_ThreadPoolFlex_Create)(
            2, -1, [](void *) { ++s_nItems; }, 0);
        bMade = DONE(hPool != nullptr, hPool == nullptr, 0);
        if (!bMade)
            return;
        // The second worker is not needed.
        for (int i = 0; i < 3; ++i)
            nTaken +=
                OK(CALL(VYX_ThreadPoolFlex_Work)(hPool, nullptr), may::threads | may::memory | may::writes)
                    ? 1
                    : 0;
        // What was refused for want of a worker is queued all the same, and the next worker takes it.
        while (nTaken > 0 && !torture::Fails(may::memory) && s_nItems < 3)
            std::this_thread::yield();
        MUST(CALL(VYX_ThreadPoolFlex_Destroy)(hPool) == VYX_OK);
    });
    MUST(s_nItems <= 3);
}

void Queue() {
    const Started started;
    Act([] {
        VYX_HANDLE_MSGQ hQueue = nullptr;
        MUST(CALL(VYX_MsgQCreateEx)(&hQueue) == VYX_OK);
        VYX_MSG_BLOCK_T block = {};
        int nSent = 0;
        for (block.iPriority = 0; block.iPriority < 40; ++block.iPriority) {
            block.iDataLen = 4;
            nSent += OK(CALL(VYX_MsgQSendEx)(hQueue, &block), may::memory) ? 1 : 0;
        }
        for (int iLast = 40; nSent > 0; --nSent) {
            block.iDataLen = VYX_MSG_DATA_SIZE;
            MUST(CALL(VYX_MsgQReceiveEx)(hQueue, &block, -1) == VYX_OK && block.iPriority < iLast);
            iLast = block.iPriority;
        }
        MUST(CALL(VYX_MsgQReceiveEx)(hQueue, &block, 2) == VYX_ERROR);
        MUST(CALL(VYX_MsgQDestroyEx)(hQueue) == VYX_OK);
    });
}

void PointerQueue() {
    Act([] {
        torture::Enter("vyx::vyx_msgq");
        vyx::vyx_msgq queue;
        static VYX_MSG_BLOCK_T s_block;
        int nPut = 0;
        for (int i = 0; i < 200; ++i) {
            torture::Enter("vyx::vyx_msgq::putq");
            bool bPut = false;
            bool bShort = false;
            try {
                bPut = queue.putq(&s_block) == 0;
            } catch (const std::bad_alloc &) {
                bShort = true;
            }
            nPut += DONE(bPut, !bPut || bShort, 0) ? 1 : 0;
        }
        VYX_MSG_BLOCK_T *pTaken = nullptr;
        torture::Enter("vyx::vyx_msgq::getq");
        while (queue.getq(&pTaken, 0) == 0)
            --nPut;
        MUST(nPut == 0);
        torture::Enter("vyx::vyx_msgq::init");
        OK(queue.init(), 0);
    });
}

void Event() {
    Act([] {
        const VYX_EVENT hEvent = CALL(VYX_CreateEvent)(1);
        if (!DONE(hEvent != nullptr, hEvent == nullptr, may::errors))
            return;
        const auto Did = [](int32_t bDone, uint32_t nMay, int iLine) {
            return torture::Judge(bDone == VYX_TRUE, bDone == VYX_FALSE, nMay, iLine);
        };
        uint32_t nFound = CALL(VYX_WaitForSingleObject)(hEvent, 1000);
        (void)DONE(nFound == VYX_WAIT_OBJECT_0, nFound == VYX_WAIT_FAILED, may::errors | may::threads);
        (void)Did(CALL(VYX_ResetEvent)(hEvent), may::polls | may::interrupts | may::or_not, __LINE__);
        if (Did(CALL(VYX_SetEvent)(hEvent), may::polls | may::interrupts | may::or_not | may::descriptors,
                __LINE__)) {
            nFound = CALL(VYX_WaitForMultipleObjects)(1, &hEvent, 0, 1000);
            (void)DONE(nFound == VYX_WAIT_OBJECT_0, nFound == VYX_WAIT_TIMEOUT, may::interrupts);
        }
        MUST(CALL(VYX_CloseEvent)(hEvent) == VYX_TRUE);
    });
}

void SocketEvent() {
    int iEnds[2];
    MUST(socketpair(AF_UNIX, SOCK_STREAM, 0, iEnds) == 0);
    const VYX_EVENT hEvent = VYX_CreateEvent(0);
    Act([&] {
        constexpr uint32_t kAll = may::anything;
        OK(CALL(VYX_EventSelect)(iEnds[0], hEvent, VYX_FD_READ | VYX_FD_WRITE), kAll);
        const uint32_t nFound = CALL(VYX_WaitForMultipleObjects)(1, &hEvent, 0, 1000);
        (void)DONE(nFound == VYX_WAIT_OBJECT_0, nFound == VYX_WAIT_TIMEOUT, may::interrupts | may::threads);
        VYX_NETWORKEVENTS_T events = {};
        OK(CALL(VYX_EnumNetworkEvents)(iEnds[0], hEvent, &events), kAll);
        OK(CALL(VYX_EventSelect)(iEnds[0], hEvent, VYX_FD_CONNECT), kAll);
        (void)CALL(VYX_WaitForMultipleObjects)(1, &hEvent, 0, 10);
    });
    (void)VYX_CloseEvent(hEvent);
    (void)close(iEnds[0]);
    (void)close(iEnds[1]);
}

void Timer() {
    const Started started;
    Act([] {
        uint32_t nTimer = 1000;
        MUST(CALL(VYX_InitTimer)() == VYX_OK);
        // What is short shows as a timer that never calls.
        MUST(CALL(VYX_SetTimer)([](uint32_t, void *) {}, nullptr, 1, &nTimer) == VYX_OK &&
             nTimer < VYX_MAX_TIMERS);
        MUST(CALL(VYX_KillTimer)(static_cast<int32_t>(nTimer)) == VYX_ERROR);
        MUST(CALL(VYX_FiniTimer)() == VYX_OK);
        MUST(CALL(VYX_SetTimer)([](uint32_t, void *) {}, nullptr, 1, nullptr) == VYX_OK);
        MUST(CALL(VYX_InitTimer)() == VYX_OK); // forgets it
    });
}

// The lines in the files, which are whole, each once.
int LinesInFiles(const char *szFolder) {
    int nLines = 0;
    std::error_code error; // of a folder that could not be made
    for (const auto &entry : std::filesystem::directory_iterator(szFolder, error)) {
        (void)chmod(entry.path().c_str(), 0600);
        std::ifstream file(entry.path(), std::ios::binary);
        for (std::string line; std::getline(file, line); ++nLines)
            MUST(line.find("][LINE:") != std::string::npos && line.find("up\r") == line.size() - 3);
    }
    return nLines;
}

void Log() {
    (void)(std::filesystem::remove_all("log") + std::filesystem::remove_all("more"));
    int nTaken = 0;
    Act([&] {
        MUST(CALL(StartLogService)() == 0);
        MUST(CALL(AdjustLogLevel)(VYX_LOG_LEVEL_INF) == 0);
        MUST(CALL(EnableTarget)(VYX_LOG_TARGET_FILE, "log", 100, 1) == 0);
        for (int i = 0; i < 4; ++i) {
            const int32_t iResult = CALL(WriteLog)(VYX_LOG_LEVEL_ERR, "a/b", i, "%s",
                                                   "a line of some length, so that files fill up");
            nTaken += DONE(iResult == 0, iResult == -1 || iResult == -7, may::anything) ? 1 : 0;
        }
        MUST(CALL(EnableTarget)(VYX_LOG_TARGET_DEBUG, nullptr, 0, 0) == 0);
        MUST(CALL(DisableTarget)(VYX_LOG_TARGET_FILE) == 0);
        MUST(CALL(DisableTarget)(VYX_LOG_TARGET_DEBUG) == 0);
        MUST(CALL(VYX_Log)(3, "more") == VYX_OK);
        nTaken += CALL(WriteLog)(VYX_LOG_LEVEL_ERR, "a/b", 1, "another that files take up") == 0 ? 1 : 0;
        MUST(CALL(VYX_Log)(0, nullptr) == VYX_OK);
        MUST(CALL(StopLogService)(false) == 0);
    });
    const int nLines = LinesInFiles("log") + LinesInFiles("more");
    constexpr uint32_t kFiles = may::descriptors | may::files | may::writes | may::mappings | may::openings;
    MUST(nLines == nTaken || (torture::Fails(kFiles) && nLines < nTaken));
    char szHeader[100];
    MUST(FormatTimeAndName(szHeader, sizeof szHeader, VYX_LOG_LEVEL_ERR, "a", 1) > 0);
}

void LogHeader() {
    Act([] {
        char szHeader[100];
        const int32_t iLength = CALL(FormatTimeAndName)(szHeader, sizeof szHeader, VYX_LOG_LEVEL_ERR, "a", 1);
        (void)DONE(iLength > 0, iLength == -1, may::memory);
    });
}

} // namespace

const std::vector<torture::Scenario> torture::kServiceScenarios = {
    {"start and stop", StartAndStop},
    {"fixed pool", FixedPool},
    {"flexible pool", FlexiblePool},
    {"queue", Queue},
    {"pointer queue", PointerQueue},
    {"event", Event},
    {"socket event", SocketEvent},
    {"timer", Timer},
    {"log", Log},
    {"log header", LogHeader},
};
