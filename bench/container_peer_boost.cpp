#include <boost/unordered_map.hpp>

#include "container_bench.h"

namespace {

template <class Key, class Map>
class BoostTable {
  public:
    BoostTable() { m_map.reserve(kKeys); }
    void Enter(Key key, void *pData) { m_map.emplace(key, pData); }
    void *Find(Key key) {
        const auto at = m_map.find(key);
        return at == m_map.end() ? nullptr : at->second;
    }

  private:
    Map m_map;
};

using BoostText = BoostTable<const char *, boost::unordered_map<const char *, void *, TextHash, TextEqual>>;
using BoostInt = BoostTable<uint32_t, boost::unordered_map<uint32_t, void *>>;

const int kText = RegisterTable<BoostText, const char *>("boost");
const int kInt = RegisterTable<BoostInt, uint32_t>("boost");

} // namespace
