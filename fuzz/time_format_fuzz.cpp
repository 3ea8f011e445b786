// Formatted time, of fields that hold anything, as the platform makes it but for the directives that are the library's own.
#include <ctime>
#include <memory>

#include "time_model.h"

namespace {

// As the platform makes it, once the directives that are the library's own are replaced; "" where it does not fit.
std::string FormattedTime(const std::string &format, size_t nMax, const VYX_TIME_EXP_T &fields) {
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
    const struct tm platform = fuzz::PlatformFields(fields);
    text.resize(strftime(&text[0], nMax, replaced.c_str(), &platform));
    return text;
}

// The input's text, in which the bytes that are no ASCII stand for directives.
std::string FormatOf(const std::string &sInput) {
    static const std::string s_directives = "aAbBcCdDeFgGhHIjmMnprRStTuUVwWxXyYz%-?OE";
    std::string sFormat;
    for (const char c : std::string(sInput.c_str()))
        if (c > 0 && c < 127)
            sFormat += c;
        else
            sFormat += {'%', s_directives[static_cast<unsigned char>(c) % s_directives.size()]};
    return sFormat;
}

// A negative limit is as good as none.
void Format(const std::string &sFormat, int32_t iLimit, const VYX_TIME_EXP_T &fields) {
    const size_t nMax = iLimit < 0 ? 8192 : static_cast<size_t>(iLimit);
    const std::string sExpected = FormattedTime(sFormat, nMax, fields);
    if (iLimit < 0 && sExpected.empty())
        return; // a directive may have any width
    const std::unique_ptr<char[]> pOut(new char[nMax]);
    uint32_t nLength = 99;
    REQUIRE(VYX_StrFmtTime(pOut.get(), &nLength, iLimit, sFormat.c_str(), &fields) == VYX_OK);
    REQUIRE(nLength < nMax && pOut[nLength] == '\0');
    REQUIRE(std::string(pOut.get(), nLength) == sExpected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const auto t = input.Number<VYX_TIME_T>();
    (void)fuzz::SetZone(t);
    tzset();
    VYX_TIME_EXP_T fields = {};
    (void)VYX_ExpTimeFromTime(t, input.Number<int32_t>(), &fields);
    const VYX_TIME_EXP_T odd = fuzz::OddFields(&input);
    const unsigned nByte = input.Byte();
    const int32_t iLimit = nByte < 2 ? -1 - 11 * static_cast<int32_t>(nByte) : static_cast<int32_t>(nByte);
    const std::string sFormat = FormatOf(input.Rest());
    Format(sFormat, iLimit, fields);
    Format(sFormat, iLimit, odd);
    return 0;
}
