// VYX_Strcasestr, for texts and needles that a stranger may have sent: the time is proportional to their lengths.
//
// The text is searched in parts, so that a match near its start is found without reading the rest. In a part every
// place is tried in order, except that blocks of places are passed over where the needle's first and last byte nowhere
// fit both; as that takes some preparation, the first part does without it. Tries that fail late may cost more than
// they bring on. When too many bytes of a part were compared in vain, the rest of the text is searched by the two-way
// method (Crochemore and Perrin), which compares no byte more than a few times.
//
// The first byte is compared in lower case and the others in upper case. In some locales that is not the same.
#include <algorithm>
#include <cstring>

#include "string/string_inter.h"

namespace {

using vyx_inter::Fold;

constexpr size_t kPart = 128;   // places; as many as the needle has bytes if these are more
constexpr size_t kBlock = 64;   // places
constexpr size_t kPatience = 1; // bytes compared in vain for each place of a part

// The two-way method, for a pattern that is compared in upper case. The pattern is cut in two, so that a period of the
// bytes around the cut is one of the whole pattern. The right part is compared first, forward, then the left one,
// backward. Where the right part fails, the pattern moves on behind the byte that differs; otherwise by its period.
class TwoWay {
  public:
    TwoWay(const char *pPattern, size_t nLength) : m_pPattern(pPattern), m_nLength(nLength) {
        const Suffix up = GreatestSuffix(1);
        const Suffix down = GreatestSuffix(-1);
        const Suffix &suffix = up.nStart > down.nStart ? up : down;
        m_nCut = suffix.nStart;
        m_nShift = suffix.nPeriod;
        size_t n = 0;
        while (n < m_nCut && Fits(n, pPattern[n + m_nShift]))
            ++n;
        if (n == m_nCut)
            m_nOverlap = nLength - m_nShift;
        else // the pattern's period is longer than both parts
            m_nShift = std::max(m_nCut, nLength - m_nCut) + 1;
    }

    // The first place in the text up to pEnd where the pattern stands and fnAccept agrees; null if there is none.
    template <class Accept>
    const char *In(const char *p, const char *pEnd, Accept fnAccept) const {
        const Fold upper = m_upper;
        const int32_t iCut = upper(m_pPattern[m_nCut]);
        size_t nKnown = 0; // bytes from p on that are known to fit
        while (static_cast<size_t>(pEnd - p) >= m_nLength) {
            for (const char *const pLast = pEnd - m_nLength;
                 nKnown == 0 && p != pLast && upper(p[m_nCut]) != iCut;)
                ++p;
            size_t n = std::max(m_nCut, nKnown);
            while (n < m_nLength && Fits(n, p[n]))
                ++n;
            if (n < m_nLength) {
                p += n - m_nCut + 1;
                nKnown = 0;
                continue;
            }
            for (n = m_nCut; n > nKnown && Fits(n - 1, p[n - 1]);)
                --n;
            if (n <= nKnown && fnAccept(p))
                return p;
            p += m_nShift;
            nKnown = m_nOverlap;
        }
        return nullptr;
    }

  private:
    struct Suffix {
        size_t nStart;
        size_t nPeriod;
    };

    bool Fits(size_t n, char c) const { return m_upper(m_pPattern[n]) == m_upper(c); }

    // The greatest suffix in an order of the bytes: 1 for the usual one, -1 for its reverse.
    Suffix GreatestSuffix(int32_t iOrder) const {
        Suffix greatest = {0, 1};
        size_t nOther = 1; // start of the suffix that it is compared with
        for (size_t n = 0; nOther + n < m_nLength;) {
            const int32_t iDifference =
                iOrder * (m_upper(m_pPattern[nOther + n]) - m_upper(m_pPattern[greatest.nStart + n]));
            if (iDifference > 0) {
                greatest = {nOther++, 1};
                n = 0;
            } else if (iDifference < 0) {
                nOther += n + 1;
                greatest.nPeriod = nOther - greatest.nStart;
                n = 0;
            } else if (++n == greatest.nPeriod) {
                nOther += n;
                n = 0;
            }
        }
        return greatest;
    }

