/*
 * Every C function of the library called from C11, each with a check of its result. What the functions do is
 * tested elsewhere: this shows that the headers and the shared library agree for a C program. Another test
 * compares the functions that this program calls with the list of those exported.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <vyx/vyx.h>

static int s_iFailures = 0;

static void Check(int bHolds, const char *szWhat, int iLine) {
    if (bHolds)
        return;
    (void)fprintf(stderr, "c_api_test.c:%d: does not hold: %s\n", iLine, szWhat);
    ++s_iFailures;
}
#define CHECK(condition) Check((condition) != 0, #condition, __LINE__)

/* ---- frame.h */

static void StartAndStop(void) {
    CHECK(VYX_Init() == VYX_OK);
    CHECK(VYX_InitEx() == VYX_OK);
    CHECK(VYX_FiniEx() == VYX_OK);
    CHECK(VYX_Fini() == VYX_OK);
}

static void VersionAndErrors(void) {
    CHECK(VYX_GetVYXVersion() == VYX_VERSION);
    CHECK(VYX_Log(0, NULL) == VYX_OK);
    CHECK(VYX_SetLastError(5) == 0);
    CHECK(VYX_GetLastError() == 0);
    VYX_SetSystemLastError(22);
    CHECK(VYX_GetSystemLastError() == 22);
}

/* ---- log.h */

static void Logging(void) {
    char szHeader[100];
    CHECK(FormatTimeAndName(szHeader, sizeof szHeader, VYX_LOG_LEVEL_ERR, "a/f.c", 7) == 49);
    CHECK(strcmp(szHeader + 25, "[ERR][FILE:f.c][LINE:7] ") == 0);
    CHECK(strcmp(FindLastSlash("a/b\\c"), "c") == 0);
    CHECK(StartLogService() == 0);
    CHECK(EnableTarget(VYX_LOG_TARGET_DEBUG, NULL, 0, 0) == 0);
    CHECK(AdjustLogLevel(VYX_LOG_LEVEL_DBG) == 0);
    CHECK(WriteLog(VYX_LOG_LEVEL_INF, __FILE__, __LINE__, "not shown") == -3);
    CHECK(WriteLog(VYX_LOG_LEVEL_DBG, __FILE__, __LINE__, "a line of the %s test", "C") == 0);
    CHECK(DisableTarget(VYX_LOG_TARGET_DEBUG) == 0);
    CHECK(StopLogService(true) == 0);
    CHECK(WriteLog(VYX_LOG_LEVEL_DBG, __FILE__, __LINE__, "no target") == -5);
}

/* ---- sync.h */

static void Mutexes(void) {
    VYX_MUTEX_T mutex;
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_RECURSIVE) == VYX_OK);
    CHECK(VYX_MutexLock(&mutex) == VYX_OK);
    CHECK(VYX_MutexTryLock(&mutex) == VYX_OK);
    CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
    CHECK(VYX_MutexUnlock(&mutex) == VYX_OK);
    CHECK(VYX_MutexDestroy(&mutex) == VYX_OK);
}

static void Semaphores(void) {
    VYX_SEM_T hSem;
    CHECK(VYX_SemCreate(&hSem, 1) == VYX_OK);
    CHECK(VYX_SemWait(&hSem) == VYX_OK);
    CHECK(VYX_SemTimedWait(&hSem, 1) == VYX_ERROR);
    CHECK(VYX_SemPost(&hSem) == VYX_OK);
    CHECK(VYX_SemTimedWait(&hSem, 60000) == VYX_OK);
    CHECK(VYX_SemDestroy(&hSem) == VYX_OK);
}

/* What a thread and its starter share; guarded by the mutex. */
typedef struct MEETING {
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    int bArrived;
} MEETING;

static void *Arrive(void *pParam) {
    MEETING *pMeeting = pParam;
    (void)VYX_MutexLock(&pMeeting->mutex);
    pMeeting->bArrived = 1;
    CHECK(VYX_CondSignal(&pMeeting->cond) == 0);
    (void)VYX_MutexUnlock(&pMeeting->mutex);
    return NULL;
}

