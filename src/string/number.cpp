// Conversions between integers and text. Arithmetic that may wrap is done on unsigned values.
#include <cctype>
#include <limits>
#include <type_traits>
#include <vyx/string.h>

namespace {

constexpr uint32_t kMinRadix = 2;
constexpr uint32_t kMaxRadix = 36; // of text written
constexpr uint32_t kMaxBase = 16;  // of text read

// Digits of a value in reverse, starting at pEnd and going down; returns where the first one stands.
//
// Deliberate: signed remainders. A negative value yields one character below '0' and ends the loop. Pinned by
// Numbers.NegativeValuesHaveNoDigitsOutsideRadixTen.
template <class Signed>
char *DigitsBefore_Local(char *pEnd, Signed iValue, Signed iRadix) {
    do {
        const auto iDigit = static_cast<int>(iValue % iRadix);
        *--pEnd = static_cast<char>(iDigit <= 9 ? '0' + iDigit : 'a' + iDigit - 10);
        iValue = static_cast<Signed>(iValue / iRadix);
    } while (iValue > 0);
    return pEnd;
}

template <class Signed>
char *Print_Local(char *szOut, Signed iValue, uint32_t nRadix) {
    using Unsigned = std::make_unsigned_t<Signed>;
    if (nRadix < kMinRadix || nRadix > kMaxRadix || szOut == nullptr)
        return nullptr;
    char *pOut = szOut;
    if (nRadix == 10 && iValue < 0) {
        *pOut++ = '-';
        iValue = static_cast<Signed>(Unsigned{0} -
                                     static_cast<Unsigned>(iValue)); // the least value stays as it is
    }
    char szDigits[std::numeric_limits<Unsigned>::digits];
    char *pEnd = szDigits + sizeof szDigits;
    // Ten as a constant spares the division, and ten is what nearly everybody asks for.
    const char *pDigit = nRadix == 10 ? DigitsBefore_Local<Signed>(pEnd, iValue, 10)
                                      : DigitsBefore_Local<Signed>(pEnd, iValue, static_cast<Signed>(nRadix));
    while (pDigit != pEnd)
        *pOut++ = *pDigit++;
    *pOut = '\0';
    return szOut;
}

// 0 to 35; a large number for a character that is no digit.
uint32_t DigitValue_Local(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<uint32_t>(c - '0');
    if (c >= 'A' && c <= 'Z')
        return static_cast<uint32_t>(c - 'A') + 10;
    if (c >= 'a' && c <= 'z')
        return static_cast<uint32_t>(c - 'a') + 10;
    return UINT32_MAX;
}

bool IsSpace_Local(char c) {
    // No locale counts digits or signs as space; most numbers are spared the question.
    return DigitValue_Local(c) > 9 && c != '-' && std::isspace(static_cast<unsigned char>(c)) != 0;
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

// One number in the making, built toward its sign so that the least value can be reached.
template <class Signed>
class Accumulator {
  public:
    Accumulator(bool bNegative, uint32_t nBase)
        : m_bNegative(bNegative), m_nBase(static_cast<Unsigned>(nBase)) {}

    // Reads the digits that cannot overflow, whatever the base: 7 or 15 of a value up to 16 stay below 2^31 or
    // 2^63. Returns the place behind them. Comes before Add.
    const char *AddFirst(const char *p) {
        constexpr int kSafe = static_cast<int>(sizeof(Signed)) * 2 - 1;
        const char *const pStop = p + kSafe;
        Unsigned nValue = 0;
        for (uint32_t nDigit; p != pStop && (nDigit = DigitValue_Local(*p)) <= m_nBase; ++p)
            nValue = nValue * m_nBase + nDigit;
        m_iValue = static_cast<Signed>(m_bNegative ? Unsigned{0} - nValue : nValue);
        return p;
    }
    void Add(uint32_t nDigit) {
        if (m_bOverflow)
            return;
        const auto nProduct = static_cast<Unsigned>(static_cast<Unsigned>(m_iValue) * m_nBase);
        const auto nNext = static_cast<Unsigned>(m_bNegative ? nProduct - nDigit : nProduct + nDigit);
        m_bOverflow = IsBeyond(static_cast<Signed>(nProduct)) || IsBeyond(static_cast<Signed>(nNext));
        if (!m_bOverflow)
            m_iValue = static_cast<Signed>(nNext);
    }
    Signed Result() const {
        if (!m_bOverflow)
            return m_iValue;
        return m_bNegative ? std::numeric_limits<Signed>::min() : std::numeric_limits<Signed>::max();
    }

  private:
    using Unsigned = std::make_unsigned_t<Signed>;
    // The value so far lies farther from 0 than what the next step gave.
    bool IsBeyond(Signed iNext) const { return m_bNegative ? m_iValue < iNext : m_iValue > iNext; }

    bool m_bNegative;
    bool m_bOverflow = false;
    Unsigned m_nBase;
    Signed m_iValue = 0;
};

template <class Signed>
Signed Read_Local(const char *szText, char **ppEnd, uint32_t nBase) {
    const char *p = szText;
    const char *pEnd = szText; // the input itself until there was a digit
    while (IsSpace_Local(*p))
        ++p;
    const bool bNegative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    nBase = ChooseBase_Local(&p, nBase);
    Accumulator<Signed> number(bNegative, nBase);
    if (nBase >= kMinRadix && nBase <= kMaxBase) {
        // Deliberate: a digit that equals the base still counts. Pinned by Numbers.ADigitMayEqualTheBase.
        const char *const pFirst = p;
        p = number.AddFirst(p);
        for (uint32_t nDigit; (nDigit = DigitValue_Local(*p)) <= nBase; ++p)
            number.Add(nDigit);
        if (p != pFirst)
            pEnd = p;
    }
    if (ppEnd != nullptr)
        *ppEnd = const_cast<char *>(pEnd); // the caller's own text
    return number.Result();
}

} // namespace

char *VYX_Itoa(char *szOut, int32_t iValue, uint32_t nRadix) {
    return Print_Local(szOut, iValue, nRadix);
}
char *VYX_Ltoa(char *szOut, int64_t iValue, uint32_t nRadix) {
    return Print_Local(szOut, iValue, nRadix);
}

int32_t VYX_StrToi32(const char *szText, char **ppEnd, uint32_t nBase) {
    return Read_Local<int32_t>(szText, ppEnd, nBase);
}
int64_t VYX_StrToi64(const char *szText, char **ppEnd, uint32_t nBase) {
    return Read_Local<int64_t>(szText, ppEnd, nBase);
}
int32_t VYX_Atoi32(const char *szText) {
    return VYX_StrToi32(szText, nullptr, 10);
}
int64_t VYX_Atoi64(const char *szText) {
    return VYX_StrToi64(szText, nullptr, 10);
}
