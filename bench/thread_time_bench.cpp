// Threads and the clock beside the POSIX calls they rest on.
#include <pthread.h>
#include <sys/time.h>

#include <vyx/thread.h>
#include <vyx/time.h>

#include "support/bench.h"

namespace {

void *Nothing(void *pParam) {
    return pParam;
}

void RawCreateJoin(benchmark::State &state) {
    for (auto _ : state) {
        pthread_t hThread;
        if (pthread_create(&hThread, nullptr, Nothing, nullptr) != 0)
            return state.SkipWithError("no thread");
        benchmark::DoNotOptimize(pthread_join(hThread, nullptr));
    }
}

void VyxCreateJoin(benchmark::State &state) {
    for (auto _ : state) {
        const VYX_THREAD_T hThread = VYX_Thread_Create(Nothing, nullptr, 0, 0, 0, 0);
        if (hThread == VYX_INVALID_THREAD)
            return state.SkipWithError("no thread");
        benchmark::DoNotOptimize(VYX_Thread_Wait(hThread));
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
    bench::Compare("thread_create_join", {{"raw", RawCreateJoin, 1.10}, {"vyx", VyxCreateJoin}},
                   bench::WallClock);
    bench::Compare("time_now", {{"raw", RawTimeNow, 1.10}, {"vyx", VyxTimeNow}});
    return bench::Run(argc, argv);
}
