#include <apr_general.h>
#include <apr_thread_pool.h>

#include "pool_bench.h"

namespace {

class AprPool {
  public:
    explicit AprPool(int nWorkers) {
        (void)apr_initialize();
        (void)apr_pool_create(&m_pMemory, nullptr);
        const auto nThreads = static_cast<apr_size_t>(nWorkers);
        (void)apr_thread_pool_create(&m_pPool, nThreads, nThreads, m_pMemory);
    }
    ~AprPool() {
        (void)apr_thread_pool_destroy(m_pPool);
        apr_pool_destroy(m_pMemory);
        apr_terminate();
    }
    AprPool(const AprPool &) = delete;
    AprPool &operator=(const AprPool &) = delete;

    void Submit(PoolWork *pWork) { (void)apr_thread_pool_push(m_pPool, Run, pWork, 0, nullptr); }
    void Drain() {}

  private:
    static void *APR_THREAD_FUNC Run(apr_thread_t *, void *pWork) {
        static_cast<PoolWork *>(pWork)->Run();
        return nullptr;
    }
    apr_pool_t *m_pMemory = nullptr;
    apr_thread_pool_t *m_pPool = nullptr;
};

const int kRegistered = RegisterPeer<AprPool>("apr_util");

} // namespace
