// The rules by which numbers become texts, and texts numbers.
#ifndef VYX_FUZZ_NUMBER_MODEL_H_
#define VYX_FUZZ_NUMBER_MODEL_H_

#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

namespace fuzz {

// What a number becomes in a radix; in all but radix 10 a negative one is a single character below '0', and so is what
// follows the sign of the lowest.
template <class Signed>
std::string TextOf(Signed iValue, uint32_t nRadix) {
    char szText[66] = {};
    if (iValue >= 0 || (nRadix == 10 && iValue != std::numeric_limits<Signed>::min()))
        std::to_chars(szText, szText + sizeof szText, iValue, static_cast<int>(nRadix));
    else
        szText[nRadix == 10 ? 1 : 0] = static_cast<char>('0' + iValue % static_cast<Signed>(nRadix));
    if (nRadix == 10 && iValue < 0)
        szText[0] = '-';
    return szText;
}

// The rules for reading, digit by digit; what wraps does so in Unsigned. A digit may equal the base.
template <class Signed>
Signed NumberIn(const char *p, uint32_t nBase, const char **ppEnd) {
    using Unsigned = std::make_unsigned_t<Signed>;
    *ppEnd = p;
    p += std::strspn(p, " \t\n\v\f\r");
    const bool bNegative = *p == '-';
    p += *p == '-' || *p == '+' ? 1 : 0;
    if ((nBase == 16 || nBase == 0) && p[0] == '0' && (p[1] | 32) == 'x') {
        p += 2;
        nBase = 16;
    } else if (nBase == 0) {
        nBase = *p == '0' ? 8 : 10;
    }
    if (nBase < 2 || nBase > 16)
        return 0;
    const std::string sDigits = "0123456789abcdefg";
    Signed iValue = 0;
    bool bOverflow = false;
    for (; *p != '\0'; *ppEnd = ++p) {
        const size_t nDigit = sDigits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(*p))));
        if (nDigit > nBase)
            break;
        const auto nProduct = static_cast<Unsigned>(iValue) * static_cast<Unsigned>(nBase);
        const auto iProduct = static_cast<Signed>(nProduct);
        const auto iNext = static_cast<Signed>(bNegative ? nProduct - nDigit : nProduct + nDigit);
        bOverflow = bOverflow ||
                    (bNegative ? iValue < iProduct || iValue < iNext : iValue > iProduct || iValue > iNext);
        iValue = bOverflow ? iValue : iNext;
    }
    using Limits = std::numeric_limits<Signed>;
    return !bOverflow ? iValue : bNegative ? Limits::min() : Limits::max();
}

} // namespace fuzz

#endif
