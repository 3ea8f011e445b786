// The functions that make no call of the platform which can fail: counted, not failed.
#include <atomic>
#include <cstring>
#include <thread>
#include <unistd.h>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;

// Calls whose results and order do not matter.
template <class... Results>
void Make(const Results &.../*results*/) {}

void Texts() {
    char szOut[100];
    char szText[] = "a text";
    Act([&] {
        Make(CALL(VYX_Itoa)(szOut, 7, 10), CALL(VYX_Ltoa)(szOut, 7, 10), CALL(VYX_StrToi32)("7", nullptr, 10),
             CALL(VYX_StrToi64)("7", nullptr, 10), CALL(VYX_Atoi32)("7"), CALL(VYX_Atoi64)("7"),
             CALL(VYX_Strcpy)(szOut, szText), CALL(VYX_Strncpy)(szOut, szText, 3),
             CALL(VYX_Strcmp)(szText, "b"), CALL(VYX_Strncmp)(szText, "b", 1),
             CALL(VYX_Strcasecmp)(szText, "b"), CALL(VYX_Strncasecmp)(szText, "b", 1),
             CALL(VYX_Strchr)(szText, 't'), CALL(VYX_Strnchr)(szText, 't', 4), CALL(VYX_Strstr)(szText, "ex"),
             CALL(VYX_Strnstr)(szText, "ex", 2), CALL(VYX_Strcasestr)(szText, "EX"),
             CALL(FindLastSlash)("a/b"));
        CALL(VYX_Debug)("%d", 1);
    });
}

void Numbers() {
    uint32_t nValue = 1;
    uint8_t byUuid[16] = {};
    char szOut[40];
    VYX_MEMORY_STATUS_T status;
    Act([&] {
        Make(CALL(VYX_AtomicSet)(&nValue, 1), CALL(VYX_AtomicCas)(&nValue, 2, 1),
             CALL(VYX_AtomicAdd)(&nValue, 2), CALL(VYX_AtomicInc)(&nValue), CALL(VYX_AtomicDec)(&nValue),
             CALL(VYX_AtomicCasPtr)(nullptr, nullptr, nullptr), CALL(VYX_Htons)(1), CALL(VYX_Ntohs)(1),
             CALL(VYX_Htonl)(1), CALL(VYX_Ntohl)(1), CALL(VYX_ZeroMemory)(szOut, sizeof szOut),
             CALL(VYX_StringFromUUID)(byUuid, szOut, sizeof szOut), CALL(VYX_GetMemoryStatus)(&status),
             CALL(VYX_GetNetWorkFlowData)(&status), CALL(VYX_GetOFlagByFlag)(VYX_OPEN_READ),
             CALL(VYX_GetModeByPerm)(VYX_UREAD), CALL(VYX_GetPermByMode)(0600), CALL(VYX_FileIsEOF)(0),
             CALL(VYX_GetVYXVersion)(), CALL(VYX_GetLastError)(), CALL(VYX_SetLastError)(1),
             CALL(VYX_GetSystemLastError)());
        CALL(VYX_SetSystemLastError)(1);
        (void)CALL(VYX_GetDsoSym)(nullptr, "cos");
    });
}

void Addresses() {
    const struct sockaddr_in platform = {};
    VYX_ADDR_T four = {};
    VYX_ADDR_T six = {};
    VYX_ADDR_EXP_T parts;
    uint32_t nAddr = 0;
    uint8_t byAddr[16] = {1};
    char szOut[50];
    uint32_t nSet[32] = {};
    Act([&] {
        Make(CALL(VYX_MakeAddr)(&platform, sizeof platform, &four),
             CALL(VYX_MakeAddrByString)(AF_INET, "1.2.3.4", 5, &four), CALL(VYX_MakeAddr4ByInt)(1, 2, &four),
             CALL(VYX_MakeAddr6ByInt)(byAddr, 2, &six), CALL(VYX_GetAddrType)(&four),
             CALL(VYX_GetAddrString)(&four), CALL(VYX_GetAddr4Int)(&four, &nAddr),
             CALL(VYX_GetAddr6Int)(&six, byAddr), CALL(VYX_GetAddrInfo)(&four, &parts),
             CALL(VYX_InetPton)("1.2.3.4", byAddr), CALL(VYX_InetNtop)(AF_INET, byAddr, szOut, sizeof szOut),
             CALL(VYX_SetAddrPort)(&four, 3), CALL(VYX_GetAddrPort)(&four), CALL(VYX_FdIsSet)(3, nSet),
             CALL(VYX_FreeAddressInfo)(nullptr), CALL(VYX_FreeAdapterInfo)(nullptr));
    });
}

