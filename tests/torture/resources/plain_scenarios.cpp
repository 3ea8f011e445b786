// The functions that make no call of the platform which can fail: counted, not failed.
#include <atomic>
#include <cstring>
#include <thread>
#include <type_traits>
#include <utility>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;

// An argument of any type: a text with a number, which is also room for results; or 1.
template <class Type>
Type Any() {
    alignas(16) static char s_places[8][4096] = {};
    static size_t s_iPlace = 0;
    if constexpr (std::is_pointer_v<Type>) {
        char *const szPlace = s_places[++s_iPlace % std::size(s_places)];
        szPlace[0] = '7';
        return reinterpret_cast<Type>(szPlace);
    } else {
        return static_cast<Type>(1);
    }
}

template <class Result, class... Types>
void CallWithAny(const char *szFunction, Result (*fnCalled)(Types...)) {
    torture::Enter(szFunction);
    (void)fnCalled(Any<Types>()...);
}

// Their names are in one text, with spaces and commas between them, which is cut into pieces.
template <class... Functions>
void CallEach(char *szNames, Functions... fnCalled) {
    (CallWithAny(std::strtok(std::exchange(szNames, nullptr), ", "), fnCalled), ...);
}
#define CALL_EACH(...)                                                                                       \
    char szNames[] = #__VA_ARGS__;                                                                           \
    CallEach(szNames, __VA_ARGS__)

void Plain() {
    VYX_ADDR_T address = {};
    VYX_ADDR_EXP_T parts;
    uint8_t byAddr[16];
    char szOut[50];
    const vyx::vyx_time a(1);
    const vyx::vyx_time b(2);
    std::atomic<bool> bEnd{false};
    std::thread([] {
        VYX_Thread_Exit();
    }).join(); // for the first one in a process the C library takes memory
    std::thread ending([&] {
        while (!bEnd)
            std::this_thread::yield();
        CALL(VYX_Thread_Exit)();
    });
    Act([&] {
        CALL_EACH(VYX_Itoa, VYX_Ltoa, VYX_StrToi32, VYX_StrToi64, VYX_Atoi32, VYX_Atoi64, VYX_Strcpy,
                  VYX_Strncpy, VYX_Strcmp, VYX_Strncmp, VYX_Strcasecmp, VYX_Strncasecmp, VYX_Strchr,
                  VYX_Strnchr, VYX_Strstr, VYX_Strnstr, VYX_Strcasestr, FindLastSlash, VYX_AtomicSet,
                  VYX_AtomicCas, VYX_AtomicAdd, VYX_AtomicInc, VYX_AtomicDec, VYX_AtomicCasPtr, VYX_Htons,
                  VYX_Ntohs, VYX_Htonl, VYX_Ntohl, VYX_ZeroMemory, VYX_StringFromUUID, VYX_GetMemoryStatus,
                  VYX_GetNetWorkFlowData, VYX_GetOFlagByFlag, VYX_GetModeByPerm, VYX_GetPermByMode,
                  VYX_FileIsEOF, VYX_GetVYXVersion, VYX_GetLastError, VYX_SetLastError,
                  VYX_GetSystemLastError, VYX_SetSystemLastError, VYX_MakeAddr, VYX_MakeAddr6ByInt,
                  VYX_MakeAddr4ByInt, VYX_GetAddrType, VYX_GetAddr4Int, VYX_GetAddr6Int, VYX_SetAddrPort,
                  VYX_GetAddrPort, VYX_FdIsSet, VYX_TimeFromAnsiTime, VYX_AnsiTimeFromTime,
                  VYX_TimeFromExpTime, VYX_TimeFromExpTimeGMT, GetLogService, VYX_Thread_GetSelfId,
                  VYX_Thread_Suspend, VYX_Thread_Resume, VYX_ThreadTls_GetValue);
        CALL(VYX_Debug)("%d", 1);
        MUST(CALL(VYX_InetPton)("1.2.3.4", byAddr) == VYX_OK &&
             CALL(VYX_InetNtop)(AF_INET, byAddr, szOut, sizeof szOut) != nullptr);
        MUST(CALL(VYX_MakeAddrByString)(AF_INET, "1.2.3.4", 5, &address) == VYX_OK &&
             CALL(VYX_GetAddrInfo)(&address, &parts) == VYX_OK &&
             CALL(VYX_GetAddrString)(&address) != nullptr);
        (void)CALL(VYX_FreeAddressInfo)(nullptr);
        (void)CALL(VYX_FreeAdapterInfo)(nullptr);
        for (const char *szOperator :
             {"vyx::operator==", "vyx::operator!=", "vyx::operator<", "vyx::operator>"})
            torture::Enter(szOperator);
        MUST(a != b && a < b && b > a && !(a == b));
        bEnd = true;
        ending.join();
    });
}

} // namespace

const std::vector<torture::Scenario> torture::kPlainScenarios = {{"plain", Plain, true}};
