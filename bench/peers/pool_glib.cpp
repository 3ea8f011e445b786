#include <glib.h>

#include "pool_bench.h"

namespace {

class GlibPool {
  public:
    explicit GlibPool(int nWorkers)
        : m_pPool(g_thread_pool_new([](gpointer pWork, gpointer) { static_cast<PoolWork *>(pWork)->Run(); },
                                    nullptr, nWorkers, TRUE, nullptr)) {}
    ~GlibPool() { g_thread_pool_free(m_pPool, FALSE, TRUE); }
    GlibPool(const GlibPool &) = delete;
    GlibPool &operator=(const GlibPool &) = delete;

    void Submit(PoolWork *pWork) { (void)g_thread_pool_push(m_pPool, pWork, nullptr); }
    void Drain() {}

  private:
    GThreadPool *m_pPool;
};

const int kRegistered = RegisterPeer<GlibPool>("glib");

} // namespace
