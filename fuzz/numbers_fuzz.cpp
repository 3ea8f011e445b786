// Numbers to text and back, against the rules, the C library where it has the same ones, and the way back.
#include <cerrno>
#include <limits>
#include <memory>
#include <vyx/string.h>

#include "input.h"
#include "number_model.h"

namespace {

template <class Signed, class Print>
void PrintAndRead(Signed iValue, uint32_t nRadix, Print fnPrint) {
    const std::unique_ptr<char[]> pText(new char[sizeof iValue * 8 + 2]); // as many as the header asks for
    const bool bRadix = nRadix >= 2 && nRadix <= 36;
    REQUIRE(fnPrint(pText.get(), iValue, nRadix) == (bRadix ? pText.get() : nullptr));
    REQUIRE(!bRadix || pText.get() == fuzz::TextOf(iValue, nRadix));
    if (nRadix == 10 ? iValue != std::numeric_limits<Signed>::min() : bRadix && nRadix <= 16 && iValue >= 0)
        REQUIRE(VYX_StrToi64(pText.get(), nullptr, nRadix) == iValue);
}

template <class Signed, class Read>
void ReadByTheRules(const char *szText, uint32_t nBase, Read fnRead) {
    const char *pExpected = nullptr;
    char *pEnd = nullptr;
    REQUIRE(fnRead(szText, &pEnd, nBase) == fuzz::NumberIn<Signed>(szText, nBase, &pExpected));
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
