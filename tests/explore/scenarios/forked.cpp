// A fork while other threads use the queue, an event and atomic operations: the child needs none of their locks, starts the
// library anew and uses it.
#include <sys/wait.h>
#include <unistd.h>

#include "scenario.h"

static VYX_HANDLE_MSGQ s_queue;
static VYX_EVENT s_event;
static uint32_t s_value;

static void Child() {
    alarm(20); // if it waits for a thread of the parent
    CHECK(VYX_AtomicInc(&s_value) == VYX_OK && VYX_CloseEvent(s_event) == VYX_TRUE);
    CHECK(VYX_Fini() == VYX_OK && VYX_Init() == VYX_OK);
    VYX_MUTEX_T mutex;
    CHECK(VYX_MutexCreate(&mutex, VYX_MUTEX_NORMAL) == VYX_OK && VYX_MutexLock(&mutex) == VYX_OK);
    CHECK(VYX_MutexUnlock(&mutex) == VYX_OK && VYX_MutexDestroy(&mutex) == VYX_OK);
    VYX_HANDLE_MSGQ queue = nullptr;
    static VYX_MSG_BLOCK_T block;
    CHECK(VYX_MsgQCreateEx(&queue) == VYX_OK && VYX_MsgQSendEx(queue, &block) == VYX_OK);
    block.iDataLen = VYX_MSG_DATA_SIZE;
    CHECK(VYX_MsgQReceiveEx(queue, &block, 0) == VYX_OK);
    CHECK(VYX_MsgQReceiveEx(queue, &block, 2) == VYX_ERROR); // nothing there: the time runs out
    CHECK(VYX_MsgQDestroyEx(queue) == VYX_OK && VYX_Fini() == VYX_OK);
    _exit(0);
}

int main() {
    s_event = VYX_CreateEvent(0);
    CHECK(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&s_queue) == VYX_OK);
    {
        Runner user([] {
            CHECK(VYX_AtomicInc(&s_value) == VYX_OK);
            CHECK(VYX_SetEvent(s_event) == VYX_TRUE && VYX_ResetEvent(s_event) == VYX_TRUE);
        });
        Runner receiver([] {
            static VYX_MSG_BLOCK_T block;
            block.iDataLen = VYX_MSG_DATA_SIZE;
            CHECK(VYX_MsgQReceiveEx(s_queue, &block, -1) == VYX_OK);
        });
        Runner sender([] {
            static VYX_MSG_BLOCK_T block;
            CHECK(VYX_MsgQSendEx(s_queue, &block) == VYX_OK);
        });
        Runner forker([] {
            const pid_t child = fork();
            CHECK(child >= 0);
            if (child == 0)
                Child();
            int status = -1;
            CHECK(waitpid(child, &status, 0) == child && status == 0);
        });
    }
    CHECK(VYX_CloseEvent(s_event) == VYX_TRUE && VYX_MsgQDestroyEx(s_queue) == VYX_OK &&
          VYX_Fini() == VYX_OK);
}
