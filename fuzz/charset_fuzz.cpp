// EUC-CN to UTF-8 and back: one character after the other, each converted alone, makes the whole; what is converted can be
// converted back; nothing is accepted that is not made as these sets make their characters.
#include <optional>
#include <vector>
#include <vyx/sys.h>

#include "input.h"

namespace {

using Texts = std::vector<std::string>;

size_t LengthIn(bool bUtf8, unsigned char cLead) {
    if (cLead < 0x80)
        return 1;
    return !bUtf8 ? 2 : cLead < 0xE0 ? 2 : cLead < 0xF0 ? 3 : 4;
}

bool IsTrail(bool bUtf8, unsigned char c) {
    return bUtf8 ? c >= 0x80 && c < 0xC0 : c >= 0xA1;
}

// The characters of a text; nothing if it is not made of whole ones.
std::optional<Texts> Split(bool bUtf8, const std::string &sText) {
    Texts characters;
    for (size_t n = 0; n < sText.size();) {
        const auto cLead = static_cast<unsigned char>(sText[n]);
        const std::string sOne = sText.substr(n, LengthIn(bUtf8, cLead));
        if (cLead >= 0x80 && (bUtf8 ? cLead < 0xC2 || cLead > 0xF4 : cLead < 0xA1))
            return std::nullopt;
        if (sOne.size() != LengthIn(bUtf8, cLead))
            return std::nullopt;
        for (size_t i = 1; i < sOne.size(); ++i)
            if (!IsTrail(bUtf8, static_cast<unsigned char>(sOne[i])))
                return std::nullopt;
        characters.push_back(sOne);
        n += sOne.size();
    }
    return characters;
}

void Convert(bool bUtf8, const std::string &sText) {
    const auto fnThere = bUtf8 ? VYX_UTF82A : VYX_A2UTF8;
    const auto fnBack = bUtf8 ? VYX_A2UTF8 : VYX_UTF82A;
    const std::string sOut = fnThere(sText.c_str());
    const auto characters = Split(bUtf8, sText);
    if (!characters) {
        REQUIRE(sOut.empty());
        return;
    }
    std::string sExpected;
    for (const std::string &sOne : *characters) {
        const std::string sConverted = fnThere(sOne.c_str());
        REQUIRE(sOne.size() > 1 || sConverted == sOne); // ASCII stays
        if (sConverted.empty()) {
            REQUIRE(sOut.empty());
            return;
        }
        sExpected += sConverted;
    }
    REQUIRE(sOut == sExpected);
    const auto made = Split(!bUtf8, sOut);
    REQUIRE(made && made->size() == characters->size());
    REQUIRE(fnBack(sOut.c_str()) == sText);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    if (VYX_UTF82A("\xE4\xB8\xAD") != "\xD6\xD0")
        return 0; // the C library came without its tables
    fuzz::Input input(pData, nSize);
    const bool bUtf8 = input.Pick(2) == 0;
    Convert(bUtf8, input.Rest().c_str());
    return 0;
}