static void Conditions(void) {
    MEETING meeting = {.bArrived = 0};
    CHECK(VYX_MutexCreate(&meeting.mutex, VYX_MUTEX_NORMAL) == VYX_OK);
    CHECK(VYX_CondCreate(&meeting.cond) == 0);
    CHECK(VYX_CondBroadCast(&meeting.cond) == 0);
    (void)VYX_MutexLock(&meeting.mutex);
    CHECK(VYX_CondTimedWait(&meeting.cond, &meeting.mutex, 1) == VYX_ERROR);
    CHECK(VYX_ThreadDetached_Create(Arrive, &meeting, 0) == VYX_TRUE);
    while (!meeting.bArrived)
        CHECK(VYX_CondWait(&meeting.cond, &meeting.mutex) == 0);
    (void)VYX_MutexUnlock(&meeting.mutex);
    CHECK(VYX_MutexLock(&meeting.mutex) == VYX_OK && VYX_MutexUnlock(&meeting.mutex) == VYX_OK);
    CHECK(VYX_CondDestroy(&meeting.cond) == 0);
    CHECK(VYX_MutexDestroy(&meeting.mutex) == VYX_OK);
}

static void Atomics(void) {
    volatile uint32_t nValue = 5;
    int iObject = 0;
    void *volatile pPointer = &iObject;
    CHECK(VYX_AtomicCas(&nValue, 6, 5) == 0 && nValue == 6);
    CHECK(VYX_AtomicSet(&nValue, 8) == 0 && nValue == 8);
    CHECK(VYX_AtomicAdd(&nValue, 3) == 0 && nValue == 11);
    CHECK(VYX_AtomicInc(&nValue) == 0 && nValue == 12);
    CHECK(VYX_AtomicDec(&nValue) == 0 && nValue == 11);
    CHECK(VYX_AtomicCasPtr(&pPointer, NULL, &iObject) == 0 && pPointer == &iObject);
}

/* ---- thread.h */

static VYX_THREAD_T s_hSelf; /* written by the thread, read after it was waited for */

static void *StoreAndExit(void *pKey) {
    VYX_TLS_T *pTls = pKey;
    CHECK(VYX_ThreadTls_GetValue(*pTls) == NULL);
    CHECK(VYX_ThreadTls_SetValue(*pTls, &s_hSelf) == VYX_OK);
    CHECK(VYX_ThreadTls_GetValue(*pTls) == &s_hSelf);
    s_hSelf = VYX_Thread_GetSelfId();
    VYX_Thread_Exit();
}

static void Threads(void) {
    VYX_TLS_T hKey = VYX_ThreadTls_Create();
    CHECK(hKey != VYX_INVALID_TLS);
    const VYX_THREAD_T hThread = VYX_Thread_Create(StoreAndExit, &hKey, 0, 0, 0, 0);
    CHECK(hThread != VYX_INVALID_THREAD);
    CHECK(VYX_Thread_Suspend(hThread) == VYX_NOT_AVAILABLE);
    CHECK(VYX_Thread_Resume(hThread) == VYX_NOT_AVAILABLE);
    /* Of a thread that may have ended meanwhile the platform cannot always tell. */
    CHECK(VYX_Thread_SetPriority(VYX_Thread_GetSelfId(), 0) == VYX_OK);
    CHECK(VYX_Thread_SetSchedPolicy(VYX_Thread_GetSelfId(), 0) == VYX_OK);
    CHECK(VYX_Thread_Wait(hThread) == VYX_OK);
    CHECK(s_hSelf == hThread);
    CHECK(VYX_ThreadTls_Destroy(hKey) == VYX_OK);
}

/* ---- sys.h */

static void DebugOutput(void) {
    VYX_Debug("%d", 1);
    CHECK(VYX_OutputDebug("%s", "debug output of the C test") >= 0);
    VYX_OutputDebugString("more of it\n");
}

