// Numbers to text and back, against the rules, the C library where it has the same ones, and the way back.
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <vyx/string.h>

#include "input.h"

namespace {

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

template <class Signed, class Print>
void PrintAndRead(Signed iValue, uint32_t nRadix, Print fnPrint) {
    const std::unique_ptr<char[]> pText(new char[sizeof iValue * 8 + 2]); // as many as the header asks for
    const bool bRadix = nRadix >= 2 && nRadix <= 36;
    REQUIRE(fnPrint(pText.get(), iValue, nRadix) == (bRadix ? pText.get() : nullptr));
    REQUIRE(!bRadix || pText.get() == TextOf(iValue, nRadix));
    if (nRadix == 10 ? iValue != std::numeric_limits<Signed>::min() : bRadix && nRadix <= 16 && iValue >= 0)
        REQUIRE(VYX_StrToi64(pText.get(), nullptr, nRadix) == iValue);
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

template <class Signed, class Read>
void ReadByTheRules(const char *szText, uint32_t nBase, Read fnRead) {
    const char *pExpected = nullptr;
    char *pEnd = nullptr;
    REQUIRE(fnRead(szText, &pEnd, nBase) == NumberIn<Signed>(szText, nBase, &pExpected));
    REQUIRE(pEnd == pExpected);
}

// The C library refuses digits that equal the base, and takes a lone "0x" for a zero.
void CompareWithTheCLibrary(const char *szText, uint32_t nBase) {
    char *pTheirs = nullptr;
    errno = 0;
    const long long iTheirs = std::strtoll(szText, &pTheirs, static_cast<int>(nBase));
    char *pOurs = nullptr;
    const int64_t iOurs = VYX_StrToi64(szText, &pOurs, nBase);
    REQUIRE(errno != 0 || pOurs != pTheirs || iOurs == iTheirs);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const uint32_t nBase = input.Pick(40);
    const int64_t iValue = input.Number<int64_t>();
    PrintAndRead(iValue, nBase, VYX_Ltoa);
    PrintAndRead(static_cast<int32_t>(iValue), nBase, VYX_Itoa);
    const std::string sRest = input.Rest();
    const char *szText = sRest.c_str();
    ReadByTheRules<int32_t>(szText, nBase, VYX_StrToi32);
    ReadByTheRules<int64_t>(szText, nBase, VYX_StrToi64);
    REQUIRE(VYX_Atoi32(szText) == VYX_StrToi32(szText, nullptr, 10));
    REQUIRE(VYX_Atoi64(szText) == VYX_StrToi64(szText, nullptr, 10));
    if (nBase == 0 || (nBase >= 2 && nBase <= 16))
        CompareWithTheCLibrary(szText, nBase);
    return 0;
}
