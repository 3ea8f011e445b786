// Formatted time: strftime, with the directives that platforms lack or differ in replaced first.
//
// A format of common directives is printed piece by piece, and the most common pieces here: the detour over a replaced
// format costs more than the text. Any other format is left to the platform, from the beginning.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <langinfo.h>
#include <memory>
#include <new>
#include <vyx/time.h>

#include "time/calendar.h"

namespace {

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

// Deliberate: counted from 1970, not 1900, so "%C" shows 21 from 2030 on. Pinned by
// Fuzz.time_format.
int64_t Century_Local(const struct tm &fields) {
    return (int64_t{fields.tm_year} + 1970) / 100;
}

// The text of a format of common directives, and the length of that format with its directives replaced, which has to fit
// as well.
class Common {
  public:
    explicit Common(const struct tm &fields) : m_fields(fields) {}

    // Result: false if it has other directives, or the text is long.
    bool Print(const char *szFormat) {
        for (const char *p = szFormat; *p != '\0'; ++p) {
            if (*p == '%') {
                if (!PutDirective(*++p))
                    return false;
            } else {
                ++m_nFormat;
                Put(*p);
            }
        }
        return m_nUsed <= sizeof m_szText;
    }
    // Result: characters copied, 0 if they do not fit.
    size_t CopyTo(char *szOut, size_t nMax) const {
        if (m_nUsed >= nMax || m_nFormat >= nMax)
            return 0;
        std::memcpy(szOut, m_szText, m_nUsed);
        szOut[m_nUsed] = '\0';
        return m_nUsed;
    }

  private:
    void Put(char c) {
        if (m_nUsed < sizeof m_szText)
            m_szText[m_nUsed] = c;
        ++m_nUsed;
    }
    bool PutName(nl_item first, int iField, int iNames) {
        if (iField < 0 || iField >= iNames)
            return false;
        for (const char *p = nl_langinfo(first + iField); *p != '\0'; ++p)
            Put(*p);
        return true;
    }
    // Nothing is put for a number that is negative or has more digits.
    bool PutNumber(int64_t iValue, int iDigits, char cPadding = '0') {
        char digits[4];
        for (int i = iDigits; i-- > 0; iValue /= 10)
            digits[i] = static_cast<char>(iValue == 0 && i < iDigits - 1 ? cPadding : '0' + iValue % 10);
        for (int i = 0; iValue == 0 && i < iDigits; ++i)
            Put(digits[i]);
        return iValue == 0;
    }
    bool PutField(int iField, int iAdd, int iDigits) {
        const int64_t iValue = int64_t{iField} + iAdd;
        return iValue >= 0 && PutNumber(iValue, iDigits);
    }
    bool PutYear(int iDigits) {
        const int64_t iYear = int64_t{m_fields.tm_year} + 1900;
        return iYear >= 1000 && iYear <= 9999 && PutNumber(iDigits == 2 ? iYear % 100 : iYear, iDigits);
    }
    // As the platform has it, after a blank: else a text of nothing could not be told from one that does not fit.
    bool PutPlatforms(char cDirective) {
        const char szFormat[] = {' ', '%', cDirective, '\0'};
        char szText[sizeof m_szText + 2];
        const size_t nLength = VYX_FormatFields_Inter(szText, sizeof szText, szFormat, &m_fields);
        for (size_t i = 1; i < nLength; ++i)
            Put(szText[i]);
        return nLength > 0;
    }
    bool PutCommon(char cDirective);
    bool PutDirective(char cDirective);

