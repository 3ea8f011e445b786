// Threads, the clock and the calendar beside the POSIX calls they rest on.
#include <ctime>
#include <pthread.h>
#include <sys/time.h>
#include <vector>

#include <vyx/thread.h>
#include <vyx/time.h>

#include "thread_time_bench.h"

namespace {

void *Nothing(void *pParam) {
    return pParam;
}

bool RawCreateJoin() {
    pthread_t hThread;
    return pthread_create(&hThread, nullptr, Nothing, nullptr) == 0 && pthread_join(hThread, nullptr) == 0;
}

bool VyxCreateJoin() {
    const VYX_THREAD_T hThread = VYX_Thread_Create(Nothing, nullptr, 0, 0, 0, 0);
    return hThread != VYX_INVALID_THREAD && VYX_Thread_Wait(hThread) == VYX_OK;
}

template <bool (*pfnCreateJoin)()>
void CreateJoin(benchmark::State &state) {
    std::vector<double> samples;
    for (auto _ : state) {
        for (int i = 0; i < 500; ++i) {
            const auto start = bench::Clock::now();
            if (!pfnCreateJoin())
                return state.SkipWithError("no thread");
            samples.push_back(bench::MicrosecondsSince(start));
        }
        bench::TimeOfMedian(state, samples);
    }
}

// Makes the call's two numbers one, as VYX_TimeNow does.
void RawTimeNow(benchmark::State &state) {
    for (auto _ : state) {
        struct timeval now;
        (void)gettimeofday(&now, nullptr);
        benchmark::DoNotOptimize(now.tv_sec * 1000000 + now.tv_usec);
    }
}

void VyxTimeNow(benchmark::State &state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(VYX_TimeNow());
}

void RawCTime(char *szText, int64_t iMillis) {
    const auto tSeconds = static_cast<time_t>(iMillis / 1000);
    (void)ctime_r(&tSeconds, szText);
}

void VyxCTime(char *szText, int64_t iMillis) {
    (void)VYX_CTime(szText, iMillis * 1000);
}

constexpr char kFormat[] = "%Y-%m-%d %H:%M:%S";

void RawFormat(benchmark::State &state) {
    struct tm fields = {};
    fields.tm_year = 126;
    fields.tm_mday = 5;
    char szText[64];
    for (auto _ : state)
        benchmark::DoNotOptimize(strftime(szText, sizeof szText, kFormat, &fields));
}

void VyxFormat(benchmark::State &state) {
    VYX_TIME_EXP_T fields = {};
    fields.tm_year = 126;
    fields.tm_mday = 5;
    char szText[64];
    uint32_t nLength = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(VYX_StrFmtTime(szText, &nLength, sizeof szText, kFormat, &fields));
}

} // namespace

int main(int argc, char **argv) {
    bench::Compare("thread_create_join",
                   {{"raw", CreateJoin<RawCreateJoin>, 1.10}, {"vyx", CreateJoin<VyxCreateJoin>}},
                   bench::ByHand);
    bench::Compare("time_now", {{"raw", RawTimeNow, 1.10}, {"vyx", VyxTimeNow}});
    bench::Compare("ctime",
                   {{"raw", CTime<BenchZone::Set, RawCTime>, 0.6}, {"vyx", CTime<BenchZone::Set, VyxCTime>}});
    bench::Compare("ctime_no_tz", {{"raw", CTime<BenchZone::Unset, RawCTime>, 0.6},
                                   {"vyx", CTime<BenchZone::Unset, VyxCTime>}});
    bench::Compare("strftime", {{"raw", RawFormat, 1.0}, {"vyx", VyxFormat}});
    return bench::Run(argc, argv);
}