static void Sleeping(void) {
    const VYX_TIME_T start = VYX_TimeNow();
    CHECK(VYX_Sleep(1) == 0);
    CHECK(VYX_USleep(1000) == 0);
    CHECK(VYX_TimeNow() - start >= 2000);
    CHECK(VYX_GetTimeTick() - (uint32_t)(start / 1000) >= 2);
}

static void System(void) {
    uint8_t uuid[16] = {0};
    char szUuid[37] = "";
    VYX_MEMORY_STATUS_T memory = {.nTotalPhys = 1};
    uint32_t nSize = 0;
    CHECK(VYX_Rand() >= 0);
    CHECK(VYX_GetCPUNumber() >= 1);
    CHECK(VYX_GetUUID(uuid) == 0 && (uuid[6] >> 4 == 4 || uuid[7] >> 4 == 4));
    CHECK(VYX_StringFromUUID(uuid, szUuid, 37) == 0 && strlen(szUuid) == 36);
    CHECK(VYX_ZeroMemory(uuid, sizeof uuid) == uuid && uuid[6] == 0);
    CHECK(VYX_GetMemoryStatus(&memory) == VYX_NOT_AVAILABLE && memory.nTotalPhys == 0);
    CHECK(VYX_GetNetWorkFlowData(&memory) == VYX_NOT_AVAILABLE);
    CHECK(VYX_GetCPUPerformance(NULL, &nSize) == VYX_ERROR);
}

static void Files(void) {
    const char *szPath = "c_api_test.file";
    const char *szCopy = "c_api_test.copy";
    char szText[4] = "abc";
    VYX_FINFO_T info;
    int32_t iCount = 0;
    int64_t iPosition = 0;
    const VYX_FILE_T hFile = VYX_OpenFile(
        szPath, VYX_OPEN_READ | VYX_OPEN_WRITE | VYX_OPEN_CREATE | VYX_OPEN_TRUNCATE, VYX_UREAD | VYX_UWRITE);
    CHECK(hFile != VYX_INVALID_FILE);
    CHECK(VYX_WriteFile(hFile, szText, 3, &iCount) == VYX_OK && iCount == 3);
    CHECK(VYX_FileSeek(hFile, 1, 0, &iPosition) == VYX_OK && iPosition == 1);
    CHECK(VYX_ReadFile(hFile, szText, 3, &iCount) == VYX_OK && iCount == 2 && szText[0] == 'b');
    CHECK(VYX_FileIsEOF(hFile) == 1 && VYX_FileFlush(hFile) == VYX_OK);
    CHECK(VYX_FileStat(hFile, &info) == VYX_OK && info.type == VYX_TYPE_REG && info.size == 3);
    CHECK(VYX_CloseFile(hFile) == VYX_OK);
    CHECK(VYX_CopyFile(szPath, szCopy, 0) == 1 && VYX_RenameFile(szCopy, szPath) == VYX_OK);
    CHECK(VYX_AccessFile(szPath, 0) == VYX_OK && VYX_AccessFile(szCopy, 0) == VYX_ERROR);
    CHECK(VYX_DeleteFile(szPath) == VYX_OK);
    CHECK(VYX_GetOFlagByFlag(VYX_OPEN_CREATE) == VYX_ERROR);
    CHECK(VYX_GetModeByPerm(VYX_ATTR_READONLY) == 0400 && VYX_GetPermByMode(0400) == VYX_UREAD);
}

static void DirectoriesAndModules(void) {
    const char *szPath = "c_api_test.dir";
    char szExe[1024] = "";
    _FILE_FIND_INFO info;
    CHECK(VYX_MakeDir(szPath) == VYX_OK);
    const VYX_DIR_T hDir = VYX_OpenDir(szPath);
    CHECK(hDir != NULL);
    CHECK(VYX_FindFileInDir(hDir, &info) == VYX_OK && info.name[0] == '.' && info.finfo.type == VYX_TYPE_DIR);
    CHECK(VYX_CloseDir(hDir) == VYX_OK);
    CHECK(VYX_RemoveDir(szPath) == VYX_OK);
    CHECK(VYX_GetCurExePath(szExe, sizeof szExe) == VYX_OK && szExe[0] == '/');
    CHECK(VYX_LoadDSo("./no such module") == NULL && VYX_GetDsoSym(NULL, "x") == NULL);
    CHECK(VYX_UnloadDSo(NULL) == VYX_ERROR);
}

