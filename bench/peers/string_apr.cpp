#include <apr_strings.h>

#include "string_bench.h"

namespace {

// Of its ways to print a number, the one that needs no memory pool.
const int kRegistered = [] {
    RegisterNumber("atoi64", "apr",
                   [](const Number &n) { benchmark::DoNotOptimize(apr_atoi64(n.szDecimal)); });
    RegisterNumber("strtoi64_hex", "apr", [](const Number &n) {
        char *pEnd = nullptr;
        benchmark::DoNotOptimize(apr_strtoi64(n.szHex, &pEnd, 16));
        benchmark::DoNotOptimize(pEnd);
    });
    RegisterNumber("ltoa", "apr", [](const Number &n) {
        static char s_szOut[32];
        benchmark::DoNotOptimize(apr_snprintf(s_szOut, sizeof s_szOut, "%" APR_INT64_T_FMT, n.iValue));
    });
    for (const size_t nLength : {size_t{8}, size_t{64}, size_t{1000}})
        RegisterCall("strcpy", "apr", nLength, [](const Texts &t) {
            static char s_szOut[1024];
            benchmark::DoNotOptimize(apr_cpystrn(s_szOut, t.a.c_str(), sizeof s_szOut));
        });
    return 0;
}();

} // namespace
