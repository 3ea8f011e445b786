#include "real.h"

#include <dlfcn.h>

namespace explore {
namespace {

Real s_real;
bool s_found; // set by the first call, before the process has a second thread

template <class T>
void Find(T &function, const char *name) {
    function = reinterpret_cast<T>(dlsym(RTLD_NEXT, name)); // NOLINT: what dlsym is for
}

} // namespace

const Real &GetReal() {
    if (!__builtin_expect(s_found, true)) {
#define EXPLORE_FIND(name) Find(s_real.name, #name);
        EXPLORE_REAL(EXPLORE_FIND)
#undef EXPLORE_FIND
        s_found = true;
    }
    return s_real;
}

} // namespace explore
