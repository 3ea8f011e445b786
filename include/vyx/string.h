/*
 * Byte strings and number conversions. Nothing here needs the started library, keeps state or prints, and errno
 * is left alone. Any thread may call any function. Characters are bytes; strings end at a zero byte. String
 * pointers are not checked for null unless a function says so, and case is folded as the C library's current
 * locale does it.
 *
 * Some meanings differ from the C library's functions of similar names, on purpose; each says where.
 */
#ifndef VYX_STRING_H
#define VYX_STRING_H

#include <vyx/types.h>

VYX_BEGIN_DECLS

/* ---- Numbers ---------------------------------------------------------------------------------------------- */

/*
 * Write a number as text, with lower-case letters for digits above 9.
 *   szOut   at least 34 bytes for VYX_Itoa and 66 for VYX_Ltoa; in radix 10, 12 and 21 suffice
 *   nRadix  2 to 36
 *
 * A minus sign is written in radix 10 only. A negative value in another radix, and the most negative one in
 * radix 10, comes out as a single character below '0' (after the sign, if any): these are not numbers. Convert
 * such values with another radix or another function.
 *
 * Result:  szOut; null, with nothing written, if nRadix is out of range or szOut is null.
 */
VYX_API char *VYX_Itoa(char *szOut, int32_t iValue, uint32_t nRadix);
VYX_API char *VYX_Ltoa(char *szOut, int64_t iValue, uint32_t nRadix);

/*
 * Read a number: leading white space, a sign, and digits.
 *   ppEnd  receives the place after the last digit, or szText if there was none or nBase is refused; may be null
 *   nBase  2 to 16; 0 takes 16 after "0x" or "0X", else 8 after "0", else 10. With 16 a "0x" is skipped too
 *
 * Unlike strtol: bases 17 to 36 are refused, and a digit that equals the base is accepted, so that "18" in base 8
 * is 1 * 8 + 8.
 *
 * Result:  the value; 0 without a digit or for a refused base; the type's maximum or minimum once an overflow is
 *          seen. Overflow is noticed when a step of acc * base + digit, computed modulo the type's width, moves
 *          the wrong way: a number much too large can slip through with a meaningless value.
 */
VYX_API int32_t VYX_StrToi32(const char *szText, char **ppEnd, uint32_t nBase);
VYX_API int64_t VYX_StrToi64(const char *szText, char **ppEnd, uint32_t nBase);

/* As VYX_StrToi32 and VYX_StrToi64 in base 10, without an end. */
VYX_API int32_t VYX_Atoi32(const char *szText);
VYX_API int64_t VYX_Atoi64(const char *szText);

/* ---- Copies ----------------------------------------------------------------------------------------------- */

/* Copies the text and its zero; the ranges must not overlap. Returns szDest. */
VYX_API char *VYX_Strcpy(char *szDest, const char *szSource);

/*
 * Copies at most iCount bytes; a shorter text is filled up to iCount with zeros, a longer one is left without
 * a zero at its end. An iCount of 0 or less copies nothing. Returns szDest.
 */
VYX_API char *VYX_Strncpy(char *szDest, const char *szSource, int32_t iCount);

/*
 * Copy the text, or at most iLimit bytes of it, into new memory that the caller frees with free().
 *
 * Result:  the copy, always with a zero at its end; null if memory is short or iLimit is negative.
 */
VYX_API char *VYX_Strdup(const char *szText);
VYX_API char *VYX_Strndup(const char *szText, int32_t iLimit);

/* ---- Comparisons ------------------------------------------------------------------------------------------ */

/*
 * Compare two texts, or at most nCount bytes of them.
 *
 * Result:  0 if they are equal; otherwise the first differing byte of szA less that of szB, both unsigned.
 */
VYX_API int32_t VYX_Strcmp(const char *szA, const char *szB);
VYX_API int32_t VYX_Strncmp(const char *szA, const char *szB, uint32_t nCount);

/* As above, with every byte put through toupper first; the result is the difference of those. A negative
 * iCount compares the first bytes only. */
VYX_API int32_t VYX_Strcasecmp(const char *szA, const char *szB);
VYX_API int32_t VYX_Strncasecmp(const char *szA, const char *szB, int32_t iCount);

/* ---- Searches: each returns the place found, or null ------------------------------------------------------- */

/* The first c in the text. Unlike strchr, the terminating zero is found in an empty text only. */
VYX_API char *VYX_Strchr(const char *szText, char c);

/* The first c in iCount bytes, which may hold zeros; null if iCount is 0 or less. */
VYX_API char *VYX_Strnchr(const char *pBuf, char c, int32_t iCount);

/* The first szNeedle in the text (strstr). */
VYX_API char *VYX_Strstr(const char *szText, const char *szNeedle);

/*
 * The first place in the text where the first iLength bytes of szNeedle stand. iLength counts bytes of the
 * needle, which must have as many; it does not limit the text. 0 finds the text itself, a negative one nothing.
 */
VYX_API char *VYX_Strnstr(const char *szText, const char *szNeedle, int32_t iLength);

/* The first szNeedle in the text, case folded. An empty needle finds the text itself. */
VYX_API char *VYX_Strcasestr(const char *szText, const char *szNeedle);

VYX_END_DECLS

#ifdef __cplusplus

namespace vyx {

/* The C library's functions of the same names; itoa is VYX_Itoa. */
class VYX_API vyx_string {
  public:
    static int atoi(const char *s);
    static char *itoa(char *out, int value, int radix);
    static char *strcpy(char *d, const char *s);
    static char *strncpy(char *d, const char *s, int n);
    static char *strcat(char *d, char *s);
    static size_t strlen(const char *s);
    static int strcmp(const char *a, const char *b);
    static int strcasecmp(const char *a, const char *b);
    static int strncasecmp(const char *a, const char *b, int n);
    static char *strchr(const char *s, char c);
    static char *strrchr(const char *s, char c);
    static char *strstr(const char *s, const char *needle);
};

} // namespace vyx

#endif

#endif