/* ---- time.h */

static const VYX_TIME_T kMoment = INT64_C(1000000000123456); /* 2001-09-09 01:46:40.123456 UTC */

static void Calendar(void) {
    VYX_TIME_EXP_T fields;
    VYX_TIME_T time = 0;
    CHECK(VYX_TimeFromAnsiTime(1000000000) == kMoment - 123456);
    CHECK(VYX_AnsiTimeFromTime(kMoment) == 1000000000);
    CHECK(VYX_ExpTimeFromTime(kMoment, 3600, &fields) == VYX_OK);
    CHECK(fields.tm_hour == 2 && fields.tm_gmtoff == 3600);
    CHECK(VYX_ExpTimeFromTimeLocal(kMoment, &fields) == VYX_OK && fields.tm_usec == 123456);
    CHECK(VYX_ExpTimeFromTimeGMT(kMoment, &fields) == VYX_OK && fields.tm_year == 101 && fields.tm_min == 46);
    CHECK(VYX_TimeFromExpTime(&fields, &time) == VYX_OK && time == kMoment);
    CHECK(VYX_TimeFromExpTimeGMT(&fields, &time) == VYX_OK && time == kMoment);
}

static void TimeAsText(void) {
    VYX_TIME_EXP_T fields;
    const struct tm platformFields = {.tm_mday = 3, .tm_year = 101};
    char szText[64];
    uint32_t nLength = 0;
    CHECK(VYX_CTime(szText, kMoment) == VYX_OK && strlen(szText) == 24);
    CHECK(VYX_ExpTimeFromTimeGMT(kMoment, &fields) == VYX_OK);
    CHECK(VYX_StrFmtTime(szText, &nLength, sizeof szText, "%Y %T", &fields) == VYX_OK);
    CHECK(nLength == 13 && strcmp(szText, "2001 01:46:40") == 0);
    CHECK(win32_strftime_extra(szText, sizeof szText, "%e|", &platformFields) == 3);
    CHECK(strcmp(szText, " 3|") == 0);
    CHECK(strcmp(vyx_day_snames[0], "Sun") == 0 && strcmp(vyx_month_snames[11], "Dec") == 0);
}

/* ---- container.h */

static void HashTables(void) {
    char szKey[] = "key";
    _VYX_ENTRY entry = {szKey, szKey};
    _VYX_INTITEM item = {7, szKey};
    void *pTable = NULL;
    void *pData = NULL;
    CHECK(VYX_SimpleHashCreate(10, &pTable) == VYX_OK);
    CHECK(VYX_SimpleHashEnter(&entry, pTable) == VYX_OK);
    CHECK(VYX_SimpleHashFind("key", &pData, pTable) == VYX_OK && pData == szKey);
    CHECK(VYX_SimpleHashRemove("key", pTable) == VYX_OK);
    CHECK(VYX_SimpleHashDestroy(pTable) == VYX_OK);
    CHECK(VYX_SimpleIntHashCreate(10, &pTable) == VYX_OK);
    CHECK(VYX_SimpleIntHashEnter(&item, pTable) == VYX_OK);
    CHECK(VYX_SimpleIntHashFind(7, &pData, pTable) == VYX_OK && pData == szKey);
    CHECK(VYX_SimpleIntHashRemove(7, pTable) == VYX_OK);
    CHECK(VYX_SimpleIntHashDestroy(pTable) == VYX_OK);
    CHECK(VYX_HSEARCH_DATA.size == 0 && VYX_HSEARCH_INTDATA.table == NULL);
}