    const Fold m_upper = vyx_inter::ToUpper();
    const char *m_pPattern;
    size_t m_nLength;
    size_t m_nCut;         // where the right part begins
    size_t m_nShift;       // to the next place that is possible, where the right part fits
    size_t m_nOverlap = 0; // bytes known to fit there
};

// The bytes that are folded to the same as one of the needle's: itself and perhaps one more. Or there are too many.
class Alike {
  public:
    Alike() = default;
    Alike(const Fold &fold, char c, const Fold &otherFold) : m_one(c), m_other(c) {
        const int32_t iFolded = fold(c);
        int32_t nCount = 0;
        for (int32_t i = 1; i < 256; ++i)
            nCount += fold(static_cast<char>(i)) == iFolded ? 1 : 0;
        for (const int32_t i : {iFolded, otherFold(c)})
            if (static_cast<char>(i) != c && fold(static_cast<char>(i)) == iFolded)
                m_other = static_cast<char>(i);
        m_bAll = nCount == (m_other == c ? 1 : 2);
    }
    // 1 or 0, as wide as a byte, so that compilers do many at once.
    unsigned char Has(char c) const { return static_cast<unsigned char>((c == m_one) | (c == m_other)); }
    bool HasAll() const { return m_bAll; }

  private:
    char m_one = 0;
    char m_other = 0;
    bool m_bAll = false;
};

class Search {
  public:
    explicit Search(const char *szNeedle)
        : m_pNeedle(szNeedle), m_nLength(std::strlen(szNeedle)), m_iFirst(m_lower(*szNeedle)) {}

    const char *In(const char *p) {
        const size_t nPart = std::max(kPart, m_nLength);
        for (bool bMore = true; bMore; PrepareBlocks()) {
            const size_t nBytes = strnlen(p, nPart + m_nLength - 1);
            bMore = nBytes == nPart + m_nLength - 1;
            const char *const pEnd = p + (nBytes < m_nLength ? 0 : nBytes - m_nLength + 1);
            const size_t nLimit = kPatience * nPart;
            m_nCompared = 0;
            p = Try(p, pEnd, nLimit);
            if (m_nCompared > nLimit)
                return Thorough(p);
            if (p != pEnd)
                return p;
        }
        return nullptr;
    }

  private:
    // The first place where the needle stands, or where more than nLimit bytes were compared; pEnd if there is none.
    const char *Try(const char *p, const char *pEnd, size_t nLimit) {
        while (p != pEnd) {
            const char *const pStop = p + std::min(kBlock, static_cast<size_t>(pEnd - p));
            if (m_bBlocks && pStop - p == kBlock && !MayStand(p))
                p = pStop;
            while ((p = NextFirst(p, pStop)) != pStop) {
                if (RestStands(p) || m_nCompared > nLimit)
                    return p;
                ++p;
            }
        }
        return pEnd;
    }

    const char *NextFirst(const char *p, const char *pStop) const {
        const Fold lower = m_lower;
        const int32_t iFirst = m_iFirst;
        while (p != pStop && lower(*p) != iFirst)
            ++p;
        return p;
    }

    bool RestStands(const char *p) {
        size_t n = 1;
        while (n < m_nLength && m_upper(p[n]) == m_upper(m_pNeedle[n]))
            ++n;
        m_nCompared += n;
        return n == m_nLength;
    }

    void PrepareBlocks() {
        if (m_bBlocks)
            return;
        m_first = Alike(m_lower, *m_pNeedle, m_upper);
        m_last = m_nLength == 1 ? m_first : Alike(m_upper, m_pNeedle[m_nLength - 1], m_lower);
        m_bBlocks = m_first.HasAll() && m_last.HasAll();
    }

    // Whether the needle's ends fit at any place of a block.
    bool MayStand(const char *p) const {
        const char *const pLast = p + (m_nLength - 1);
        unsigned char byFits = 0;
        for (size_t i = 0; i < kBlock; ++i)
            byFits = static_cast<unsigned char>(byFits | (m_first.Has(p[i]) & m_last.Has(pLast[i])));
        return byFits != 0;
    }

    const char *Thorough(const char *p) const {
        const TwoWay rest(m_pNeedle + 1, m_nLength - 1);
        const auto fnFirstStands = [this](const char *pRest) { return m_lower(pRest[-1]) == m_iFirst; };
        const char *pRest = rest.In(p + 1, p + 1 + std::strlen(p + 1), fnFirstStands);
        return pRest == nullptr ? nullptr : pRest - 1;
    }

    const Fold m_lower = vyx_inter::ToLower();
    const Fold m_upper = vyx_inter::ToUpper();
    const char *m_pNeedle;
    size_t m_nLength;
    int32_t m_iFirst;
    size_t m_nCompared = 0; // bytes of this part
    bool m_bBlocks = false; // blocks can be passed over, by these:
    Alike m_first;
    Alike m_last;
};

} // namespace

char *VYX_Strcasestr(const char *szText, const char *szNeedle) {
    if (*szNeedle == '\0')
        return const_cast<char *>(szText);
    return const_cast<char *>(Search(szNeedle).In(szText)); // the caller's own text
}
