/*
 * Passes each probe of the library once or more, when standard input has a line for it, and prints what a tracer must see
 * there: the probe's name and its arguments. Ends with standard input.
 */
#include <inttypes.h>
#include <stdio.h>
#include <vyx/vyx.h>

static VYX_SEM_T s_hDone;

static void *Item(void *pParam) {
    (void)pParam;
    (void)VYX_SemPost(&s_hDone);
    return NULL;
}

static void FlexItem(void *pParam) {
    (void)Item(pParam);
}

static void Tick(uint32_t nTimerId, void *pUserData) {
    (void)nTimerId;
    (void)Item(pUserData);
}

static void Say(const char *szProbe, const void *pObject) {
    (void)printf("%s %#" PRIxPTR, szProbe, (uintptr_t)pObject);
}

static void Sync(void) {
    VYX_MUTEX_T mutex;
    VYX_COND_T cond;
    (void)VYX_MutexCreate(&mutex, 0);
    (void)VYX_CondCreate(&cond);
    (void)VYX_SemPost(&s_hDone);
    (void)VYX_SemWait(&s_hDone);
    (void)VYX_SemTimedWait(&s_hDone, 1);
    (void)VYX_MutexLock(&mutex);
    (void)VYX_CondTimedWait(&cond, &mutex, 1);
    (void)VYX_MutexUnlock(&mutex);
    Say("sem_post", s_hDone), puts("");
    Say("sem_wait_begin", s_hDone), puts("");
    Say("sem_wait_end", s_hDone), puts(" 0");
    Say("sem_wait_end", s_hDone), puts(" 1");
    Say("cond_wait_begin", &cond), puts("");
    Say("cond_wait_end", &cond), puts(" -1");
}

static void Events(void) {
    VYX_EVENT hEvent = VYX_CreateEvent(0);
    const uint32_t nNone = VYX_WaitForSingleObject(hEvent, 0);
    (void)VYX_SetEvent(hEvent);
    const uint32_t nSet = VYX_WaitForMultipleObjects(1, &hEvent, 0, 0);
    Say("event_set", hEvent), puts("");
    Say("event_wait_begin", hEvent), puts("");
    Say("event_wait_end", hEvent), puts(nNone == VYX_WAIT_TIMEOUT ? " 0" : " ?");
    Say("event_wait_end", &hEvent), puts(nSet == VYX_WAIT_OBJECT_0 ? " 1" : " ?");
}

static void Pools(void) {
    int param = 0;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    VYX_HANDLE_THREADPOOLFLEX hFlex = VYX_ThreadPoolFlex_Create(1, 1000, FlexItem, 0);
    (void)VYX_ThreadPool_WorkEx(hPool, Item, &param, 1);
    (void)VYX_ThreadPoolFlex_Work(hFlex, &param);
    (void)VYX_SemWait(&s_hDone);
    (void)VYX_SemWait(&s_hDone);
    Say("pool_hand_over", hPool), Say("", &param), puts("");
    Say("flex_hand_over", hFlex), Say("", &param), puts("");
    (void)VYX_ThreadPool_Destroy(hPool);
    (void)VYX_ThreadPoolFlex_Destroy(hFlex);
}

static void Queue(void) {
    static VYX_MSG_BLOCK_T block = {1, 1, 4, "abc"};
    VYX_HANDLE_MSGQ hQueue = NULL;
    (void)VYX_MsgQCreateEx(&hQueue);
    (void)VYX_MsgQSendEx(hQueue, &block);
    (void)VYX_MsgQSendEx(hQueue, &block);
    block.iDataLen = VYX_MSG_DATA_SIZE;
    (void)VYX_MsgQReceiveEx(hQueue, &block, 1);
    Say("queue_send", hQueue), puts("");
    Say("queue_receive", hQueue), puts(" 2");
    (void)VYX_MsgQDestroyEx(hQueue);
}

static void Timer(void) {
    uint32_t nTimerId = 0;
    (void)VYX_InitTimer();
    (void)VYX_SetTimer(Tick, NULL, 1, &nTimerId);
    (void)VYX_SemWait(&s_hDone);
    (void)VYX_SemWait(&s_hDone);
    (void)VYX_KillTimer((int32_t)nTimerId);
    (void)VYX_FiniTimer();
    (void)printf("timer_begin %" PRIu32 "\n", nTimerId);
    (void)puts("timer_end");
}

static void Log(void) {
    (void)EnableTarget(VYX_LOG_TARGET_DEBUG, NULL, 0, 0);
    const int32_t iResult = WriteLog(VYX_LOG_LEVEL_ERR, __FILE__, 7, "%s", "traced");
    (void)VYX_Log(0, NULL);
    (void)DisableTarget(VYX_LOG_TARGET_DEBUG);
    (void)printf("log_line [FILE:probes_test.c][LINE:7] traced %" PRId32 "\nlog_written 1\n", iResult);
}

int main(void) {
    (void)setvbuf(stdout, NULL, _IOLBF, 0);
    (void)VYX_Init();
    (void)VYX_SemCreate(&s_hDone, 0);
    (void)puts("ready\nstart 1");
    (void)getchar();
    Sync();
    Events();
    Pools();
    Queue();
    Timer();
    Log();
    (void)puts("stop 0");
    (void)getchar();
    (void)VYX_SemDestroy(&s_hDone);
    return VYX_Fini();
}
