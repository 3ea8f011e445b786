// Numbers to text and back by the rules written once more.
#ifndef VYX_TESTS_STRING_NUMBER_MODEL_H
#define VYX_TESTS_STRING_NUMBER_MODEL_H

#include <cctype>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace support {

// A plain printer of values that are not negative.
inline std::string Digits(uint64_t nValue, uint32_t nRadix) {
    std::string text;
    do {
        text.insert(text.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[nValue % nRadix]);
    } while ((nValue /= nRadix) != 0);
    return text;
}

// The rules for reading, digit by digit; what wraps does so in Unsigned.
template <class Signed, class Unsigned>
Signed NumberIn(const char *szText, uint32_t nBase, const char **ppEnd) {
    const char *p = szText;
    *ppEnd = szText;
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
    const char *const szDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
    Signed iValue = 0;
    bool bOverflow = false;
    for (; *p != '\0'; *ppEnd = ++p) {
        const char *pDigit = std::strchr(szDigits, std::tolower(*p));
        const auto nDigit = static_cast<Unsigned>(pDigit == nullptr ? 99 : pDigit - szDigits);
        if (nDigit > nBase)
            break;
        const auto nProduct = static_cast<Unsigned>(static_cast<Unsigned>(iValue) * nBase);
        const auto iProduct = static_cast<Signed>(nProduct);
        const auto iNext = static_cast<Signed>(bNegative ? nProduct - nDigit : nProduct + nDigit);
        bOverflow = bOverflow ||
                    (bNegative ? iValue < iProduct || iValue < iNext : iValue > iProduct || iValue > iNext);
        if (!bOverflow)
            iValue = iNext;
    }
    if (!bOverflow)
        return iValue;
    return bNegative ? std::numeric_limits<Signed>::min() : std::numeric_limits<Signed>::max();
}

} // namespace support

#endif
