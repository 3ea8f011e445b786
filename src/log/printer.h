// Text into a buffer of limited size.
#ifndef VYX_LOG_PRINTER_H
#define VYX_LOG_PRINTER_H

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace vyx_inter {

// Prints as snprintf does: stores what fits, counts everything.
class Printer {
  public:
    Printer(char *pBuf, size_t nSize) : m_pBuf(pBuf), m_nSize(nSize) {}

    void Put(const char *pText, size_t nLength) {
        if (m_pBuf != nullptr && m_nLength < m_nSize) {
            const size_t nRoom = m_nSize - m_nLength;
            if (nLength <= nRoom) // by itself, so that a constant length needs no call
                std::memcpy(m_pBuf + m_nLength, pText, nLength);
            else
                std::memcpy(m_pBuf + m_nLength, pText, nRoom);
        }
        m_nLength += nLength;
    }
    void Put(const char *szText) { Put(szText, std::strlen(szText)); }
    template <class Number>
    void PutNumber(Number number, int iBase = 10) {
        char text[24]; // no number of 64 bits is longer
        Put(text, static_cast<size_t>(std::to_chars(text, text + sizeof text, number, iBase).ptr - text));
    }
    // Ends the text with a zero, if there is any room. Result: its length, also if it did not fit; -1 if that is more
    // than the result can say.
    int32_t Finish() {
        if (m_nSize > 0)
            m_pBuf[std::min(m_nLength, m_nSize - 1)] = '\0';
        return m_nLength > INT32_MAX ? -1 : static_cast<int32_t>(m_nLength);
    }

  private:
    char *m_pBuf;
    size_t m_nSize;
    size_t m_nLength = 0;
};

} // namespace vyx_inter

#endif
