// The library answers as recorded, alike on every processor: a line for each call.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/calls.h"
#include "support/temp_dir.h"

namespace {

std::string s_found;

void Line(const char *szFormat, ...) VYX_PRINTF(1, 2);
void Line(const char *szFormat, ...) {
    char szLine[256];
    va_list args;
    va_start(args, szFormat);
    (void)std::vsnprintf(szLine, sizeof szLine, szFormat, args);
    va_end(args);
    s_found += std::string(szLine) + "\n";
}

/* ---- Flags and permissions */

// The platform's flags by name: their numbers are its own.
std::string FlagNames(int32_t iFlags) {
    std::string names = (iFlags & O_ACCMODE) == O_RDWR ? "rw" : (iFlags & O_ACCMODE) == O_WRONLY ? "w" : "r";
    const struct {
        int32_t iFlag;
        const char *szName;
    } flags[] = {{O_CREAT, " create"}, {O_APPEND, " append"}, {O_TRUNC, " truncate"}, {O_EXCL, " exclusive"}};
    for (const auto &flag : flags)
        names += (iFlags & flag.iFlag) != 0 ? flag.szName : "";
    return iFlags < 0 ? "none" : names;
}

void Flags() {
    for (uint32_t nFlags = 0; nFlags < 0x80; nFlags += nFlags < 8 ? 1 : 5)
        Line("open flags %02x: %s", nFlags, FlagNames(VYX_GetOFlagByFlag(nFlags)).c_str());
    for (uint32_t nBits = 1; nBits < 0x10000; nBits *= 2)
        Line("permission %x: mode %o; mode %o: permission %x", nBits, VYX_GetModeByPerm(nBits), nBits & 07777,
             VYX_GetPermByMode(nBits & 07777));
}

/* ---- What callers get, and what is printed, for arguments that are refused */

void Answer(const char *szCall, long (*pfnCall)()) {
    long lResult = 0;
    bool bInvalid = false;
    const std::string printed = support::ErrorsOf([&] {
        errno = 0;
        lResult = pfnCall();
        bInvalid = errno == EINVAL;
    });
    s_found +=
        std::string(szCall) + ": " + std::to_string(lResult) + (bInvalid ? " EINVAL" : "") + "\n" + printed;
}

#define REFUSED(call) Answer(#call, [] { return static_cast<long>(call); })

VYX_ADDR_T addr; // valid arguments beside the refused ones
uint8_t bytes[16];
char szText[8];

void Threads() {
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
    REFUSED(VYX_ThreadPool_Create(2, 1) != nullptr);
    REFUSED(VYX_ThreadPool_Create(0, 513) != nullptr);
    REFUSED(VYX_ThreadPool_Work(nullptr, nullptr, nullptr));
    REFUSED(VYX_ThreadPool_Destroy(nullptr));
    REFUSED(VYX_ThreadPoolFlex_Create(0, 0, nullptr, 0) != nullptr);
    REFUSED(VYX_ThreadPoolFlex_Work(nullptr, nullptr));
}

void Messages() {
    static VYX_MSG_BLOCK_T block;
    REFUSED(VYX_MsgQCreateEx(nullptr));
    REFUSED(VYX_MsgQDestroyEx(nullptr));
    REFUSED(VYX_MsgQSendEx(nullptr, &block));
    REFUSED(VYX_MsgQReceiveEx(nullptr, &block, 0));
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

void Addresses() {
    static VYX_ADDR_EXP_T exp;
    REFUSED(VYX_MakeAddrByString(AF_INET, nullptr, 0, nullptr));
    REFUSED(VYX_GetAddrType(nullptr));
    REFUSED(VYX_GetAddrPort(nullptr));
    REFUSED(VYX_MakeAddr(nullptr, 16, &addr));
    REFUSED(VYX_MakeAddr(bytes, 16, nullptr));
    REFUSED(VYX_MakeAddr4ByInt(1, 2, nullptr));
    REFUSED(VYX_MakeAddr6ByInt(bytes, 2, nullptr));
    REFUSED(VYX_SetAddrPort(nullptr, 2));
    REFUSED(VYX_GetAddrInfo(nullptr, &exp));
    REFUSED(VYX_GetAddrInfo(&addr, nullptr));
    REFUSED(VYX_GetAddr6Int(nullptr, bytes));
    REFUSED(VYX_InetPton("::1", nullptr));
    REFUSED(VYX_InetPton(nullptr, bytes));
    REFUSED(VYX_InetNtop(AF_INET, nullptr, szText, 8) != nullptr);
    REFUSED(VYX_InetNtop(AF_INET, bytes, nullptr, 8) != nullptr);
    REFUSED(VYX_InetNtop(AF_INET, bytes, szText, 0) != nullptr);
}

void Network() {
    static uint32_t nNone = 0;
    static uint32_t nNine = 9;
    REFUSED(VYX_GetAdapterInfo(nullptr));
    REFUSED(VYX_GetMacAddr("x", bytes, &nNone));
    REFUSED(VYX_GetMacAddr(nullptr, bytes, &nNine));
    REFUSED(VYX_GetMacAddr("x", nullptr, &nNine));
    REFUSED(VYX_GetMacAddr("x", bytes, nullptr));
    REFUSED(VYX_GetAddressInfo("127.0.0.1", nullptr, nullptr, nullptr));
    REFUSED(VYX_GetHostName(nullptr, 10));
    REFUSED(VYX_GetHostName(szText, -1));
    REFUSED(VYX_GetAddressByName(nullptr) != nullptr);
    REFUSED(VYX_Bind(0, nullptr));
    REFUSED(VYX_ConnectWithTimeOut(0, nullptr, 10));
    REFUSED(VYX_SetNonBlock(-1, 1));
    REFUSED(VYX_CloseSocket(-1, 1));
    REFUSED(VYX_GetAddrBySockFd(-1, &addr, nullptr));
    REFUSED(VYX_GetAddrBySockFd(0, nullptr, nullptr));
}

void Rest() {
    REFUSED(VYX_OpenFile(nullptr, VYX_OPEN_READ, 0));
    REFUSED(VYX_CloseFile(-1));
    REFUSED(VYX_DeleteFile(nullptr));
    REFUSED(VYX_OpenDir(nullptr) != nullptr);
    REFUSED(VYX_MakeDir(nullptr));
    REFUSED(VYX_RemoveDir(nullptr));
    REFUSED(VYX_CycleBufferWrite(nullptr, nullptr, 0));
    REFUSED(VYX_CycleBufferRead(nullptr));
    REFUSED(VYX_CycleBufferDestroy(nullptr));
    REFUSED(VYX_AlignedMalloc(10, 3) != nullptr);
    REFUSED(VYX_AlignedMalloc(10, 0) != nullptr);
    REFUSED(VYX_AlignedMalloc(-1, 8) != nullptr);
    REFUSED(WriteLog(VYX_LOG_LEVEL_ERR, nullptr, 1, "x"));
    REFUSED(WriteLog(VYX_LOG_LEVEL_ERR, "f", 1, "x"));
    REFUSED(WriteLog(static_cast<log_level>(4), "f", 1, "x"));
}

TEST(Conformance, EveryCallAnswersAsRecorded) {
    ASSERT_EQ(VYX_Init(), 0);
    Flags();
    Threads();
    Messages();
    Addresses();
    Network();
    Rest();
    ASSERT_EQ(VYX_Fini(), 0);
    support::WriteFile(CONFORMANCE_FOUND, s_found);
    EXPECT_EQ(support::ReadFile(CONFORMANCE_RECORDED), s_found);
}

} // namespace
