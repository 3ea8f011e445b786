// Both pools of libvyx; the peers found at build time are in files of their own.
#include <vyx/vyx.h>

#include "pool_bench.h"

namespace {

struct Started {
    Started() { (void)VYX_Init(); }
    ~Started() { (void)VYX_Fini(); }
};
const Started kStarted;

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

template <int32_t IdleTimeOut>
class FlexPool {
  public:
    explicit FlexPool(int nWorkers)
        : m_hPool(VYX_ThreadPoolFlex_Create(
              nWorkers, IdleTimeOut, [](void *pWork) { static_cast<PoolWork *>(pWork)->Run(); }, 0)) {}
    ~FlexPool() { (void)VYX_ThreadPoolFlex_Destroy(m_hPool); }
    FlexPool(const FlexPool &) = delete;
    FlexPool &operator=(const FlexPool &) = delete;

    void Submit(PoolWork *pWork) { (void)VYX_ThreadPoolFlex_Work(m_hPool, pWork); }
    void Drain() {}

  private:
    VYX_HANDLE_THREADPOOLFLEX m_hPool;
};

const int kRegistered = RegisterPool<FixedPool>("vyx_fixed") + RegisterPool<FlexPool<-1>>("vyx_flex") +
                        RegisterPool<FlexPool<1000>>("vyx_flex_1s_limit");

} // namespace

BENCHMARK_MAIN();
