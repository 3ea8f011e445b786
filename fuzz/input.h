// What the fuzz targets share: an input is read from its front, piece by piece; where it ends, zeros and empty texts follow.
#ifndef VYX_FUZZ_INPUT_H_
#define VYX_FUZZ_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// What has to hold, in every build.
#define REQUIRE(holds) ((holds) ? static_cast<void>(0) : fuzz::Fail(__FILE__, __LINE__, #holds))

namespace fuzz {

[[noreturn]] inline void Fail(const char *szFile, int iLine, const char *szWhat) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", szFile, iLine, szWhat);
    std::abort();
}

class Input {
  public:
    Input(const uint8_t *pData, size_t nSize) : m_p(pData), m_nLeft(nSize) {}

    bool AtEnd() const { return m_nLeft == 0; }
    uint8_t Byte() {
        if (AtEnd())
            return 0;
        --m_nLeft;
        return *m_p++;
    }
    // 0 to nMany - 1, of one byte.
    unsigned Pick(unsigned nMany) { return Byte() % nMany; }
    // All values of an integer type, little-endian.
    template <typename T>
    T Number() {
        uint64_t n = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            n |= uint64_t{Byte()} << (8 * i);
        return static_cast<T>(n);
    }
    std::string Text(size_t nMost) {
        std::string s(reinterpret_cast<const char *>(m_p), std::min(nMost, m_nLeft));
        m_p += s.size();
        m_nLeft -= s.size();
        return s;
    }
    std::string Rest() { return Text(m_nLeft); }

  private:
    const uint8_t *m_p;
    size_t m_nLeft;
};

} // namespace fuzz

#endif
