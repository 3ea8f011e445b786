// The library's own parsers of address texts. They accept and refuse what they do on every platform alike, which
// is not quite what the platforms' own parsers do.
#include <array>
#include <cstring>

#include "net/net_inter.h"

namespace {

constexpr int kShortBytes = 4;
constexpr int kLongBytes = 16;
constexpr int kGroupBytes = 2;

// For each byte the value of a hexadecimal digit; -1 for any other character.
constexpr std::array<int8_t, 256> MakeHexTable() {
    std::array<int8_t, 256> table{};
    for (size_t n = 0; n < table.size(); ++n) {
        const int iChar = static_cast<int>(n);
        table[n] = static_cast<int8_t>(iChar >= '0' && iChar <= '9'   ? iChar - '0'
                                       : iChar >= 'a' && iChar <= 'f' ? iChar - 'a' + 10
                                       : iChar >= 'A' && iChar <= 'F' ? iChar - 'A' + 10
                                                                      : -1);
    }
    return table;
}

constexpr std::array<int8_t, 256> kHexTable = MakeHexTable();

int HexDigit_Local(char c) {
    return kHexTable[static_cast<unsigned char>(c)];
}

int CountColons_Local(const char *szText) {
    int iCount = 0;
    for (; *szText != '\0'; ++szText)
        iCount += *szText == ':' ? 1 : 0;
    return iCount;
}

// One IPv6 text being read.
class LongParser {
  public:
    // 1 if the text was accepted; m_bytes holds the address then.
    int32_t Parse(const char *szText, uint8_t *pOut16) {
        const char *p = szText;
        if (*p == ':' && *++p != ':')
            return 0;
        m_pToken = p;
        for (; *p != '\0'; ++p) {
            const bool bLast = p[1] == '\0';
            const int iDigit = HexDigit_Local(*p);
            if (iDigit >= 0 && !AddDigit(static_cast<uint32_t>(iDigit)))
                return 0;
            if (iDigit >= 0 && !bLast)
                continue;
            // Deliberate: one invalid character at the very end is passed over like a separator. Pinned by
            // Addr.ParserWhereItIsItsOwn.
            if (iDigit < 0 && *p != ':' && !bLast)
                return *p == '.' && EndWithShortForm() ? Finish(pOut16) : 0;
            if (!(m_bDigitSeen ? EndGroup(p) : RecordGap()))
                return 0;
            m_pToken = p + 1;
        }
        // Deliberate: nobody asks for eight groups; the missing ones are zero.
        return Finish(pOut16);
    }

  private:
    bool AddDigit(uint32_t nDigit) {
        m_nValue = m_nValue * 16 + nDigit;
        m_bDigitSeen = true;
        return m_nValue <= 0xFFFF;
    }
    // Stores the group that ends at p. Before a gap, makes room at the end for the groups still to come.
    bool EndGroup(const char *p) {
        if (kLongBytes - m_iPosition < kGroupBytes)
            return false;
        m_bytes[m_iPosition] = static_cast<uint8_t>(m_nValue >> 8);
        m_bytes[m_iPosition + 1] = static_cast<uint8_t>(m_nValue);
        m_iPosition += kGroupBytes;
        if (p[1] == ':')
            m_iPosition = kLongBytes - kGroupBytes - kGroupBytes * CountColons_Local(p + 2);
        m_nValue = 0;
        m_bDigitSeen = false;
        return m_iPosition >= 0; // more groups than there is room for
    }
    // Deliberate: the position stays, so a gap at the very start makes no room and ::1 is group 1 first. Pinned by
    // Addr.ParserWhereItIsItsOwn.
    bool RecordGap() {
        const bool bFirst = !m_bGap;
        m_bGap = true;
        return bFirst;
    }
    bool EndWithShortForm() {
        return kLongBytes - m_iPosition >= kShortBytes &&
               VYX_InetPton4_Inter(m_pToken, m_bytes + m_iPosition) == 1;
    }
    int32_t Finish(uint8_t *pOut16) const {
        std::memcpy(pOut16, m_bytes, sizeof m_bytes);
        return 1;
    }

    uint8_t m_bytes[kLongBytes] = {};
    int m_iPosition = 0;
    uint32_t m_nValue = 0;
    bool m_bDigitSeen = false; // since the last separator
    bool m_bGap = false;       // a :: was seen
    const char *m_pToken = nullptr;
};

} // namespace

int32_t VYX_InetPton4_Inter(const char *szText, uint8_t *pOut4) {
    if (szText == nullptr || pOut4 == nullptr)
        return VYX_ERROR;
    uint8_t bytes[kShortBytes] = {};
    int iStarted = 0;
    bool bDigitSeen = false;
    uint32_t nValue = 0;
    for (; *szText != '\0'; ++szText) {
        const auto nDigit = static_cast<uint32_t>(*szText - '0');
        if (nDigit <= 9) {
            nValue = nValue * 10 + nDigit;
            if (nValue > 255 || (!bDigitSeen && ++iStarted > kShortBytes))
                return 0;
            bDigitSeen = true;
            bytes[iStarted - 1] = static_cast<uint8_t>(nValue);
        } else if (*szText == '.' && bDigitSeen && iStarted < kShortBytes) {
            bDigitSeen = false;
            nValue = 0;
        } else {
            return 0;
        }
    }
    if (iStarted < kShortBytes)
        return 0;
    std::memcpy(pOut4, bytes, sizeof bytes);
    return 1;
}

int32_t VYX_InetPton6_Inter(const char *szText, uint8_t *pOut16) {
    return szText == nullptr || pOut16 == nullptr ? 0 : LongParser().Parse(szText, pOut16);
}

int32_t VYX_InetPton(const char *szText, void *pOut) {
    if (szText == nullptr || pOut == nullptr)
        return VYX_ERROR;
    // No dotted quad holds a ':', so a text that is one needs no search for it.
    auto *pBytes = static_cast<uint8_t *>(pOut);
    if (VYX_InetPton4_Inter(szText, pBytes) == 1)
        return VYX_OK;
    const bool bLong = std::strchr(szText, ':') != nullptr;
    return bLong && VYX_InetPton6_Inter(szText, pBytes) == 1 ? VYX_OK : VYX_ERROR;
}
