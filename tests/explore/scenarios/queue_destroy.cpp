// Queue: it is destroyed while others send and receive, one of them without limit; all come back, and the place can be
// used again.
#include "scenario.h"

int main() {
    VYX_HANDLE_MSGQ queue;
    CHECK(VYX_Init() == VYX_OK && VYX_MsgQCreateEx(&queue) == VYX_OK);
    {
        const auto receive = [&](int32_t limit) {
            static thread_local VYX_MSG_BLOCK_T block;
            block.iDataLen = VYX_MSG_DATA_SIZE;
            if (VYX_MsgQReceiveEx(queue, &block, limit) == VYX_OK)
                CHECK(block.iMsgType == 7 && block.iDataLen == 0);
        };
        Runner patient([&] { receive(-1); });
        Runner bounded([&] { receive(10); });
        Runner sender([&] {
            static VYX_MSG_BLOCK_T block;
            block.iMsgType = 7;
            (void)VYX_MsgQSendEx(queue, &block);
        });
        Runner destroyer([&] { CHECK(VYX_MsgQDestroyEx(queue) == VYX_OK); });
    }
    CHECK(VYX_MsgQCreateEx(&queue) == VYX_OK);
    static VYX_MSG_BLOCK_T block;
    block.iDataLen = VYX_MSG_DATA_SIZE;
    CHECK(VYX_MsgQReceiveEx(queue, &block, 1) == VYX_ERROR); // nothing of before is left
    CHECK(VYX_MsgQDestroyEx(queue) == VYX_OK && VYX_Fini() == VYX_OK);
}
