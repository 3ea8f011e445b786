// Conversions between integers and text. Arithmetic that may wrap is done on unsigned values.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vyx/string.h>

namespace {

constexpr uint32_t kMinRadix = 2;
constexpr uint32_t kMaxRadix = 36; // of text written
constexpr uint32_t kMaxBase = 16;  // of text read

constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839404142434445464748"
    "4950515253545556575859606162636465666768697071727374757677787980818283848586878889909192939495969798"
    "99";

// Writes a value in radix 10, two digits at a time, and returns the place behind it.
template <class Unsigned>
char *PutDecimal_Local(char *pOut, Unsigned nValue) {
    if (nValue < 10) {
        *pOut = static_cast<char>('0' + nValue);
        return pOut + 1;
    }
    if (nValue >= 100)
        pOut = PutDecimal_Local(pOut, static_cast<Unsigned>(nValue / 100));
    std::memcpy(pOut, kPairs + nValue % 100 * 2, 2);
    return pOut + 2;
}

template <class Signed>
char *Print_Local(char *szOut, Signed iValue, uint32_t nRadix) {
    using Unsigned = std::make_unsigned_t<Signed>;
    if (nRadix < kMinRadix || nRadix > kMaxRadix || szOut == nullptr)
        return nullptr;
    char *pOut = szOut;
    if (nRadix == 10 && iValue < 0) {
        *pOut++ = '-';
        // The least value stays as it is.
        iValue = static_cast<Signed>(Unsigned{0} - static_cast<Unsigned>(iValue));
    }
    if (iValue < 0)
        // Deliberate: a signed remainder, which gives one character below '0'. Pinned by
        // Numbers.NegativeValuesHaveNoDigitsOutsideRadixTen.
        *pOut++ = static_cast<char>('0' + iValue % static_cast<Signed>(nRadix));
    else if (nRadix == 10)
        pOut = PutDecimal_Local(pOut, static_cast<Unsigned>(iValue));
    else
        pOut = std::to_chars(pOut, pOut + sizeof(Signed) * 8, iValue, static_cast<int>(nRadix)).ptr;
    *pOut = '\0';
    return szOut;
}

// 0 to 9; more for a character that is no decimal digit.
unsigned char DecimalValue_Local(char c) {
    return static_cast<unsigned char>(c - '0');
}

// 0 to 35; a large number for a character that is no digit.
uint32_t DigitValue_Local(char c) {
    if (DecimalValue_Local(c) <= 9)
        return DecimalValue_Local(c);
    if (c >= 'A' && c <= 'Z')
        return static_cast<uint32_t>(c - 'A') + 10;
    if (c >= 'a' && c <= 'z')
        return static_cast<uint32_t>(c - 'a') + 10;
    return UINT32_MAX;
}

bool IsSpace_Local(char c) {
    // No locale counts digits or signs as space; most numbers are spared the question.
    return DecimalValue_Local(c) > 9 && c != '-' && std::isspace(static_cast<unsigned char>(c)) != 0;
}

// The base that the text itself asks for; skips a hexadecimal prefix.
uint32_t ChooseBase_Local(const char **ppText, uint32_t nBase) {
    const char *p = *ppText;
    if ((nBase == 16 || nBase == 0) && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
        *ppText += 2;
        return 16;
    }
    if (nBase != 0)
        return nBase;
    return p[0] == '0' ? 8 : 10;
}

// A number as far as it was read.
template <class Signed>
struct Number {
    Signed iValue;
    const char *pEnd; // behind its last digit
};

template <class Signed>
Signed WithSign_Local(std::make_unsigned_t<Signed> nValue, bool bNegative) {
    return static_cast<Signed>(bNegative ? std::make_unsigned_t<Signed>{0} - nValue : nValue);
}

// Reads on, digit by digit. The value is built toward its sign, so that the least one can be reached. Overflow is seen when
// a step leads nearer to 0; what follows then changes nothing.
//
// Deliberate: a digit that equals the base still counts. Pinned by Numbers.TextsAreReadToTheirEnd.
template <class Signed>
[[gnu::noinline]] Number<Signed> ReadOn_Local(Number<Signed> number, bool bNegative, uint32_t nBase) {
    using Unsigned = std::make_unsigned_t<Signed>;
    bool bOverflow = false;
    for (uint32_t nDigit; (nDigit = DigitValue_Local(*number.pEnd)) <= nBase; ++number.pEnd) {
        const auto nProduct = static_cast<Unsigned>(static_cast<Unsigned>(number.iValue) * nBase);
        const auto iProduct = static_cast<Signed>(nProduct);
        const auto iNext = static_cast<Signed>(bNegative ? nProduct - nDigit : nProduct + nDigit);
        bOverflow = bOverflow || (bNegative ? number.iValue < std::max(iProduct, iNext)
                                            : number.iValue > std::min(iProduct, iNext));
        if (!bOverflow)
            number.iValue = iNext;
    }
    if (bOverflow)
        number.iValue = bNegative ? std::numeric_limits<Signed>::min() : std::numeric_limits<Signed>::max();
    return number;
}

// Any number: white space, a sign and a prefix may come first.
template <class Signed>
[[gnu::noinline]] Number<Signed> ReadAny_Local(const char *szText, uint32_t nBase) {
    using Unsigned = std::make_unsigned_t<Signed>;
    const char *p = szText;
    while (IsSpace_Local(*p))
        ++p;
    const bool bNegative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    nBase = ChooseBase_Local(&p, nBase);
    if (nBase < kMinRadix || nBase > kMaxBase || DigitValue_Local(*p) > nBase)
        return {0, szText};
    // Whatever the base, so many digits of a value up to 16 stay below 2^31 or 2^63.
    const char *const pStop = p + sizeof(Signed) * 2 - 1;
    Unsigned nValue = 0;
    for (uint32_t nDigit; p != pStop && (nDigit = DigitValue_Local(*p)) <= nBase; ++p)
        nValue = static_cast<Unsigned>(nValue * nBase + nDigit);
    return ReadOn_Local<Signed>({WithSign_Local<Signed>(nValue, bNegative), p}, bNegative, nBase);
}

// Reads what nearly everybody reads, decimal numbers with nothing before them, as fast as it can be done.
template <class Signed>
Number<Signed> Read_Local(const char *szText, uint32_t nBase) {
    using Unsigned = std::make_unsigned_t<Signed>;
    const char *p = szText;
    bool bNegative = false;
    if (*p == '-') { // a branch, as a calculated place would have to be waited for
        bNegative = true;
        ++p;
    }
    if (nBase != 10 || DecimalValue_Local(*p) > 9)
        return ReadAny_Local<Signed>(szText, nBase);
    const char *const pStop = p + std::numeric_limits<Signed>::digits10;
    Unsigned nValue = 0;
    for (unsigned char byDigit; p != pStop && (byDigit = DecimalValue_Local(*p)) <= 9; ++p)
        nValue = nValue * 10 + byDigit;
    const Number<Signed> number = {WithSign_Local<Signed>(nValue, bNegative), p};
    return DigitValue_Local(*p) <= 10 ? ReadOn_Local(number, bNegative, 10) : number;
}

// The value, and the end to those who ask for it. The text is the caller's own.
template <class Signed>
Signed ValueOf_Local(const Number<Signed> &number, char **ppEnd) {
    if (ppEnd != nullptr)
        *ppEnd = const_cast<char *>(number.pEnd);
    return number.iValue;
}

} // namespace

char *VYX_Itoa(char *szOut, int32_t iValue, uint32_t nRadix) {
    return Print_Local(szOut, iValue, nRadix);
}
char *VYX_Ltoa(char *szOut, int64_t iValue, uint32_t nRadix) {
    return Print_Local(szOut, iValue, nRadix);
}

int32_t VYX_StrToi32(const char *szText, char **ppEnd, uint32_t nBase) {
    return ValueOf_Local(Read_Local<int32_t>(szText, nBase), ppEnd);
}
int64_t VYX_StrToi64(const char *szText, char **ppEnd, uint32_t nBase) {
    return ValueOf_Local(Read_Local<int64_t>(szText, nBase), ppEnd);
}
int32_t VYX_Atoi32(const char *szText) {
    return VYX_StrToi32(szText, nullptr, 10);
}
int64_t VYX_Atoi64(const char *szText) {
    return VYX_StrToi64(szText, nullptr, 10);
}
