#include <apr_general.h>
#include <apr_hash.h>

#include "container_bench.h"

namespace {

class AprTable {
  public:
    AprTable() {
        (void)apr_initialize();
        (void)apr_pool_create(&m_pMemory, nullptr);
        m_pTable = apr_hash_make(m_pMemory);
    }
    ~AprTable() {
        apr_pool_destroy(m_pMemory);
        apr_terminate();
    }
    AprTable(const AprTable &) = delete;
    AprTable &operator=(const AprTable &) = delete;

  protected:
    apr_pool_t *m_pMemory = nullptr;
    apr_hash_t *m_pTable = nullptr;
};

class AprText : AprTable {
  public:
    void Enter(const char *szKey, void *pData) { apr_hash_set(m_pTable, szKey, APR_HASH_KEY_STRING, pData); }
    void *Find(const char *szKey) { return apr_hash_get(m_pTable, szKey, APR_HASH_KEY_STRING); }
};

// Keys are kept by address.
class AprInt : AprTable {
  public:
    AprInt() { m_keys.reserve(kKeys); }
    void Enter(uint32_t nKey, void *pData) {
        m_keys.push_back(nKey);
        apr_hash_set(m_pTable, &m_keys.back(), sizeof nKey, pData);
    }
    void *Find(uint32_t nKey) { return apr_hash_get(m_pTable, &nKey, sizeof nKey); }

  private:
    std::vector<uint32_t> m_keys;
};

const int kText = RegisterTable<AprText, const char *>("apr");
const int kInt = RegisterTable<AprInt, uint32_t>("apr");

} // namespace
