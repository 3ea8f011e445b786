// Formatted time as the platform makes it, once the directives that are the library's own are replaced.
#ifndef VYX_TESTS_TIME_FORMAT_MODEL_H
#define VYX_TESTS_TIME_FORMAT_MODEL_H

#include <cstdio>
#include <ctime>
#include <string>
#include <tuple>
#include <vyx/time.h>

namespace support {

inline struct tm PlatformFields(const VYX_TIME_EXP_T &f) {
    struct tm platform = {};
    std::tie(platform.tm_sec, platform.tm_min, platform.tm_hour, platform.tm_mday) =
        std::tie(f.tm_sec, f.tm_min, f.tm_hour, f.tm_mday);
    std::tie(platform.tm_mon, platform.tm_year, platform.tm_wday, platform.tm_yday, platform.tm_isdst) =
        std::tie(f.tm_mon, f.tm_year, f.tm_wday, f.tm_yday, f.tm_isdst);
    return platform;
}

// "" where it does not fit.
inline std::string FormattedTime(const std::string &format, size_t nMax, const VYX_TIME_EXP_T &fields) {
    std::string replaced;
    for (size_t i = 0; i < format.size(); ++i) {
        const char cDirective = format[i] == '%' && i + 1 < format.size() ? format[++i] : '\0';
        char szNumber[24] = {'%', cDirective, '\0'};
        if (cDirective == 'C')
            (void)snprintf(szNumber, sizeof szNumber, "%2lld", (fields.tm_year + 1970LL) / 100);
        if (cDirective == 'e')
            (void)snprintf(szNumber, sizeof szNumber, "%2d", fields.tm_mday);
        replaced += cDirective == '\0'  ? std::string(1, format[i])
                    : cDirective == 'D' ? "%m/%d/%y"
                    : cDirective == 'R' ? "%H:%M"
                    : cDirective == 'T' ? "%H:%M:%S"
                    : cDirective == 'r' ? "%I:%M:%S %p"
                                        : szNumber;
    }
    const size_t nSignAtTheEnd =
        !format.empty() && (format.size() - format.find_last_not_of('%')) % 2 == 0 ? 1 : 0;
    if (replaced.size() + nSignAtTheEnd >= nMax)
        return "";
    std::string text(nMax, '\0');
    const struct tm platform = PlatformFields(fields);
    text.resize(strftime(&text[0], nMax, replaced.c_str(), &platform));
    return text;
}

} // namespace support

#endif
