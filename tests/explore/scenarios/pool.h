// Items of a fixed pool, which count themselves.
#ifndef VYX_TESTS_POOL_H
#define VYX_TESTS_POOL_H

#include <atomic>

#include "scenario.h"

inline VYX_HANDLE_THREADPOOL g_pool;
inline std::atomic<int> g_accepted;
inline std::atomic<int> g_run;

inline void *Count(void *) {
    g_run++;
    return nullptr;
}

inline void Submit(void *(*item)(void *), int32_t wait) {
    g_accepted += VYX_ThreadPool_WorkEx(g_pool, item, nullptr, wait) == VYX_OK ? 1 : 0;
}

#endif
