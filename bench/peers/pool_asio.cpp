#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include "pool_bench.h"

namespace {

class AsioPool {
  public:
    explicit AsioPool(int nWorkers) : m_pool(static_cast<size_t>(nWorkers)) {}
    void Submit(PoolWork *pWork) {
        boost::asio::post(m_pool, [pWork] { pWork->Run(); });
    }
    void Drain() {}

  private:
    boost::asio::thread_pool m_pool;
};

const int kRegistered = RegisterPeer<AsioPool>("boost_asio");

} // namespace
