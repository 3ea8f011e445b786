#include <cstdlib>
#include <glib.h>

#include "string_bench.h"

namespace {

// Its case folding and its numbers know ASCII only, where the library follows the locale.
const int kRegistered = [] {
    for (const size_t nLength : {size_t{8}, size_t{64}, size_t{1000}}) {
        RegisterCall("strdup", "glib", nLength, [](const Texts &t) { g_free(g_strdup(t.a.c_str())); });
        RegisterCall("strcasecmp", "glib", nLength, [](const Texts &t) {
            benchmark::DoNotOptimize(g_ascii_strcasecmp(t.a.c_str(), t.almostA.c_str()));
        });
        RegisterCall("strcasecmp_other_case", "glib", nLength, [](const Texts &t) {
            benchmark::DoNotOptimize(g_ascii_strcasecmp(t.a.c_str(), t.upperA.c_str()));
        });
        RegisterCall("strstr", "glib", nLength,
                     [](const Texts &t) { benchmark::DoNotOptimize(g_strstr_len(t.a.c_str(), -1, "end!")); });
    }
    RegisterNumber("atoi64", "glib", [](const Number &n) {
        benchmark::DoNotOptimize(g_ascii_strtoll(n.szDecimal, nullptr, 10));
    });
    RegisterNumber("strtoi64_hex", "glib", [](const Number &n) {
        char *pEnd = nullptr;
        benchmark::DoNotOptimize(g_ascii_strtoll(n.szHex, &pEnd, 16));
        benchmark::DoNotOptimize(pEnd);
    });
    return 0;
}();

} // namespace
