// Conversion between EUC-CN and UTF-8 by the platform's converter.
#include <cstdint>
#include <cstring>
#include <exception>
#include <iconv.h>
#include <vyx/sys.h>

#include "base/platform.h"
#include "base/uncancelled.h"
#include "sys/c_library.h"

using vyx_inter::LockGuard;
using vyx_inter::Uncancelled;

namespace {

// An open converter for the length of a block.
class Converter {
  public:
    Converter(const char *szTo, const char *szFrom) {
        const Uncancelled uncancelled;
        const LockGuard guard(g_hCLibraryLock);
        m_hConverter = iconv_open(szTo, szFrom);
    }
    ~Converter() {
        if (!IsOpen())
            return;
        const Uncancelled uncancelled;
        const LockGuard guard(g_hCLibraryLock);
        (void)iconv_close(m_hConverter);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    bool IsOpen() const { return reinterpret_cast<intptr_t>(m_hConverter) != -1; }

    // Converts the whole input; false if any of it is invalid or incomplete or the room does not suffice.
    bool Convert(const char *szText, size_t nLength, std::string &out) const {
        char *pIn = const_cast<char *>(szText); // the platform's declaration; the input is only read
        char *pOut = &out[0];
        size_t nRoom = out.size();
        return iconv(m_hConverter, &pIn, &nLength, &pOut, &nRoom) != static_cast<size_t>(-1);
    }

  private:
    iconv_t m_hConverter = nullptr;
};

// The whole text in the other set; empty if it cannot be converted.
std::string Convert_Local(const char *szText, const char *szTo, const char *szFrom) {
    const Converter converter(szTo, szFrom);
    if (!converter.IsOpen())
        return {};
    const size_t nLength = std::strlen(szText);
    std::string out(3 * nLength + 1, '\0'); // no character grows to more than three times its bytes
    if (!converter.Convert(szText, nLength, out))
        return {};
    out.resize(std::strlen(out.c_str()));
    return out;
}

std::string ConvertFaithfully_Local(const char *szText, const char *szTo, const char *szFrom) {
    if (szText == nullptr)
        return {};
    try {
        std::string out = Convert_Local(szText, szTo, szFrom);
        if (VYX_IconvReplaces_Inter() && Convert_Local(out.c_str(), szFrom, szTo) != szText)
            return {};
        return out;
    } catch (const std::exception &) { // memory is short, or no string can be that long
        return {};
    }
}

} // namespace

std::string VYX_A2UTF8(const char *szText) {
    return ConvertFaithfully_Local(szText, "UTF-8", "EUC-CN");
}

std::string VYX_UTF82A(const char *szText) {
    return ConvertFaithfully_Local(szText, "EUC-CN", "UTF-8");
}
