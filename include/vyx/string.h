/*
 * Byte strings and number conversions. Nothing here needs the started library, keeps state or prints, and errno is
 * left alone. Any thread may call any function. Characters are bytes; strings end at a zero byte. Arguments are
 * borrowed for the call. String pointers are not checked for null unless a function says so: null is undefined
 * behaviour. Case is folded as the C library's current locale does it.
 *
 * Some meanings differ from the C library's functions of similar names, on purpose; each says where.
 */
#ifndef VYX_STRING_H
#define VYX_STRING_H

#include <vyx/types.h>

VYX_BEGIN_DECLS

/* ---- Numbers ---------------------------------------------------------------------------------------------- */

/*
 * Writes a 32-bit number as text, with lower-case letters for digits above 9 and a minus sign in radix 10 only.
 *   szOut   at least 34 bytes; in radix 10, 12 suffice
 *   nRadix  2 to 36
 *
 * A negative value in another radix, and INT32_MIN in radix 10, comes out as a single character below '0' (after the
 * sign, if any), which is no number: convert such values with another radix or another function.
 *
 * Result:  szOut; null, with nothing written, if nRadix is out of range or szOut is null.
 * Threads: any, with a szOut of their own.
 */
VYX_API char *VYX_Itoa(char *szOut, int32_t iValue, uint32_t nRadix);

/*
 * Writes a 64-bit number as text, with lower-case letters for digits above 9 and a minus sign in radix 10 only.
 *   szOut   at least 66 bytes; in radix 10, 21 suffice
 *   nRadix  2 to 36
 *
 * A negative value in another radix, and INT64_MIN in radix 10, comes out as a single character below '0' (after the
 * sign, if any), which is no number: convert such values with another radix or another function.
 *
 * Result:  szOut; null, with nothing written, if nRadix is out of range or szOut is null.
 * Threads: any, with a szOut of their own.
 */
VYX_API char *VYX_Ltoa(char *szOut, int64_t iValue, uint32_t nRadix);

/*
 * Reads a 32-bit number: leading white space, a sign, and digits.
 *   ppEnd  receives the place after the last digit, or szText if there was none or nBase is refused; may be null
 *   nBase  2 to 16; 0 takes 16 after "0x" or "0X", else 8 after "0", else 10. With 16 a "0x" is skipped too
 *
 * Unlike strtol: bases 17 to 36 are refused, and a digit that equals the base is accepted, so that "18" in base 8
 * is 1 * 8 + 8.
 *
 * Result:  the value; 0 without a digit or for a refused base, which *ppEnd tells from a 0 that was read; INT32_MAX
 *          or INT32_MIN once an overflow is seen. It is seen when a step of value * base + digit, computed modulo
 *          2^32, moves the wrong way: a number much too large can slip through with a meaningless value. errno is not
 *          set.
 * Threads: any.
 */
VYX_API int32_t VYX_StrToi32(const char *szText, char **ppEnd, uint32_t nBase);

/*
 * Reads a 64-bit number: leading white space, a sign, and digits.
 *   ppEnd  receives the place after the last digit, or szText if there was none or nBase is refused; may be null
 *   nBase  2 to 16; 0 takes 16 after "0x" or "0X", else 8 after "0", else 10. With 16 a "0x" is skipped too
 *
 * Unlike strtoll: bases 17 to 36 are refused, and a digit that equals the base is accepted, so that "18" in base 8
 * is 1 * 8 + 8.
 *
 * Result:  the value; 0 without a digit or for a refused base, which *ppEnd tells from a 0 that was read; INT64_MAX
 *          or INT64_MIN once an overflow is seen. It is seen when a step of value * base + digit, computed modulo
 *          2^64, moves the wrong way: a number much too large can slip through with a meaningless value. errno is not
 *          set.
 * Threads: any.
 */
VYX_API int64_t VYX_StrToi64(const char *szText, char **ppEnd, uint32_t nBase);

/*
 * Reads a 32-bit number in base 10, as VYX_StrToi32: an 'a' counts as ten.
 *
 * Result:  the value; 0 also if there is none; INT32_MAX or INT32_MIN on overflow. errno is not set.
 * Threads: any.
 */
VYX_API int32_t VYX_Atoi32(const char *szText);

/*
 * Reads a 64-bit number in base 10, as VYX_StrToi64: an 'a' counts as ten.
 *
 * Result:  the value; 0 also if there is none; INT64_MAX or INT64_MIN on overflow. errno is not set.
 * Threads: any.
 */
VYX_API int64_t VYX_Atoi64(const char *szText);

/* ---- Copies ----------------------------------------------------------------------------------------------- */

/*
 * Copies a text and its zero.
 *   szDest  room for both; must not overlap with the text
 *
 * Result:  szDest. It cannot fail.
 * Threads: any, with a szDest of their own.
 */
VYX_API char *VYX_Strcpy(char *szDest, const char *szSource);

/*
 * Copies at most iCount bytes of a text. A shorter text is filled up to iCount with zeros; a longer one, and one of
 * just iCount bytes, is left without a zero at its end.
 *   szDest  iCount bytes; must not overlap with the text
 *   iCount  bytes; 0 or less copies nothing
 *
 * Result:  szDest. It cannot fail.
 * Threads: any, with a szDest of their own.
 */
VYX_API char *VYX_Strncpy(char *szDest, const char *szSource, int32_t iCount);

