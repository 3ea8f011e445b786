// Formatted time: strftime, with the directives that platforms lack or differ in replaced first.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vyx/time.h>

#include "time/calendar.h"

namespace {

// Longest replacement of one directive.
constexpr size_t kLongest = 11;

// The format with its directives replaced, in the making. It counts up to nMax characters, but the storage is
// only as large as the format can become: a caller's nMax may be huge.
class Work {
  public:
    Work(size_t nMax, size_t nFormatLength)
        : m_nMax(nMax), m_nRoom(std::min(nMax, nFormatLength * kLongest) + kLongest + 1),
          m_pText(new (std::nothrow) char[m_nRoom]) {}

    bool IsValid() const { return m_pText != nullptr; }
    bool HasRoom() const { return m_nUsed < m_nMax; }
    void Put(char c) { m_pText[m_nUsed++] = c; }
    void Put(const char *szText) {
        const size_t nLength = std::strlen(szText);
        std::memcpy(&m_pText[m_nUsed], szText, nLength);
        m_nUsed += nLength;
    }
    // A number, blank-padded to two places. One that is cut short ends the walk, as its full length counts.
    void PutNumber(long long iValue) {
        const size_t nLimit = std::min(m_nMax - m_nUsed, m_nRoom - m_nUsed);
        const int iLength = std::snprintf(&m_pText[m_nUsed], nLimit, "%2lld", iValue);
        m_nUsed = iLength < 0 ? m_nMax : m_nUsed + static_cast<size_t>(iLength);
    }
    const char *Finish() {
        m_pText[m_nUsed] = '\0';
        return m_pText.get();
    }

  private:
    size_t m_nMax;
    size_t m_nRoom;
    size_t m_nUsed = 0;
    std::unique_ptr<char[]> m_pText;
};

// The replacement of a directive that stands for a fixed sequence of others; null if it is none of these.
const char *Sequence_Local(char cDirective) {
    switch (cDirective) {
    case 'D':
        return "%m/%d/%y";
    case 'R':
        return "%H:%M";
    case 'T':
        return "%H:%M:%S";
    case 'r':
        return "%I:%M:%S %p";
    default:
        return nullptr;
    }
}

void PutDirective_Local(Work &work, char cDirective, const struct tm &fields) {
    const char *szSequence = Sequence_Local(cDirective);
    if (szSequence != nullptr) {
        work.Put(szSequence);
    } else if (cDirective == 'C') {
        // Deliberate: counted from 1970, not 1900, so "%C" shows 21 from 2030 on. Pinned by
        // FormatTime.CenturyCountsFrom1970.
        work.PutNumber((static_cast<long long>(fields.tm_year) + 1970) / 100);
    } else if (cDirective == 'e') {
        work.PutNumber(fields.tm_mday);
    } else {
        work.Put('%');
        work.Put(cDirective);
    }
}

} // namespace

size_t win32_strftime_extra(char *szOut, size_t nMax, const char *szFormat, const struct tm *pTm) {
    const size_t nLength = std::strlen(szFormat);
    Work work(nMax, nLength);
    size_t nWritten = 0;
    if (work.IsValid()) {
        for (size_t i = 0; i < nLength && work.HasRoom(); ++i) {
            if (szFormat[i] == '%')
                PutDirective_Local(work, szFormat[++i], *pTm);
            else
                work.Put(szFormat[i]);
        }
        if (work.HasRoom())
            nWritten = VYX_FormatFields_Inter(szOut, nMax, work.Finish(), pTm);
    }
    if (nWritten == 0)
        *szOut = '\0'; // the platform leaves a text that did not fit unfinished
    return nWritten;
}

int32_t VYX_StrFmtTime(char *szOut, uint32_t *pLen, int32_t iMax, const char *szFormat,
                       const VYX_TIME_EXP_T *pIn) {
    if (szOut == nullptr || pLen == nullptr || szFormat == nullptr || pIn == nullptr)
        return VYX_ERROR;
    struct tm fields = {};
    fields.tm_sec = pIn->tm_sec;
    fields.tm_min = pIn->tm_min;
    fields.tm_hour = pIn->tm_hour;
    fields.tm_mday = pIn->tm_mday;
    fields.tm_mon = pIn->tm_mon;
    fields.tm_year = pIn->tm_year;
    fields.tm_wday = pIn->tm_wday;
    fields.tm_yday = pIn->tm_yday;
    fields.tm_isdst = pIn->tm_isdst;
    // Deliberate: widened with its sign, so a negative limit is as good as none.
    const auto nMax = static_cast<size_t>(static_cast<ptrdiff_t>(iMax));
    *pLen = static_cast<uint32_t>(win32_strftime_extra(szOut, nMax, szFormat, &fields));
    return VYX_OK;
}
