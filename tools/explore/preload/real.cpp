#include "real.h"

#include <cstddef>
#include <cstring>
#include <dlfcn.h>

namespace explore {
namespace {

Real s_real;
bool s_found; // set by the first call, before the process has a second thread

const char *const kNames[] = {
#define EXPLORE_NAME(name) #name,
    EXPLORE_REAL(EXPLORE_NAME)
#undef EXPLORE_NAME
};
constexpr size_t kCount = sizeof kNames / sizeof *kNames;
static_assert(sizeof s_real == kCount * sizeof(void *), "one pointer for each name, in the same order");

} // namespace

const Real &GetReal() {
    if (__builtin_expect(s_found, true))
        return s_real;
    void *functions[kCount];
    for (size_t i = 0; i < kCount; i++)
        functions[i] = dlsym(RTLD_NEXT, kNames[i]);
    memcpy(&s_real, functions, sizeof s_real);
    s_found = true;
    return s_real;
}

} // namespace explore
