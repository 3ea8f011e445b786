/*
 * Time: one 64-bit value in microseconds, its conversions to calendar fields and text, and two small classes.
 * Nothing here needs the started library or prints, and every flat function may be called from any thread; what needs
 * the platform's calendar waits for other threads' use of it. Local time follows the environment's TZ, read at each call
 * as localtime does; a program that changes TZ while other threads convert must order the two itself. Where TZ is not
 * set, the system's zone is looked at once a second: a change of it shows within that time.
 *
 * Values whose microseconds do not fit 64 bits (beyond the years -290307 and 294246) wrap modulo 2^64.
 */
#ifndef VYX_TIME_H
#define VYX_TIME_H

#include <sys/time.h>
#include <time.h>
#include <vyx/types.h>

/* A point in time as calendar fields. */
typedef struct VYX_TIME_EXP_T {
    int32_t tm_usec;   /* microseconds past the second, 0-999999; negative for times before 1970 */
    int32_t tm_sec;    /* 0-60 */
    int32_t tm_min;    /* 0-59 */
    int32_t tm_hour;   /* 0-23 */
    int32_t tm_mday;   /* day of the month, 1-31 */
    int32_t tm_mon;    /* 0-11, January is 0 */
    int32_t tm_year;   /* years since 1900 */
    int32_t tm_wday;   /* 0-6, Sunday is 0 */
    int32_t tm_yday;   /* day of the year, 0-365 */
    int32_t tm_isdst;  /* daylight-saving flag as the platform reports it */
    int32_t tm_gmtoff; /* seconds east of UTC, without daylight saving */
} VYX_TIME_EXP_T;

VYX_BEGIN_DECLS

/* English names, each zero-terminated: "Sun" to "Sat", "Jan" to "Dec". */
extern VYX_API const char vyx_day_snames[7][4];
extern VYX_API const char vyx_month_snames[12][4];

/* The wall clock in microseconds (gettimeofday), -1 if it cannot be read. Not monotonic: it jumps when the clock is set. */
VYX_API VYX_TIME_T VYX_TimeNow(void);

/* The wall clock in milliseconds modulo 2^32; wraps about every 49.7 days. Compare ticks by unsigned
 * subtraction. */
VYX_API uint32_t VYX_GetTimeTick(void);

/* Between whole seconds and microseconds. The way back truncates toward zero, so -1 microsecond is second 0,
 * and is cut to the platform's time_t. */
VYX_API VYX_TIME_T VYX_TimeFromAnsiTime(time_t tAnsi);
VYX_API time_t VYX_AnsiTimeFromTime(VYX_TIME_T t);

/*
 * Break t down into calendar fields: of UTC shifted by iOffset seconds (kept in tm_gmtoff), of UTC, or of
 * local time (gmtime, localtime).
 *   pOut  written on success only
 *
 * The second is t / 1000000 and tm_usec is t % 1000000, both truncating toward zero: -1 microsecond is
 * 1970-01-01 00:00:00 with tm_usec -1. For local time tm_gmtoff is the zone's standard offset in whole
 * minutes, without daylight saving even where tm_isdst is set; VYX_TimeFromExpTimeGMT undoes exactly that.
 *
 * Result:  VYX_OK; VYX_ERROR if pOut is null or the platform cannot represent or read the time.
 */
VYX_API int32_t VYX_ExpTimeFromTime(VYX_TIME_T t, int32_t iOffset, VYX_TIME_EXP_T *pOut);
VYX_API int32_t VYX_ExpTimeFromTimeGMT(VYX_TIME_T t, VYX_TIME_EXP_T *pOut);
VYX_API int32_t VYX_ExpTimeFromTimeLocal(VYX_TIME_T t, VYX_TIME_EXP_T *pOut);

/*
 * The time of calendar fields taken as UTC. Only tm_year, tm_mon, tm_mday, tm_hour, tm_min, tm_sec and
 * tm_usec are read; days, hours and smaller fields out of range carry over.
 *   pOut  written on success only
 *
 * Result:  VYX_OK; VYX_ERROR if a pointer is null, tm_mon is not 0-11, or the time lies before 1970.
 */
VYX_API int32_t VYX_TimeFromExpTime(const VYX_TIME_EXP_T *pIn, VYX_TIME_T *pOut);

/*
 * As VYX_TimeFromExpTime, then less tm_gmtoff: the time of local fields.
 *
 * Result:  VYX_ERROR only if a pointer is null. Otherwise VYX_OK, also for fields that VYX_TimeFromExpTime
 *          refuses: pOut then keeps its old value, so set it beforehand where that can happen.
 */
VYX_API int32_t VYX_TimeFromExpTimeGMT(const VYX_TIME_EXP_T *pIn, VYX_TIME_T *pOut);

/*
 * Writes local time as "Thu Nov 05 09:04:03 2026": always 24 characters and a zero, no line feed, the day of
 * the month with a leading zero.
 *   szBuf25  at least 25 bytes
 *
 * Result:  VYX_OK; VYX_ERROR if szBuf25 is null. Of a year the last four digits are shown.
 */
VYX_API int32_t VYX_CTime(char *szBuf25, VYX_TIME_T t);

