#include <apr_time.h>

#include "thread_time_bench.h"

namespace {

void AprCTime(char *szText, int64_t iMillis) {
    (void)apr_ctime(szText, iMillis * 1000);
}

const int kRegistered = [] {
    bench::Compare("ctime", {{"apr", CTime<BenchZone::Set, AprCTime>, 1.2}});
    bench::Compare("ctime_no_tz", {{"apr", CTime<BenchZone::Unset, AprCTime>, 1.2}});
    return 0;
}();

} // namespace
