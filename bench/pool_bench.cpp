// Both pools of libvyx; the peers found at build time are in files of their own.
#include <pthread.h>
#include <utility>

#include <vyx/vyx.h>

#include "pool_bench.h"

namespace {

class FixedPool {
  public:
    explicit FixedPool(int nWorkers)
        : m_hPool(VYX_ThreadPool_Create(static_cast<uint32_t>(nWorkers), static_cast<uint32_t>(nWorkers))) {}
    ~FixedPool() { (void)VYX_ThreadPool_Destroy(m_hPool); }
    FixedPool(const FixedPool &) = delete;
    FixedPool &operator=(const FixedPool &) = delete;

    void Submit(PoolWork *pWork) {
        (void)VYX_ThreadPool_WorkEx(
            m_hPool,
            [](void *pParam) -> void * {
                static_cast<PoolWork *>(pParam)->Run();
                return nullptr;
            },
            pWork, 1);
    }
    void Drain() {}

  private:
    VYX_HANDLE_THREADPOOL m_hPool;
};

class FlexPool {
  public:
    explicit FlexPool(int nWorkers)
        : m_hPool(VYX_ThreadPoolFlex_Create(
              nWorkers, -1, [](void *pWork) { static_cast<PoolWork *>(pWork)->Run(); }, 0)) {}
    ~FlexPool() { (void)VYX_ThreadPoolFlex_Destroy(m_hPool); }
    FlexPool(const FlexPool &) = delete;
    FlexPool &operator=(const FlexPool &) = delete;

    void Submit(PoolWork *pWork) { (void)VYX_ThreadPoolFlex_Work(m_hPool, pWork); }
    void Drain() {}

  private:
    VYX_HANDLE_THREADPOOLFLEX m_hPool;
};

// The least there is: threads that sleep on a condition, and a place for one item.
class OneByHand {
  public:
    explicit OneByHand(int nWorkers) {
        for (int n = 0; n < nWorkers; ++n)
            m_threads.emplace_back([this] { Run(); });
    }
    ~OneByHand() {
        (void)pthread_mutex_lock(&m_hMutex);
        m_bStop = true;
        (void)pthread_mutex_unlock(&m_hMutex);
        (void)pthread_cond_broadcast(&m_hCond);
        for (std::thread &thread : m_threads)
            thread.join();
    }
    OneByHand(const OneByHand &) = delete;
    OneByHand &operator=(const OneByHand &) = delete;

    void Submit(PoolWork *pWork) {
        (void)pthread_mutex_lock(&m_hMutex);
        m_pWork = pWork;
        (void)pthread_mutex_unlock(&m_hMutex);
        (void)pthread_cond_signal(&m_hCond);
    }
    void Drain() {}

  private:
    void Run() {
        (void)pthread_mutex_lock(&m_hMutex);
        while (!m_bStop) {
            if (m_pWork == nullptr) {
                (void)pthread_cond_wait(&m_hCond, &m_hMutex);
                continue;
            }
            PoolWork *pWork = std::exchange(m_pWork, nullptr);
            (void)pthread_mutex_unlock(&m_hMutex);
            pWork->Run();
            (void)pthread_mutex_lock(&m_hMutex);
        }
        (void)pthread_mutex_unlock(&m_hMutex);
    }

    pthread_mutex_t m_hMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_hCond = PTHREAD_COND_INITIALIZER;
    PoolWork *m_pWork = nullptr; // these two under the mutex
    bool m_bStop = false;
    std::vector<std::thread> m_threads; // last, as they use all of the above
};

} // namespace

int main(int argc, char **argv) {
    const std::vector<int64_t> workers = {1, 2, 8};
    RegisterItems("pool_items", "vyx", PoolItems<FlexPool, false>, workers, 0);
    RegisterItems("pool_items_without_queue", "vyx", PoolItems<FixedPool, false>, workers, 0);
    RegisterHandOver<FlexPool>("vyx_flexible", 0);
    RegisterHandOver<FixedPool>("vyx_fixed", 0);
    RegisterHandOver<OneByHand>("raw", 0);
    return bench::Run(argc, argv);
}
