// Queue: two senders, two receivers, priorities. Every message arrives once, each sender's in order for one priority, and
// long before a receiver's time is out.
#include <atomic>

#include "scenario.h"

static VYX_HANDLE_MSGQ s_queue;
static std::atomic<int> s_got[4];

static void Send(int sender, int priority) {
    static thread_local VYX_MSG_BLOCK_T block;
    for (int i = 0; i < 2; i++) {
        block.iMsgType = sender * 2 + i;
        block.iPriority = priority;
        block.iDataLen = 1;
        block.szData[0] = static_cast<char>(sender * 2 + i);
        CHECK(VYX_MsgQSendEx(s_queue, &block) == VYX_OK);
    }
}

static void Receive() {
    static thread_local VYX_MSG_BLOCK_T block;
    int last[2] = {-1, -1};
    for (int i = 0; i < 2; i++) {
        block.iDataLen = VYX_MSG_DATA_SIZE;
        CHECK(VYX_MsgQReceiveEx(s_queue, &block, 1000) == VYX_OK);
        CHECK(block.iMsgType >= 0 && block.iMsgType < 4 && block.iDataLen == 1 &&
              block.szData[0] == block.iMsgType);
        CHECK(last[block.iMsgType / 2] < block.iMsgType);
        last[block.iMsgType / 2] = block.iMsgType;
        s_got[block.iMsgType]++;
    }
}

int main() {
    CHECK(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&s_queue) == VYX_OK);
    {
        Runner first(Receive);
        Runner second(Receive);
        Runner low([] { Send(0, 1); });
        Runner high([] { Send(1, 2); });
    }
    for (const std::atomic<int> &got : s_got)
        CHECK(got == 1);
    CHECK(VYX_MsgQDestroyEx(s_queue) == VYX_OK && VYX_Fini() == VYX_OK);
}