static int32_t AddLength(uint8_t *pData, uint32_t nLen, void *pUser) {
    (void)pData;
    *(uint32_t *)pUser += nLen;
    return 0;
}

static void Memory(void) {
    VYX_HANDLE_CYCLEBUFFER hBuffer = NULL;
    uint32_t nTaken = 0;
    uint32_t nStored = 0;
    CHECK(VYX_CycleBufferInit(&hBuffer, 10, AddLength, &nTaken) == VYX_OK);
    CHECK(VYX_CycleBufferWrite(hBuffer, (const uint8_t *)"abc", 3) == VYX_OK);
    CHECK(VYX_CycleBufferValue(hBuffer, &nStored) == VYX_OK && nStored == 3);
    CHECK(VYX_CycleBufferRead(hBuffer) == VYX_OK && nTaken == 3);
    CHECK(VYX_CycleBufferDestroy(hBuffer) == VYX_OK);
    void *pMemory = VYX_AlignedMalloc(10, 64);
    CHECK((uintptr_t)pMemory % 64 == 0 && pMemory != NULL);
    CHECK(VYX_AlignedFree(pMemory) == VYX_OK);
}

/* ---- pool.h */

static volatile uint32_t s_nItems; /* run by the pools */

static void *CountItem(void *pCount) {
    (void)VYX_AtomicInc((volatile uint32_t *)pCount);
    return NULL;
}

static void CountPointer(void *pCount) {
    (void)CountItem(pCount);
}

static void Pools(void) {
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 2);
    CHECK(hPool != NULL && VYX_ThreadPool_Work(hPool, CountItem, (void *)&s_nItems) == VYX_OK);
    CHECK(VYX_ThreadPool_WorkEx(hPool, CountItem, (void *)&s_nItems, 1) == VYX_OK);
    CHECK(VYX_ThreadPool_Destroy(hPool) == VYX_OK && s_nItems == 2);
    hPool = VYX_ThreadPool_CreateEx(1, 1, 262144);
    CHECK(hPool != NULL && VYX_ThreadPool_Destroy(hPool) == VYX_OK);
    hPool = VYX_ThreadPool_CreateFlex(0, 1, 0, 10);
    CHECK(hPool != NULL && VYX_ThreadPool_Destroy(hPool) == VYX_OK);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(1, -1, CountPointer, 0);
    CHECK(hFlex != NULL && VYX_ThreadPoolFlex_Work(hFlex, (void *)&s_nItems) == VYX_OK);
    CHECK(VYX_ThreadPoolFlex_Destroy(hFlex) == VYX_OK);
}

/* ---- msg.h */

static void Events(void) {
    VYX_EVENT hEvent = VYX_CreateEvent(1);
    VYX_NETWORKEVENTS_T found;
    CHECK(hEvent != NULL && VYX_WaitForSingleObject(hEvent, 0) == VYX_WAIT_OBJECT_0);
    CHECK(VYX_ResetEvent(hEvent) == VYX_TRUE);
    CHECK(VYX_WaitForMultipleObjects(1, &hEvent, 1, 0) == VYX_WAIT_TIMEOUT);
    CHECK(VYX_SetEvent(hEvent) == VYX_TRUE);
    CHECK(VYX_EventSelect(VYX_INVALID_SOCKET, hEvent, VYX_FD_READ) == VYX_ERROR);
    CHECK(VYX_EnumNetworkEvents(0, hEvent, &found) == VYX_OK && found.lNetworkEvents == 0);
    CHECK(VYX_CloseEvent(hEvent) == VYX_TRUE);
}

static void MessageQueues(void) {
    VYX_HANDLE_MSGQ hQueue = NULL;
    VYX_MSG_BLOCK_T struMsg = {7, 1, 2, "ab"};
    CHECK(VYX_MsgQCreateEx(&hQueue) == VYX_OK && hQueue != NULL);
    CHECK(VYX_MsgQSendEx(hQueue, &struMsg) == VYX_OK);
    memset(&struMsg, 0, sizeof struMsg);
    struMsg.iDataLen = VYX_MSG_DATA_SIZE;
    CHECK(VYX_MsgQReceiveEx(hQueue, &struMsg, 0) == VYX_OK);
    CHECK(struMsg.iMsgType == 7 && struMsg.iDataLen == 2 && memcmp(struMsg.szData, "ab", 2) == 0);
    CHECK(VYX_MsgQDestroyEx(hQueue) == VYX_OK);
}

