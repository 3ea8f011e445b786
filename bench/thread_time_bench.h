// What the sides of the calendar's cases share.
#ifndef VYX_BENCH_THREAD_TIME_BENCH_H
#define VYX_BENCH_THREAD_TIME_BENCH_H

#include <cstdint>
#include <cstdlib>

#include "support/bench.h"

enum class BenchZone : uint8_t { Set, Unset };

// One iteration: the text of a time. The times are those of a log that has a line each millisecond.
template <BenchZone eZone, void (*pfnText)(char *szText, int64_t iMillis)>
void CTime(benchmark::State &state) {
    if (eZone == BenchZone::Set)
        (void)setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    else
        (void)unsetenv("TZ");
    char szText[32];
    int64_t iMillis = int64_t{1784116800} * 1000;
    for (auto _ : state) {
        pfnText(szText, ++iMillis);
        benchmark::DoNotOptimize(szText[18]);
    }
}

#endif