    const struct tm &m_fields;
    char m_szText[128];
    size_t m_nUsed = 0;
    size_t m_nFormat = 0;
};

// The most common ones, with a value in its range.
bool Common::PutCommon(char cDirective) {
    const bool bHour = m_fields.tm_hour >= 0 && m_fields.tm_hour < 24;
    switch (cDirective) {
    case 'Y':
        return PutYear(4);
    case 'y':
        return PutYear(2);
    case 'm':
        return PutField(m_fields.tm_mon, 1, 2);
    case 'd':
        return PutField(m_fields.tm_mday, 0, 2);
    case 'j':
        return PutField(m_fields.tm_yday, 1, 3);
    case 'H':
        return PutField(m_fields.tm_hour, 0, 2);
    case 'I':
        return bHour && PutField((m_fields.tm_hour + 11) % 12, 1, 2);
    case 'M':
        return PutField(m_fields.tm_min, 0, 2);
    case 'S':
        return PutField(m_fields.tm_sec, 0, 2);
    case 'p':
        return bHour && PutName(m_fields.tm_hour < 12 ? AM_STR : PM_STR, 0, 1);
    case 'a':
        return PutName(ABDAY_1, m_fields.tm_wday, 7);
    case 'b':
        return PutName(ABMON_1, m_fields.tm_mon, 12);
    default:
        return false;
    }
}

bool Common::PutDirective(char cDirective) {
    const char *szSequence = Sequence_Local(cDirective);
    if (szSequence != nullptr)
        return Print(szSequence); // whose length counts
    m_nFormat += 2;
    switch (cDirective) {
    case '%':
        Put('%');
        return true;
    case 'C':
        return m_fields.tm_year >= 0 && PutNumber(Century_Local(m_fields), 2, ' ');
    case 'e':
        return m_fields.tm_mday >= 0 && PutNumber(m_fields.tm_mday, 2, ' ');
    default:
        static const char szPlain[] =
            "ABFGHIMSUVWXYZabcdghjmnptuwxyz"; // complete without anything behind them; %s may set tzname
        return PutCommon(cDirective) || (cDirective != '\0' && std::strchr(szPlain, cDirective) != nullptr &&
                                         PutPlatforms(cDirective));
    }
}

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
    void PutNumber(int64_t iValue) {
        const size_t nLimit = std::min(m_nMax - m_nUsed, m_nRoom - m_nUsed);
        const int iLength = std::snprintf(&m_pText[m_nUsed], nLimit, "%2" PRId64, iValue);
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

void PutDirective_Local(Work &work, char cDirective, const struct tm &fields) {
    const char *szSequence = Sequence_Local(cDirective);
    if (szSequence != nullptr) {
        work.Put(szSequence);
    } else if (cDirective == 'C') {
        work.PutNumber(Century_Local(fields));
    } else if (cDirective == 'e') {
        work.PutNumber(fields.tm_mday);
    } else {
        work.Put('%');
        work.Put(cDirective);
    }
}

// By the platform, in a format that it knows. Result: characters written, 0 if they do not fit.
size_t Platform_Local(char *szOut, size_t nMax, const char *szFormat, const struct tm &fields) {
    const size_t nLength = std::strlen(szFormat);
    Work work(nMax, nLength);
    if (!work.IsValid())
        return 0;
    for (size_t i = 0; i < nLength && work.HasRoom(); ++i) {
        if (szFormat[i] == '%')
            PutDirective_Local(work, szFormat[++i], fields);
        else
            work.Put(szFormat[i]);
    }
    return work.HasRoom() ? VYX_FormatFields_Inter(szOut, nMax, work.Finish(), &fields) : 0;
}

} // namespace

size_t win32_strftime_extra(char *szOut, size_t nMax, const char *szFormat, const struct tm *pTm) {
    Common common(*pTm);
    const size_t nWritten =
        common.Print(szFormat) ? common.CopyTo(szOut, nMax) : Platform_Local(szOut, nMax, szFormat, *pTm);
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
    // Deliberate: widened with its sign, so a negative limit is as good as none. Pinned by
    // Fuzz.time_format.
    const auto nMax = static_cast<size_t>(static_cast<ptrdiff_t>(iMax));
    *pLen = static_cast<uint32_t>(win32_strftime_extra(szOut, nMax, szFormat, &fields));
    return VYX_OK;
}