static void OnTimer(uint32_t nTimerId, void *pSem) {
    if (nTimerId == 0)
        (void)VYX_SemPost(pSem);
}

static void Timers(void) {
    uint32_t nTimerId = 1;
    VYX_SEM_T hSem = NULL;
    CHECK(VYX_SemCreate(&hSem, 0) == VYX_OK && VYX_InitTimer() == VYX_OK);
    CHECK(VYX_SetTimer(OnTimer, &hSem, 1, &nTimerId) == VYX_OK && nTimerId == 0);
    CHECK(VYX_SemWait(&hSem) == VYX_OK);
    CHECK(VYX_KillTimer((int32_t)nTimerId) == VYX_ERROR);
    CHECK(VYX_SemDestroy(&hSem) == VYX_OK && VYX_FiniTimer() == VYX_OK);
}

/* ---- net.h */

static void Addresses(void) {
    VYX_ADDR_T struAddr;
    VYX_ADDR_T struCopy;
    VYX_ADDR_EXP_T struParts;
    uint8_t byAddr[16] = {0};
    uint32_t nAddr = 0;
    char szText[46];
    memset(&struAddr, 0, sizeof struAddr);
    CHECK(VYX_MakeAddrByString(AF_INET, "127.0.0.1", 80, &struAddr) == VYX_OK);
    CHECK(VYX_GetAddrType(&struAddr) == AF_INET && VYX_GetAddrPort(&struAddr) == 80);
    CHECK(strcmp(VYX_GetAddrString(&struAddr), "127.0.0.1") == 0);
    CHECK(VYX_GetAddr4Int(&struAddr, &nAddr) == VYX_OK && VYX_MakeAddr4ByInt(nAddr, 81, &struCopy) == VYX_OK);
    CHECK(VYX_SetAddrPort(&struCopy, 82) == VYX_OK && VYX_GetAddrPort(&struCopy) == 82);
    CHECK(VYX_MakeAddr(&struAddr, sizeof struAddr.in4, &struCopy) == VYX_OK);
    CHECK(VYX_GetAddrInfo(&struCopy, &struParts) == VYX_OK && struParts.nPort == 80);
    CHECK(VYX_InetPton("1::2", byAddr) == VYX_OK && VYX_MakeAddr6ByInt(byAddr, 9, &struCopy) == VYX_OK);
    CHECK(VYX_GetAddr6Int(&struCopy, byAddr) == VYX_OK);
    CHECK(strcmp(VYX_InetNtop(AF_INET6, byAddr, szText, sizeof szText), "1::2") == 0);
}

/* Both ends of a connection over loopback. */
static void Connect(VYX_SOCK_T *pClient, VYX_SOCK_T *pServer) {
    VYX_ADDR_T struAddr;
    VYX_SOCK_T hListen = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
    memset(&struAddr, 0, sizeof struAddr);
    CHECK(VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0, &struAddr) == VYX_OK);
    CHECK(VYX_SetReuseAddr(hListen, 1) == 0 && VYX_Bind(hListen, &struAddr) == 0);
    CHECK(VYX_Listen(hListen, 1) == 0 && VYX_GetAddrBySockFd(hListen, &struAddr, NULL) == VYX_OK);
    *pClient = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
    CHECK(VYX_ConnectWithTimeOut(*pClient, &struAddr, 5000) == 0);
    *pServer = VYX_Accept(hListen, NULL, 5000);
    CHECK(*pServer != VYX_INVALID_SOCKET && VYX_CloseSocket(hListen, 0) == 0);
}

