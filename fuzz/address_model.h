// The rules for address texts, written apart from the library: a parser, and what is printed.
#ifndef VYX_FUZZ_ADDRESS_MODEL_H_
#define VYX_FUZZ_ADDRESS_MODEL_H_

#include <algorithm>
#include <arpa/inet.h>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// Four decimal numbers of one byte each, with any number of zeros before them.
inline std::optional<Bytes> ReadShort(const std::string &sText) {
    static const std::regex s_quad("0*([0-9]{1,3})\\.0*([0-9]{1,3})\\.0*([0-9]{1,3})\\.0*([0-9]{1,3})");
    std::smatch found;
    if (!std::regex_match(sText, found, s_quad))
        return std::nullopt;
    Bytes bytes;
    for (size_t i = 1; i <= 4; ++i) {
        const int iNumber = std::stoi(found[i]);
        if (iNumber > 255)
            return std::nullopt;
        bytes.push_back(static_cast<uint8_t>(iNumber));
    }
    return bytes;
}

// Puts a part of an address into its place. False if it has no room there.
inline bool Put(const Bytes &part, int iAt, Bytes *pBytes) {
    if (static_cast<size_t>(iAt) + part.size() > pBytes->size())
        return false;
    std::copy(part.begin(), part.end(), pBytes->begin() + iAt);
    return true;
}

// One group after the other. Each but the last is followed by ':'; the last may be followed by any one character.
inline std::optional<Bytes> ReadLong(const std::string &sText) {
    Bytes bytes(16);
    int iAt = 0;       // where the next group goes
    bool bGap = false; // an empty group has been
    if (sText[0] == ':' && sText.substr(0, 2) != "::")
        return std::nullopt;
    for (size_t n = sText[0] == ':' ? 1 : 0, nEnd = 0; n < sText.size(); n = nEnd + 1) {
        nEnd = std::min(sText.find_first_not_of("0123456789abcdefABCDEF", n), sText.size());
        const std::string sGroup = sText.substr(n, nEnd - n);
        const bool bLast = nEnd + 1 >= sText.size();
        if (sGroup.size() - std::min(sGroup.find_first_not_of('0'), sGroup.size()) > 4)
            return std::nullopt; // more than two bytes
        if (!bLast && sText[nEnd] != ':') {
            const auto quad = ReadShort(sText.substr(n));
            return quad && Put(*quad, iAt, &bytes) ? std::optional(bytes) : std::nullopt;
        }
        if (sGroup.empty()) {
            if (std::exchange(bGap, true))
                return std::nullopt;
            continue;
        }
        const auto nValue = std::strtoul(sGroup.c_str(), nullptr, 16);
        if (!Put({static_cast<uint8_t>(nValue >> 8), static_cast<uint8_t>(nValue)}, iAt, &bytes))
            return std::nullopt;
        iAt += 2;
        if (!bLast && sText[nEnd + 1] == ':') { // a gap; the groups behind it go to the end
            const std::string sBehind = sText.substr(nEnd + 2);
            iAt = 14 - 2 * static_cast<int>(std::count(sBehind.begin(), sBehind.end(), ':'));
        }
        if (iAt < 0)
            return std::nullopt;
    }
    return bytes;
}

// As the platform prints it.
inline std::string Printed(int iFamily, const void *pBytes) {
    char szText[INET6_ADDRSTRLEN] = "";
    return inet_ntop(iFamily, pBytes, szText, sizeof szText);
}

// A dotted quad at the end of a long address has room for eight characters; an address with a longer one is not printed.
inline bool HasRoom(const std::string &sPrinted) {
    const size_t nColon = sPrinted.rfind(':');
    return nColon == std::string::npos || sPrinted.find('.') == std::string::npos ||
           sPrinted.size() - nColon - 1 <= 8;
}

} // namespace fuzz

#endif
