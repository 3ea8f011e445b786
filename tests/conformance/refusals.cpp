// What callers get, and what is printed, for arguments that are refused.
#include <vyx/vyx.h>

#include "support/calls.h"
#include "transcript.h"

namespace transcript {

namespace {

// One call a line: the order in which a compiler evaluates arguments is its own.
void Answer(const char *szCall, long lResult) {
    Line("%s: %ld", szCall, lResult);
}

#define REFUSED(call) Answer(#call, static_cast<long>(call))
#define NO_POINTER(call) Answer(#call, (call) == nullptr ? 0 : 1)

void Sync() {
    static VYX_MUTEX_T hMutex = PTHREAD_MUTEX_INITIALIZER;
    static VYX_COND_T hCond = PTHREAD_COND_INITIALIZER;
    REFUSED(VYX_MutexCreate(nullptr, VYX_MUTEX_RECURSIVE));
    REFUSED(VYX_MutexDestroy(nullptr));
    REFUSED(VYX_MutexLock(nullptr));
    REFUSED(VYX_MutexUnlock(nullptr));
    REFUSED(VYX_MutexTryLock(nullptr));
    REFUSED(VYX_CondCreate(nullptr));
    REFUSED(VYX_CondWait(nullptr, &hMutex));
    REFUSED(VYX_CondWait(&hCond, nullptr));
    REFUSED(VYX_CondTimedWait(nullptr, &hMutex, VYX_INFINITE));
    REFUSED(VYX_CondTimedWait(&hCond, nullptr, VYX_INFINITE));
    REFUSED(VYX_SemCreate(nullptr, 1));
    REFUSED(VYX_CondDestroy(nullptr));
    REFUSED(VYX_CondSignal(nullptr));
    REFUSED(VYX_CondBroadCast(nullptr));
}

void Pools() {
    NO_POINTER(VYX_ThreadPool_Create(2, 1));
    NO_POINTER(VYX_ThreadPool_Create(0, 513));
    REFUSED(VYX_ThreadPool_Work(nullptr, nullptr, nullptr));
    REFUSED(VYX_ThreadPool_Destroy(nullptr));
    NO_POINTER(VYX_ThreadPoolFlex_Create(0, 0, nullptr, 0));
    REFUSED(VYX_ThreadPoolFlex_Work(nullptr, nullptr));
}

void Messages() {
    REFUSED(VYX_MsgQCreateEx(nullptr));
    REFUSED(VYX_MsgQDestroyEx(nullptr));
    REFUSED(VYX_MsgQSendEx(nullptr, nullptr));
    REFUSED(VYX_MsgQReceiveEx(nullptr, nullptr, 0));
    REFUSED(VYX_KillTimer(-1));
    REFUSED(VYX_KillTimer(0));
    REFUSED(VYX_KillTimer(256));
    REFUSED(VYX_CloseEvent(nullptr));
    REFUSED(VYX_SetEvent(nullptr));
    REFUSED(VYX_ResetEvent(nullptr));
    REFUSED(VYX_WaitForSingleObject(nullptr, 0) & 0xFFFFFF);
    REFUSED(VYX_WaitForMultipleObjects(1, nullptr, 0, 0) & 0xFFFFFF);
    REFUSED(VYX_EventSelect(-1, nullptr, 0));
    REFUSED(VYX_EnumNetworkEvents(-1, nullptr, nullptr));
}

void Network() {
    REFUSED(VYX_MakeAddr(nullptr, 0, nullptr));
    REFUSED(VYX_MakeAddrByString(0, nullptr, 0, nullptr));
    REFUSED(VYX_GetAddrType(nullptr));
    REFUSED(VYX_GetAddrPort(nullptr));
    REFUSED(VYX_InetPton(nullptr, nullptr));
}

void Rest() {
    REFUSED(VYX_OpenFile(nullptr, VYX_OPEN_READ, 0));
    REFUSED(VYX_CloseFile(-1));
    REFUSED(VYX_DeleteFile(nullptr));
    NO_POINTER(VYX_OpenDir(nullptr));
    REFUSED(VYX_MakeDir(nullptr));
    REFUSED(VYX_RemoveDir(nullptr));
    REFUSED(VYX_CycleBufferWrite(nullptr, nullptr, 0));
    REFUSED(VYX_CycleBufferRead(nullptr));
    REFUSED(VYX_CycleBufferDestroy(nullptr));
    NO_POINTER(VYX_AlignedMalloc(10, 3));
    NO_POINTER(VYX_AlignedMalloc(10, 0));
    NO_POINTER(VYX_AlignedMalloc(-1, 8));
    REFUSED(WriteLog(VYX_LOG_LEVEL_ERR, nullptr, 1, "x"));
    REFUSED(WriteLog(VYX_LOG_LEVEL_ERR, "f", 1, "x"));
    REFUSED(WriteLog(static_cast<log_level>(4), "f", 1, "x"));
}

void Show(const char *szWhat, void (*pfnRun)()) {
    Line("%s says %s", szWhat, Quoted(support::ErrorsOf(pfnRun).c_str()).c_str());
}

} // namespace

void Refusals() {
    Section("refusals");
    Show("sync", Sync);
    Show("pools", Pools);
    Show("messages", Messages);
    Show("network", Network);
    Show("rest", Rest);
}

} // namespace transcript
