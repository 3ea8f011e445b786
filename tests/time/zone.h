// A time zone for the length of a block. POSIX strings, so that no zone files are needed.
#ifndef VYX_TESTS_TIME_ZONE_H
#define VYX_TESTS_TIME_ZONE_H

#include <cstdlib>
#include <string>

namespace support {

constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3"; // one hour east, two in summer
constexpr char kShanghai[] = "CST-8";                    // eight hours east, the whole year
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";    // five hours west, four in summer

class Zone {
  public:
    explicit Zone(const char *szZone) {
        const char *szBefore = std::getenv("TZ");
        m_bWasSet = szBefore != nullptr;
        m_before = m_bWasSet ? szBefore : "";
        setenv("TZ", szZone, 1);
    }
    ~Zone() { m_bWasSet ? setenv("TZ", m_before.c_str(), 1) : unsetenv("TZ"); }
    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;

  private:
    bool m_bWasSet;
    std::string m_before;
};

} // namespace support

#endif
