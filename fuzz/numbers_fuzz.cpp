// Numbers to text and back, against the rules, the C library where it has the same ones, and the way back.
#include <cerrno>
#include <memory>
#include <vyx/string.h>

#include "input.h"
#include "string/number_model.h"

namespace {

// What a number becomes in a radix; in all but radix 10 a negative one is a single character below '0'.
template <class Signed>
std::string TextOf(Signed iValue, uint32_t nRadix) {
    const auto iRadix = static_cast<Signed>(nRadix);
    const bool bSign = iValue < 0 && nRadix == 10;
    if (iValue >= 0 || (bSign && iValue != std::numeric_limits<Signed>::min()))
        return (bSign ? "-" : "") + support::Digits(static_cast<uint64_t>(bSign ? -iValue : iValue), nRadix);
    return (bSign ? "-" : "") + std::string(1, static_cast<char>('0' + iValue % iRadix));
}

template <class Signed, class Print>
void PrintAndRead(Signed iValue, uint32_t nRadix, Print fnPrint) {
    const std::unique_ptr<char[]> pText(new char[sizeof iValue * 8 + 2]); // as many as the header asks for
    REQUIRE((fnPrint(pText.get(), iValue, nRadix) != nullptr) == (nRadix >= 2 && nRadix <= 36));
    if (nRadix < 2 || nRadix > 36)
        return;
    REQUIRE(pText.get() == TextOf(iValue, nRadix));
    const bool bReadable =
        nRadix <= 16 && (iValue >= 0 || (nRadix == 10 && iValue != std::numeric_limits<Signed>::min()));
    char *pEnd = nullptr;
    REQUIRE(!bReadable || (VYX_StrToi64(pText.get(), &pEnd, nRadix) == iValue && *pEnd == '\0'));
}

// The C library refuses digits that equal the base, and takes a lone "0x" for a zero.
void CompareWithTheCLibrary(const char *szText, uint32_t nBase) {
    char *pTheirs = nullptr;
    errno = 0;
    const long long iTheirs = std::strtoll(szText, &pTheirs, static_cast<int>(nBase));
    char *pOurs = nullptr;
    const int64_t iOurs = VYX_StrToi64(szText, &pOurs, nBase);
    if (errno == 0 && pOurs == pTheirs)
        REQUIRE(iOurs == iTheirs);
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
    const char *pExpected = nullptr;
    char *pEnd = nullptr;
    REQUIRE(VYX_StrToi32(szText, &pEnd, nBase) ==
            (support::NumberIn<int32_t, uint32_t>(szText, nBase, &pExpected)));
    REQUIRE(pEnd == pExpected);
    REQUIRE(VYX_StrToi64(szText, &pEnd, nBase) ==
            (support::NumberIn<int64_t, uint64_t>(szText, nBase, &pExpected)));
    REQUIRE(pEnd == pExpected);
    REQUIRE(VYX_Atoi32(szText) == VYX_StrToi32(szText, nullptr, 10));
    REQUIRE(VYX_Atoi64(szText) == VYX_StrToi64(szText, nullptr, 10));
    if (nBase == 0 || (nBase >= 2 && nBase <= 16))
        CompareWithTheCLibrary(szText, nBase);
    return 0;
}
