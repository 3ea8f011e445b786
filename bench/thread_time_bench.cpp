// Threads and the clock beside the POSIX calls they rest on.
#include <pthread.h>
#include <sys/time.h>
#include <vector>

#include <vyx/thread.h>
#include <vyx/time.h>

#include "support/bench.h"

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

} // namespace

int main(int argc, char **argv) {
    bench::Compare("thread_create_join",
                   {{"raw", CreateJoin<RawCreateJoin>, 1.10}, {"vyx", CreateJoin<VyxCreateJoin>}},
                   bench::ByHand);
    bench::Compare("time_now", {{"raw", RawTimeNow, 1.10}, {"vyx", VyxTimeNow}});
    return bench::Run(argc, argv);
}