static void Streams(void) {
    VYX_SOCK_T hClient = VYX_INVALID_SOCKET;
    VYX_SOCK_T hServer = VYX_INVALID_SOCKET;
    char szText[8] = "";
    int32_t iPending = 0;
    uint32_t nTimeOut = 5000;
    fd_set struSet;
    struct timeval struTime = {5, 0};
    struct pollfd struPoll;
    Connect(&hClient, &hServer);
    struPoll.fd = hServer;
    struPoll.events = POLLIN;
    FD_ZERO(&struSet);
    FD_SET(hServer, &struSet);
    CHECK(VYX_SetNoDelay(hClient, 1) == 0 && VYX_Send(hClient, "a", 1) == 1);
    CHECK(VYX_Poll(&struPoll, 1, 5000) == 1 && VYX_PollEx(&struPoll, 1, &nTimeOut) == 1);
    CHECK(VYX_Select(hServer + 1, &struSet, NULL, NULL, &struTime) == 1 &&
          VYX_FdIsSet(hServer, &struSet) != 0);
    CHECK(VYX_SelectEx(hServer + 1, &struSet, NULL, NULL, &struTime) == 1);
    CHECK(VYX_Ioctl(hServer, FIONREAD, &iPending) == 0 && iPending == 1);
    CHECK(VYX_Recv(hServer, szText, 1) == 1 && szText[0] == 'a');
    CHECK(VYX_Sendn(hClient, "bcd", 3, 5000) == 3 && VYX_Recvn(hServer, szText, 2, 5000) == 2);
    CHECK(VYX_RecvWithTimeOut(hServer, szText, 8, 5000) == 1 && szText[0] == 'd');
    CHECK(VYX_SetNonBlock(hServer, 1) == 0 && VYX_ShutDown(hClient, SHUT_WR) == 0);
    CHECK(VYX_CloseSocket(hClient, 1) == 0 && VYX_CloseSocket(hServer, 0) == 0);
}

static void Options(void) {
    VYX_SOCK_T hSocket = VYX_CreateSocket(AF_INET, SOCK_DGRAM, 0);
    VYX_ADDR_T struAddr;
    VYX_ADDR_T struFrom;
    char cByte = 0;
    int32_t iValue = 0;
    memset(&struAddr, 0, sizeof struAddr);
    CHECK(VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0, &struAddr) == VYX_OK &&
          VYX_Bind(hSocket, &struAddr) == 0);
    CHECK(VYX_GetAddrBySockFd(hSocket, &struAddr, NULL) == VYX_OK &&
          VYX_SendTo(hSocket, "x", 1, &struAddr) == 1);
    CHECK(VYX_RecvFrom(hSocket, &cByte, 1, &struFrom) == 1 && cByte == 'x');
    CHECK(VYX_SetTTL(hSocket, 7) == 0 && VYX_GetTTL(hSocket, &iValue) == 0 && iValue == 7);
    CHECK(VYX_SetTOS(hSocket, 16) == 0 && VYX_GetTOS(hSocket, &iValue) == 0 && iValue == 16);
    CHECK(VYX_SetMultiCastTTL(hSocket, 2) == 0 && VYX_BroadCast(hSocket) == 0);
    CHECK(VYX_LingerOn(hSocket, 1) == 0 && VYX_LingerOff(hSocket) == 0);
    CHECK(VYX_SetTimeOut(hSocket, 1000, 1000) == 0 && VYX_SetBuffSize(hSocket, 65536, 65536) == 0);
    CHECK(VYX_GetBuffSize(hSocket, &iValue, &iValue) == 0 && iValue >= 65536);
    /* Refused: the socket is none of IPv6, and the address no group. */
    CHECK(VYX_SetTTL_V6(-1, 7) == -1 && VYX_SetMultiCastTTL_V6(-1, 7) == -1 &&
          VYX_GetTTL_V6(-1, &iValue) == -1);
    CHECK(VYX_JoinMultiCastGroup(hSocket, &struAddr, &struAddr) == -1);
    CHECK(VYX_LeaveMultiCastGroup(hSocket, &struAddr, &struAddr) == -1);
    CHECK(VYX_CloseSocket(hSocket, 0) == 0);
}

