// Its pool is one for the process, and its first use fixes the number of threads: two here. Only the loop's thread
// may submit.
#include <cstdlib>

#include <uv.h>

#include "pool_bench.h"

namespace {

class UvPool {
  public:
    explicit UvPool(int) {
        (void)setenv("UV_THREADPOOL_SIZE", "2", 1);
        (void)uv_loop_init(&m_loop);
    }
    ~UvPool() {
        (void)uv_run(&m_loop, UV_RUN_DEFAULT);
        (void)uv_loop_close(&m_loop);
    }
    UvPool(const UvPool &) = delete;
    UvPool &operator=(const UvPool &) = delete;

    void Submit(PoolWork *pWork) {
        auto *pRequest = new uv_work_t;
        pRequest->data = pWork;
        (void)uv_queue_work(
            &m_loop, pRequest, [](uv_work_t *pDone) { static_cast<PoolWork *>(pDone->data)->Run(); },
            [](uv_work_t *pDone, int) { delete pDone; });
    }
    void Drain() { (void)uv_run(&m_loop, UV_RUN_DEFAULT); }

  private:
    uv_loop_t m_loop;
};

const int kRegistered = RegisterPeer<UvPool>("libuv", {2});

} // namespace
