// A fork while other threads use semaphores, the queue and the log: the child starts the library anew and uses it.
#include <sys/wait.h>
#include <unistd.h>

#include "scenario.h"

static VYX_HANDLE_MSGQ s_queue;

static void Child() {
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
    CHECK(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&s_queue) == VYX_OK);
    {
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
    CHECK(VYX_MsgQDestroyEx(s_queue) == VYX_OK && VYX_Fini() == VYX_OK);
}