/* ---- string.h */

static void Numbers(void) {
    char szText[70];
    char *szEnd = NULL;
    CHECK(strcmp(VYX_Itoa(szText, 255, 16), "ff") == 0);
    CHECK(strcmp(VYX_Ltoa(szText, -5, 10), "-5") == 0);
    CHECK(VYX_StrToi32("12x", &szEnd, 10) == 12 && *szEnd == 'x');
    CHECK(VYX_StrToi64("0x10", NULL, 0) == 16);
    CHECK(VYX_Atoi32("-3") == -3 && VYX_Atoi64("4") == 4);
}

static void Strings(void) {
    char szText[8];
    char *szCopy = VYX_Strdup("abc");
    CHECK(szCopy != NULL && VYX_Strcmp(szCopy, "abc") == 0);
    free(szCopy);
    szCopy = VYX_Strndup("abc", 2);
    CHECK(szCopy != NULL && VYX_Strcmp(szCopy, "ab") == 0);
    free(szCopy);
    CHECK(VYX_Strcpy(szText, "Hello") == szText && VYX_Strncpy(szText, "J", 1) == szText);
    CHECK(VYX_Strncmp(szText, "Jell", 4) == 0 && VYX_Strcasecmp(szText, "JELLO") == 0);
    CHECK(VYX_Strncasecmp(szText, "JELx", 3) == 0);
    CHECK(VYX_Strchr(szText, 'l') == szText + 2 && VYX_Strnchr(szText, 'o', 5) == szText + 4);
    CHECK(VYX_Strstr(szText, "lo") == szText + 3 && VYX_Strnstr(szText, "lox", 2) == szText + 3);
    CHECK(VYX_Strcasestr(szText, "LO") == szText + 3);
}

/* ---- net.h */

static void NamesAndAdapters(void) {
    char szName[256];
    uint8_t address[8];
    uint32_t nLength = 0;
    VYX_ADDRESS_INFO_T hints = {.iFamily = AF_INET, .iSockType = SOCK_STREAM};
    VYX_ADDRESS_INFO_T *pNames = NULL;
    VYX_ADAPTER_INFO *pAdapters = NULL;
    CHECK(VYX_GetHostName(szName, sizeof szName) == 0 && strlen(szName) < sizeof szName);
    CHECK(VYX_GetAddressByName("127.0.0.1")->h_length == 4);
    CHECK(VYX_Htons(0x0102) == htons(0x0102) && VYX_Ntohs(0x0102) == ntohs(0x0102));
    CHECK(VYX_Htonl(0x01020304) == htonl(0x01020304) && VYX_Ntohl(0x01020304) == ntohl(0x01020304));
    CHECK(VYX_GetAddressInfo("127.0.0.1", NULL, &hints, &pNames) == 0 && pNames != NULL);
    CHECK(VYX_FreeAddressInfo(pNames) == 0);
    CHECK(VYX_GetAdapterInfo(&pAdapters) == 0 && VYX_FreeAdapterInfo(pAdapters) == 0);
    CHECK(VYX_GetMacAddr("", address, &nLength) == -1 && nLength == 0);
}

int main(void) {
    StartAndStop();
    CHECK(VYX_Init() == VYX_OK); /* for the bounded waits and the atomic operations */
    VersionAndErrors();
    Logging();
    Mutexes();
    Semaphores();
    Conditions();
    Atomics();
    Threads();
    DebugOutput();
    Sleeping();
    System();
    Files();
    DirectoriesAndModules();
    Calendar();
    TimeAsText();
    HashTables();
    Memory();
    Pools();
    Events();
    MessageQueues();
    Timers();
    Addresses();
    Streams();
    Options();
    Numbers();
    Strings();
    NamesAndAdapters();
    CHECK(VYX_Fini() == VYX_OK);
    return s_iFailures == 0 ? 0 : 1;
}