/*
 * Formats calendar fields by win32_strftime_extra, which see.
 *   szOut  receives the text; iMax bytes, at least 1. A negative iMax counts as unlimited
 *   pLen   receives the number of characters written, without the zero; 0 if the text did not fit
 *   pIn    tm_usec and tm_gmtoff are not used
 *
 * Result:  VYX_OK, also when nothing fitted; VYX_ERROR if a pointer is null.
 */
VYX_API int32_t VYX_StrFmtTime(char *szOut, uint32_t *pLen, int32_t iMax, const char *szFormat,
                               const VYX_TIME_EXP_T *pIn);

/*
 * strftime with the directives "%C", "%D", "%R", "%T", "%e" and "%r" defined alike on every platform:
 *   %C  (tm_year + 1970) / 100 as "%2d". It counts from 1970, not 1900: 20 up to the year 2029, 21 from 2030
 *   %D  %m/%d/%y     %R  %H:%M     %T  %H:%M:%S     %e  day of the month, blank-padded     %r  %I:%M:%S %p
 * All others go to the platform's strftime as they are.
 *   szOut  nMax bytes
 *
 * The format with these directives replaced must be shorter than nMax too.
 *
 * Result:  characters written, without the zero; 0 with an empty text if the format or the text did not fit
 *          or memory was short. One zero byte is written even if nMax is 0.
 * Errors:  pointers are not checked for null.
 */
VYX_API size_t win32_strftime_extra(char *szOut, size_t nMax, const char *szFormat, const struct tm *pTm);

VYX_END_DECLS

#ifdef __cplusplus

namespace vyx {

/*
 * A calendar time in whole seconds, with its local fields at hand. An object is used by one thread at a time.
 * The fields follow the time zone at the moment the time was set.
 */
class VYX_API vyx_time {
  public:
    /* The current time. */
    vyx_time();
    /* t seconds since 1970-01-01 00:00:00 UTC; may be negative. */
    vyx_time(int64_t t);
    vyx_time(const vyx_time &other);
    virtual ~vyx_time();

    /* Take over the current time and return it, in seconds. */
    int64_t now();
    int64_t update_time();

    /* Seconds since 1970-01-01 00:00:00 UTC. */
    int64_t get_time() const;
    /* The full year, such as 2026. */
    int get_year() const;
    /* 0-11, January is 0. */
    int get_mon() const;
    /* Day of the month, 1-31, both. */
    int get_day() const;
    int get_mon_day() const;
    int get_hour() const;
    int get_min() const;
    int get_sec() const;
    /* 0-6, Sunday is 0. */
    int get_week_day() const;
    /* 0-365. */
    int get_year_day() const;

    /* Local fields of t into *out, which is returned; null with *out as it was if t is negative, out is null
     * or the year does not fit an int. */
    static struct tm *time2tm(int64_t t, struct tm *out);

    /* Fields are refreshed only if the new time is not negative. */
    vyx_time &operator=(const vyx_time &other);
    vyx_time &operator+=(const vyx_time &other);
    /* A negative difference becomes 0. */
    vyx_time &operator-=(const vyx_time &other);

  private:
    int64_t m_time;
    struct tm m_tm;
};

/* Compare the seconds only. */
VYX_API bool operator==(const vyx_time &a, const vyx_time &b);
VYX_API bool operator!=(const vyx_time &a, const vyx_time &b);
VYX_API bool operator>(const vyx_time &a, const vyx_time &b);
VYX_API bool operator<(const vyx_time &a, const vyx_time &b);

/* A point in time in microseconds; -1 if the clock could not be read. Used by one thread at a time. */
class VYX_API vyx_time_tick {
  public:
    /* The current time. */
    vyx_time_tick();
    /* t microseconds. */
    vyx_time_tick(int64_t t);
    vyx_time_tick(const vyx_time_tick &other);
    virtual ~vyx_time_tick();

    /* The wall clock in microseconds, or -1. */
    static int64_t now();
    /* Takes over now() and returns it. */
    int64_t update_time();
    int64_t get_time() const;

    /* No clamping: differences may be negative. */
    vyx_time_tick &operator=(const vyx_time_tick &other);
    vyx_time_tick &operator+=(const vyx_time_tick &other);
    vyx_time_tick &operator-=(const vyx_time_tick &other);

    /*
     * Conversions. To whole units they round half up, to a timeval they truncate. A negative value, a null
     * pointer, or a timeval with a field of -1 gives -1 or null; other negative fields are computed with as
     * they are. Those with a tv to fill return it.
     */
    static int64_t timeval2ms(struct timeval *tv);
    static struct timeval *ms2timeval(int64_t ms, struct timeval *tv);
    static int64_t timeval2us(struct timeval *tv);
    static struct timeval *us2timeval(int64_t us, struct timeval *tv);
    static int64_t us2ms(int64_t us);
    static int64_t us2s(int64_t us);
    static int64_t ms2s(int64_t ms);

  private:
    VYX_TIME_T m_time;
};

VYX_API bool operator==(const vyx_time_tick &a, const vyx_time_tick &b);
VYX_API bool operator>(const vyx_time_tick &a, const vyx_time_tick &b);
VYX_API bool operator<(const vyx_time_tick &a, const vyx_time_tick &b);

} // namespace vyx

#endif

#endif
