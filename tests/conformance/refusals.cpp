// What callers get, and what is printed, for arguments that are refused.
#include <vyx/vyx.h>

#include "transcript.h"

namespace transcript {

namespace {

void Sync() {
    Line("mutex %d %d %d %d", VYX_MutexDestroy(nullptr), VYX_MutexLock(nullptr), VYX_MutexUnlock(nullptr),
         VYX_MutexTryLock(nullptr));
    Line("condition %d %d %d", VYX_CondDestroy(nullptr), VYX_CondSignal(nullptr), VYX_CondBroadCast(nullptr));
}

void Pools() {
    Line("pool %d %d", VYX_ThreadPool_Create(2, 1) == nullptr, VYX_ThreadPool_Create(0, 513) == nullptr);
    Line("pool work %d, destroy %d", VYX_ThreadPool_Work(nullptr, nullptr, nullptr),
         VYX_ThreadPool_Destroy(nullptr));
    Line("flexible %d %d", VYX_ThreadPoolFlex_Create(0, 0, nullptr, 0) == nullptr,
         VYX_ThreadPoolFlex_Work(nullptr, nullptr));
}

void Messages() {
    Line("queue %d %d %d %d", VYX_MsgQCreateEx(nullptr), VYX_MsgQDestroyEx(nullptr),
         VYX_MsgQSendEx(nullptr, nullptr), VYX_MsgQReceiveEx(nullptr, nullptr, 0));
    Line("timer %d %d %d", VYX_KillTimer(-1), VYX_KillTimer(0), VYX_KillTimer(256));
    Line("event %d %d %d", VYX_CloseEvent(nullptr), VYX_SetEvent(nullptr), VYX_ResetEvent(nullptr));
    Line("wait %x %x", VYX_WaitForSingleObject(nullptr, 0), VYX_WaitForMultipleObjects(1, nullptr, 0, 0));
    Line("select %d %d", VYX_EventSelect(-1, nullptr, 0), VYX_EnumNetworkEvents(-1, nullptr, nullptr));
}

void Network() {
    Line("address %d %d %d %d", VYX_MakeAddr(nullptr, 0, nullptr),
         VYX_MakeAddrByString(0, nullptr, 0, nullptr), VYX_GetAddrType(nullptr), VYX_GetAddrPort(nullptr));
    Line("parse %d", VYX_InetPton(nullptr, nullptr));
}

void Rest() {
    Line("file %d %d %d", VYX_OpenFile(nullptr, VYX_OPEN_READ, 0), VYX_CloseFile(-1),
         VYX_DeleteFile(nullptr));
    Line("directory %d %d %d", VYX_OpenDir(nullptr) == nullptr, VYX_MakeDir(nullptr), VYX_RemoveDir(nullptr));
    Line("module %d %d", VYX_LoadDSo(nullptr) == nullptr, VYX_UnloadDSo(nullptr));
    Line("ring %d %d %d", VYX_CycleBufferWrite(nullptr, nullptr, 0), VYX_CycleBufferRead(nullptr),
         VYX_CycleBufferDestroy(nullptr));
    Line("memory %d %d", VYX_AlignedMalloc(10, 3) == nullptr, VYX_AlignedFree(nullptr));
    Line("log %d", WriteLog(VYX_LOG_LEVEL_ERR, nullptr, 1, "x"));
}

void Show(const char *szWhat, void (*pfnRun)()) {
    const std::string messages = MessagesOf(pfnRun);
    Line("%s says %s", szWhat, Quoted(messages.c_str()).c_str());
}

} // namespace

void Refusals() {
    Show("sync", Sync);
    Show("pools", Pools);
    Show("messages", Messages);
    Show("network", Network);
    Show("rest", Rest);
}

} // namespace transcript
