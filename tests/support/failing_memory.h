// Memory that runs out: every operator new of the program goes through failing_memory.cpp.
#ifndef VYX_TESTS_FAILING_MEMORY_H
#define VYX_TESTS_FAILING_MEMORY_H

#include <atomic>

namespace failing_memory {

// From the construction on, this thread gets `iLeft` more blocks and then none, until the end of the scope.
class Limit {
  public:
    explicit Limit(int iLeft);
    ~Limit();
    Limit(const Limit &) = delete;
    Limit &operator=(const Limit &) = delete;
};

// Whether no thread gets any block.
extern std::atomic<bool> g_bNone;

// Blocks that this thread has taken and not given back.
long Alive();

} // namespace failing_memory

#endif
