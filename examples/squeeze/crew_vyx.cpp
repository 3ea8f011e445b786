// Over the library: a flexible pool compresses, and its priority queue brings the blocks back.
#include <cstring>
#include <vyx/frame.h>
#include <vyx/msg.h>
#include <vyx/pool.h>
#include <vyx/sys.h>

#include "crew.h"

namespace squeeze {

namespace {
constexpr int32_t kPointerBytes = sizeof(void *); // a message is a pointer to a block
}

struct Crew::Inside {
    bool started = false;
    VYX_HANDLE_THREADPOOLFLEX pool = nullptr;

    // The pool's handler gets one pointer only; there is one crew in a program.
    static VYX_HANDLE_MSGQ finished;
    static void Compress(void *data);
};
VYX_HANDLE_MSGQ Crew::Inside::finished;

void Crew::Inside::Compress(void *data) {
    auto *block = static_cast<Block *>(data);
    block->Compress();
    VYX_MSG_BLOCK_T message;
    message.iMsgType = 0;
    message.iPriority = -static_cast<int32_t>(block->number); // the lowest number first
    message.iDataLen = kPointerBytes;
    std::memcpy(message.szData, &block, kPointerBytes);
    while (VYX_MsgQSendEx(finished, &message) != VYX_OK) // memory is short: the others give some back
        (void)VYX_Sleep(1);
}

Crew::Crew() : m_inside(std::make_unique<Inside>()) {}

Crew::~Crew() {
    (void)VYX_ThreadPoolFlex_Destroy(m_inside->pool);
    if (m_inside->started)
        (void)VYX_Fini(); // destroys the queue
}

int Crew::Processors() {
    return VYX_GetCPUNumber();
}

bool Crew::Start(int threads) {
    m_inside->started = VYX_Init() == VYX_OK;
    if (!m_inside->started || VYX_MsgQCreateEx(&Inside::finished) != VYX_OK)
        return false;
    m_inside->pool = VYX_ThreadPoolFlex_Create(threads, -1, Inside::Compress, 0);
    return m_inside->pool != nullptr;
}

bool Crew::Give(Block *block) {
    return VYX_ThreadPoolFlex_Work(m_inside->pool, block) == VYX_OK;
}

Block *Crew::Take() {
    VYX_MSG_BLOCK_T message;
    message.iDataLen = VYX_MSG_DATA_SIZE;
    if (VYX_MsgQReceiveEx(Inside::finished, &message, -1) != VYX_OK)
        return nullptr;
    Block *block = nullptr;
    std::memcpy(&block, message.szData, kPointerBytes);
    return block;
}

} // namespace squeeze