void Times() {
    VYX_TIME_EXP_T fields = {};
    VYX_TIME_T moment = 0;
    const vyx::vyx_time a(1);
    const vyx::vyx_time b(2);
    Act([&] {
        Make(CALL(VYX_TimeFromAnsiTime)(1), CALL(VYX_AnsiTimeFromTime)(1),
             CALL(VYX_TimeFromExpTime)(&fields, &moment), CALL(VYX_TimeFromExpTimeGMT)(&fields, &moment));
        torture::Enter("vyx::operator==");
        MUST(!(a == b));
        torture::Enter("vyx::operator!=");
        MUST(a != b);
        torture::Enter("vyx::operator<");
        MUST(a < b);
        torture::Enter("vyx::operator>");
        MUST(b > a);
    });
}

void Containers() {
    void *pTexts = nullptr;
    void *pNumbers = nullptr;
    VYX_HANDLE_CYCLEBUFFER hRing = nullptr;
    const auto Take = [](uint8_t *, uint32_t, void *) -> int32_t { return 0; };
    MUST(VYX_SimpleHashCreate(5, &pTexts) == VYX_OK && VYX_SimpleIntHashCreate(5, &pNumbers) == VYX_OK);
    MUST(VYX_CycleBufferInit(&hRing, 10, Take, nullptr) == VYX_OK);
    void *const pBlock = VYX_AlignedMalloc(10, 16);
    char szKey[] = "key";
    Act([&] {
        _VYX_ENTRY entry = {szKey, szKey};
        _VYX_INTITEM item = {1, szKey};
        void *pData = nullptr;
        (void)CALL(VYX_SimpleHashEnter)(&entry, pTexts);
        (void)CALL(VYX_SimpleHashFind)(szKey, &pData, pTexts);
        (void)CALL(VYX_SimpleHashRemove)(szKey, pTexts);
        (void)CALL(VYX_SimpleHashDestroy)(pTexts);
        (void)CALL(VYX_SimpleIntHashEnter)(&item, pNumbers);
        (void)CALL(VYX_SimpleIntHashFind)(1, &pData, pNumbers);
        (void)CALL(VYX_SimpleIntHashRemove)(1, pNumbers);
        (void)CALL(VYX_SimpleIntHashDestroy)(pNumbers);
        const uint8_t byData[3] = {};
        uint32_t nCount = 0;
        (void)CALL(VYX_CycleBufferWrite)(hRing, byData, 3);
        (void)CALL(VYX_CycleBufferValue)(hRing, &nCount);
        (void)CALL(VYX_CycleBufferRead)(hRing);
        (void)CALL(VYX_CycleBufferDestroy)(hRing);
        (void)CALL(VYX_AlignedFree)(pBlock);
    });
}

void Services() {
    MUST(VYX_Init() == VYX_OK && VYX_InitEx() == VYX_OK);
    std::atomic<bool> bEnd{false};
    std::thread([] {
        VYX_Thread_Exit();
    }).join(); // for the first one in a process the C library takes memory
    std::thread ending([&] {
        while (!bEnd)
            std::this_thread::yield();
        CALL(VYX_Thread_Exit)();
    });
    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(0, 1);
    Act([&] {
        MUST(CALL(VYX_ThreadPool_Destroy)(hPool) == VYX_OK);
        (void)CALL(GetLogService)();
        MUST(CALL(StartLogService)() == 0 && CALL(StopLogService)(false) == 0);
        MUST(CALL(AdjustLogLevel)(VYX_LOG_LEVEL_INF) == 0);
        VYX_HANDLE_MSGQ hQueue = nullptr;
        MUST(CALL(VYX_MsgQCreateEx)(&hQueue) == VYX_OK && CALL(VYX_MsgQDestroyEx)(hQueue) == VYX_OK);
        MUST(CALL(VYX_InitTimer)() == VYX_OK && CALL(VYX_FiniTimer)() == VYX_OK);
        const VYX_THREAD_T hSelf = CALL(VYX_Thread_GetSelfId)();
        MUST(CALL(VYX_Thread_Suspend)(hSelf) == VYX_NOT_AVAILABLE);
        MUST(CALL(VYX_Thread_Resume)(hSelf) == VYX_NOT_AVAILABLE);
        MUST(CALL(VYX_ThreadTls_GetValue)(VYX_INVALID_TLS) == nullptr);
        bEnd = true;
        ending.join();
        MUST(CALL(VYX_FiniEx)() == VYX_OK && CALL(VYX_Fini)() == VYX_OK);
    });
}

} // namespace

const std::vector<torture::Scenario> torture::kPlainScenarios = {
    {"texts", Texts, true}, {"numbers", Numbers, true},       {"addresses", Addresses, true},
    {"times", Times, true}, {"containers", Containers, true}, {"services", Services, true},
};
