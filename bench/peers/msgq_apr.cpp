// APR's bounded queue of pointers, which knows no priorities.
#include <apr_general.h>
#include <apr_queue.h>

#include "msgq_bench.h"

namespace {

class AprQueue {
  public:
    AprQueue() {
        (void)apr_initialize();
        (void)apr_pool_create(&m_pMemory, nullptr);
        (void)apr_queue_create(&m_pQueue, kRoom, m_pMemory);
    }
    ~AprQueue() {
        apr_pool_destroy(m_pMemory);
        apr_terminate();
    }
    AprQueue(const AprQueue &) = delete;
    AprQueue &operator=(const AprQueue &) = delete;

    void Send(const Message &message) {
        if (apr_queue_push(m_pQueue, new Message(message)) != APR_SUCCESS)
            std::abort();
    }
    void Receive(Message &message) {
        void *pMessage = nullptr;
        apr_status_t iStatus = APR_EINTR; // also when another receiver took what this one was woken for
        while (iStatus == APR_EINTR)
            iStatus = apr_queue_pop(m_pQueue, &pMessage);
        if (iStatus != APR_SUCCESS)
            std::abort();
        message = *static_cast<Message *>(pMessage);
        delete static_cast<Message *>(pMessage);
    }

  private:
    static constexpr unsigned int kRoom = 64000; // for a whole batch

    apr_pool_t *m_pMemory = nullptr;
    apr_queue_t *m_pQueue = nullptr;
};

const int kRegistered = RegisterMessagesThrough<AprQueue>("apr", 1.0);

} // namespace
