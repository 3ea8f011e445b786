#include <apr_file_info.h>
#include <apr_file_io.h>
#include <apr_general.h>

#include "file_bench.h"

namespace {

// The memory of one call.
class AprMemory {
  public:
    AprMemory() {
        (void)apr_initialize();
        (void)apr_pool_create(&m_pPool, nullptr);
    }
    ~AprMemory() {
        apr_pool_destroy(m_pPool);
        apr_terminate();
    }
    AprMemory(const AprMemory &) = delete;
    AprMemory &operator=(const AprMemory &) = delete;
    [[nodiscard]] apr_pool_t *Get() const { return m_pPool; }

  private:
    apr_pool_t *m_pPool = nullptr;
};

bool Copy(const char *szSource, const char *szTarget) {
    const AprMemory memory;
    return apr_file_copy(szSource, szTarget, APR_FPROT_FILE_SOURCE_PERMS, memory.Get()) == APR_SUCCESS;
}

Listing List(const char *szPath) {
    const AprMemory memory;
    Listing listing;
    apr_dir_t *pDir = nullptr;
    (void)apr_dir_open(&pDir, szPath, memory.Get());
    apr_finfo_t info;
    while (apr_dir_read(&info, APR_FINFO_NORM, pDir) == APR_SUCCESS) {
        if (info.filetype != APR_REG)
            continue;
        ++listing.nEntries;
        listing.nBytes += static_cast<uint64_t>(info.size);
    }
    (void)apr_dir_close(pDir);
    return listing;
}

const int kRegistered = [] {
    bench::Compare("copy_256m", {{"apr", FileCopy<Copy>, 1.1}}, [](auto *pBenchmark) {
        bench::ByHand(pBenchmark);
        pBenchmark->Unit(benchmark::kMillisecond);
    });
    bench::Compare("list_10k", {{"apr", FileList<List>, 1.1}},
                   [](auto *pBenchmark) { pBenchmark->Unit(benchmark::kMillisecond); });
    return 0;
}();

} // namespace
