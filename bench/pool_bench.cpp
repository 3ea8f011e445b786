// Both pools of libvyx; the peers found at build time are in files of their own.
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

} // namespace

int main(int argc, char **argv) {
    const std::vector<int64_t> workers = {1, 2, 8};
    RegisterItems("pool_items", "vyx", PoolItems<FlexPool, false>, workers, 0);
    RegisterItems("pool_items_without_queue", "vyx", PoolItems<FixedPool, false>, workers, 0);
    RegisterPoolCase("pool_hand_over", "vyx_flexible", PoolHandOver<FlexPool>, 0);
    RegisterPoolCase("pool_hand_over", "vyx_fixed", PoolHandOver<FixedPool>, 0);
    return bench::Run(argc, argv);
}