/*
 * Copies a text into new memory.
 *
 * Result:  the copy, which the caller gives back with free(); null if memory is short.
 * Threads: any.
 */
VYX_API char *VYX_Strdup(const char *szText);

/*
 * Copies at most iLimit bytes of a text into new memory, and a zero behind them.
 *   iLimit  bytes
 *
 * Result:  the copy, which the caller gives back with free(); null if memory is short or iLimit is negative.
 * Threads: any.
 */
VYX_API char *VYX_Strndup(const char *szText, int32_t iLimit);

/* ---- Comparisons ------------------------------------------------------------------------------------------ */

/*
 * Compares two texts.
 *
 * Result:  0 if they are equal; otherwise the first differing byte of szA less that of szB, both unsigned.
 * Threads: any.
 */
VYX_API int32_t VYX_Strcmp(const char *szA, const char *szB);

/*
 * Compares at most nCount bytes of two texts.
 *
 * Result:  0 if they are equal, or nCount is 0; otherwise the first differing byte of szA less that of szB, both
 *          unsigned.
 * Threads: any.
 */
VYX_API int32_t VYX_Strncmp(const char *szA, const char *szB, uint32_t nCount);

/*
 * Compares two texts in upper case. The C library's strcasecmp folds to lower case, which gives another order where
 * letters meet the characters between 'Z' and 'a'.
 *
 * Result:  0 if they are equal; otherwise the first differing byte of szA less that of szB, both put through toupper.
 * Threads: any.
 */
VYX_API int32_t VYX_Strcasecmp(const char *szA, const char *szB);

/*
 * Compares at most iCount bytes of two texts in upper case.
 *   iCount  bytes; a negative one compares the first bytes only
 *
 * Result:  0 if they are equal, or iCount is 0; otherwise the first differing byte of szA less that of szB, both put
 *          through toupper.
 * Threads: any.
 */
VYX_API int32_t VYX_Strncasecmp(const char *szA, const char *szB, int32_t iCount);

/* ---- Searches: each returns the place found, in the text itself, or null ------------------------------------ */

/*
 * Finds the first c in a text. Unlike strchr, the terminating zero is found in an empty text only.
 *
 * Result:  the place in szText; null if there is none.
 * Threads: any.
 */
VYX_API char *VYX_Strchr(const char *szText, char c);

/*
 * Finds the first c in a number of bytes, which may hold zeros.
 *   iCount  bytes at pBuf; nothing is found in 0 or less
 *
 * Result:  the place in pBuf; null if there is none.
 * Threads: any.
 */
VYX_API char *VYX_Strnchr(const char *pBuf, char c, int32_t iCount);

/*
 * Finds the first place of a text where another one stands (strstr). An empty needle is found at the start.
 *
 * Result:  the place in szText; null if there is none.
 * Threads: any.
 */
VYX_API char *VYX_Strstr(const char *szText, const char *szNeedle);

/*
 * Finds the first place of a text where the first bytes of another one stand.
 *   iLength  bytes of the needle that must stand there, and that it must have; it does not limit the text. 0 finds
 *            the text itself, a negative one nothing
 *
 * Result:  the place in szText; null if there is none.
 * Threads: any.
 */
VYX_API char *VYX_Strnstr(const char *szText, const char *szNeedle, int32_t iLength);

/*
 * Finds the first place of a text where another one stands, whatever the case of letters. An empty needle is found at
 * the start. The time is proportional to the lengths, whatever the texts hold.
 *
 * Result:  the place in szText; null if there is none.
 * Threads: any.
 */
VYX_API char *VYX_Strcasestr(const char *szText, const char *szNeedle);

VYX_END_DECLS

#ifdef __cplusplus

namespace vyx {

/* The C library's functions of the same names, and VYX_Itoa as itoa. Any thread may call any of them. */
class VYX_API vyx_string {
  public:
    /* As atoi: the number at the start of a text; 0 also if there is none. Threads: any. */
    static int atoi(const char *s);
    /* As VYX_Itoa: null for a radix outside 2 to 36. Threads: any. */
    static char *itoa(char *out, int value, int radix);
    /* As strcpy: d, which has room for the text and its zero. Threads: any. */
    static char *strcpy(char *d, const char *s);
    /* As strncpy: d, without a zero at its end if the text has n bytes or more. Threads: any. */
    static char *strncpy(char *d, const char *s, int n);
    /* As strcat: d, with s put behind its text. Threads: any. */
    static char *strcat(char *d, char *s);
    /* As strlen: bytes before the zero. Threads: any. */
    static size_t strlen(const char *s);
    /* As strcmp: 0 if equal; otherwise only the sign counts. Threads: any. */
    static int strcmp(const char *a, const char *b);
    /* As strcasecmp, in lower case: 0 if equal; otherwise only the sign counts. Threads: any. */
    static int strcasecmp(const char *a, const char *b);
    /* As strncasecmp, at most n bytes in lower case: 0 if equal; otherwise only the sign counts. Threads: any. */
    static int strncasecmp(const char *a, const char *b, int n);
    /* As strchr: the first c, the terminating zero included; null if there is none. Threads: any. */
    static char *strchr(const char *s, char c);
    /* As strrchr: the last c, the terminating zero included; null if there is none. Threads: any. */
    static char *strrchr(const char *s, char c);
    /* As strstr: the first place of the needle; null if there is none. Threads: any. */
    static char *strstr(const char *s, const char *needle);
};

} // namespace vyx

#endif

#endif
