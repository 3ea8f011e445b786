// Addresses as they stand on the command line.
#ifndef LOGMILL_ADDRESS_H
#define LOGMILL_ADDRESS_H

#include <string>
#include <vyx/net.h>

namespace logmill {

// IPv4 or IPv6, told apart by the colon. False if the text is neither.
inline bool MakeAddress(const std::string &text, uint32_t port, VYX_ADDR_T &address) {
    const int32_t family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
    return VYX_MakeAddrByString(family, text.c_str(), static_cast<uint16_t>(port), &address) == VYX_OK;
}

} // namespace logmill

#endif
