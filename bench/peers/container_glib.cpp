#include <glib.h>

#include "container_bench.h"

namespace {

class GlibTable {
  public:
    GlibTable(GHashFunc pfnHash, GEqualFunc pfnEqual) : m_pTable(g_hash_table_new(pfnHash, pfnEqual)) {}
    ~GlibTable() { g_hash_table_destroy(m_pTable); }
    GlibTable(const GlibTable &) = delete;
    GlibTable &operator=(const GlibTable &) = delete;

  protected:
    GHashTable *m_pTable;
};

class GlibText : GlibTable {
  public:
    GlibText() : GlibTable(g_str_hash, g_str_equal) {}
    void Enter(const char *szKey, void *pData) {
        g_hash_table_insert(m_pTable, const_cast<char *>(szKey), pData);
    }
    void *Find(const char *szKey) { return g_hash_table_lookup(m_pTable, szKey); }
};

class GlibInt : GlibTable {
  public:
    GlibInt() : GlibTable(g_direct_hash, g_direct_equal) {}
    void Enter(uint32_t nKey, void *pData) { g_hash_table_insert(m_pTable, GUINT_TO_POINTER(nKey), pData); }
    void *Find(uint32_t nKey) { return g_hash_table_lookup(m_pTable, GUINT_TO_POINTER(nKey)); }
};

const int kText = RegisterTable<GlibText, const char *>("glib");
const int kInt = RegisterTable<GlibInt, uint32_t>("glib");
const int kTextSizes = RegisterSizes<GlibText, const char *>("glib");
const int kIntSizes = RegisterSizes<GlibInt, uint32_t>("glib");

} // namespace
