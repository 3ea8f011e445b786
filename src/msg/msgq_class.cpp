// vyx::vyx_msgq: pointers in the order they came.
//
// Its semaphore never blocks anybody: its wait answers at once that there is none on this platform. So a getq
// looks for a pointer again and again.
#include <new>
#include <thread>
#include <vyx/msg.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/time.h>

namespace vyx {

// Programs built with another release rely on it: behind the class's table of functions lie its three members.
static_assert(sizeof(vyx_msgq) ==
              sizeof(void *) + sizeof(vyx_recursive_mutex) + sizeof(vyx_sem) + sizeof(void *));

namespace {

constexpr uint32_t kQuickLooks = 64; // looks with no more than a yield between them
constexpr uint32_t kPause = 50;      // microseconds between later ones

class Hold {
  public:
    explicit Hold(vyx_recursive_mutex &mutex) : m_mutex(mutex) { (void)m_mutex.lock(); }
    ~Hold() { (void)m_mutex.unlock(); }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

  private:
    vyx_recursive_mutex &m_mutex;
};

void Pause_Local(uint32_t nLook) {
    if (nLook < kQuickLooks)
        std::this_thread::yield();
    else
        (void)VYX_USleep(kPause);
}

} // namespace

vyx_msgq::vyx_msgq() : m_pQueue(nullptr) {
    (void)init();
}

vyx_msgq::~vyx_msgq() {
    (void)destroy();
}

int vyx_msgq::init() {
    using Queue = std::queue<VYX_MSG_BLOCK_T *, std::deque<VYX_MSG_BLOCK_T *>>;
    Queue *pQueue = nullptr;
    try {
        pQueue = new (std::nothrow) Queue();
    } catch (const std::bad_alloc &) { // the deque's own first block
    }
    if (pQueue == nullptr)
        return VYX_ERROR;
    {
        const Hold hold(m_mutex);
        std::swap(m_pQueue, pQueue);
    }
    delete pQueue;
    return VYX_OK;
}

int vyx_msgq::destroy() {
    const Hold hold(m_mutex);
    delete m_pQueue;
    m_pQueue = nullptr;
    return VYX_OK;
}

int vyx_msgq::reset() {
    const Hold hold(m_mutex);
    if (m_pQueue == nullptr)
        return VYX_OK;
    while (!m_pQueue->empty())
        m_pQueue->pop();
    return VYX_OK;
}

int vyx_msgq::putq(VYX_MSG_BLOCK_T *block) {
    if (block == nullptr)
        return VYX_ERROR;
    const Hold hold(m_mutex);
    if (m_pQueue == nullptr)
        return VYX_ERROR;
    m_pQueue->push(block); // a std::bad_alloc passes on to the caller
    (void)m_sem.post_1();
    return VYX_OK;
}

int vyx_msgq::getq(VYX_MSG_BLOCK_T **out, int timeout) {
    if (out == nullptr)
        return VYX_ERROR;
    int64_t iRemaining = timeout;
    for (uint32_t nLook = 0;; ++nLook) {
        const vyx_time_tick start;
        if (m_sem.wait(static_cast<int>(iRemaining)) == VYX_ERROR)
            return VYX_ERROR;
        {
            const Hold hold(m_mutex);
            if (m_pQueue == nullptr)
                return VYX_ERROR;
            if (!m_pQueue->empty()) {
                *out = m_pQueue->front();
                m_pQueue->pop();
                return VYX_OK;
            }
        }
        if (timeout != -1) {
            // Deliberate: the length of each look is rounded on its own, so looks shorter than half a millisecond do
            // not use up the time-out. Pinned by MsgqClass.QuickLooksUseUpNoTime.
            const vyx_time_tick now;
            iRemaining -= vyx_time_tick::us2ms(now.get_time() - start.get_time());
            if (iRemaining < 1)
                return VYX_ERROR;
        }
        Pause_Local(nLook);
    }
}

} // namespace vyx
