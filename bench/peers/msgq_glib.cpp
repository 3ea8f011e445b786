// GLib's asynchronous queue: kept sorted, and plain, which knows no priorities.
#include <glib.h>

#include "msgq_bench.h"

namespace {

template <bool Sorted>
class GlibQueue {
  public:
    GlibQueue() : m_pQueue(g_async_queue_new()) {}
    ~GlibQueue() { g_async_queue_unref(m_pQueue); }
    GlibQueue(const GlibQueue &) = delete;
    GlibQueue &operator=(const GlibQueue &) = delete;

    void Send(const Message &message) {
        if (Sorted)
            g_async_queue_push_sorted(m_pQueue, new Message(message), &Compare, nullptr);
        else
            g_async_queue_push(m_pQueue, new Message(message));
    }
    void Receive(Message &message) {
        auto *pMessage = static_cast<Message *>(g_async_queue_pop(m_pQueue));
        message = *pMessage;
        delete pMessage;
    }

  private:
    // Below 0: the first one is received earlier.
    static gint Compare(gconstpointer pOne, gconstpointer pOther, gpointer /*pIgnored*/) {
        const int32_t iOne = static_cast<const Message *>(pOne)->iPriority;
        const int32_t iOther = static_cast<const Message *>(pOther)->iPriority;
        return static_cast<gint>(iOne < iOther) - static_cast<gint>(iOne > iOther);
    }

    GAsyncQueue *m_pQueue;
};

const int kRegistered = RegisterMessagesThrough<GlibQueue<true>>("glib", 1.0) +
                        RegisterMessagesThrough<GlibQueue<false>>("glib_plain", 1.0);

} // namespace
