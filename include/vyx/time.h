/*
 * Time: one 64-bit value in microseconds, its conversions to calendar fields and text, and two small classes.
 * Nothing here needs the started library or prints, and every flat function may be called from any thread; what needs
 * the platform's calendar waits for other threads' use of it. Local time follows the environment's TZ, read at each
 * call as localtime does; a program that changes TZ while other threads convert must order the two itself. Where TZ is
 * not set, the system's zone is looked at once a second: a change of it shows within that time.
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
    int32_t tm_gmtoff; /* seconds east of UTC, without daylight saving, as the zone has them at present */
} VYX_TIME_EXP_T;

VYX_BEGIN_DECLS

/* English names of the days, each zero-terminated: "Sun" to "Sat". */
extern VYX_API const char vyx_day_snames[7][4];

/* English names of the months, each zero-terminated: "Jan" to "Dec". */
extern VYX_API const char vyx_month_snames[12][4];

/*
 * Reads the wall clock (gettimeofday). Not monotonic: it jumps when the clock is set.
 *
 * Result:  microseconds since 1970; -1 if the clock cannot be read.
 * Threads: any.
 */
VYX_API VYX_TIME_T VYX_TimeNow(void);

/*
 * Reads the wall clock as a tick, which wraps about every 49.7 days and jumps when the clock is set. Compare ticks by
 * unsigned subtraction.
 *
 * Result:  milliseconds since 1970 modulo 2^32.
 * Threads: any.
 */
VYX_API uint32_t VYX_GetTimeTick(void);

/* Turns seconds since 1970 into the library's time. Result: microseconds. Threads: any. */
VYX_API VYX_TIME_T VYX_TimeFromAnsiTime(time_t tAnsi);

/*
 * Turns the library's time into seconds.
 *
 * Result:  whole seconds since 1970, truncated toward zero, so that -1 microsecond is second 0, and cut to the
 *          platform's time_t.
 * Threads: any.
 */
VYX_API time_t VYX_AnsiTimeFromTime(VYX_TIME_T t);

/*
 * Breaks t down into calendar fields of UTC shifted by an offset (gmtime).
 *   t        microseconds since 1970
 *   iOffset  seconds east; kept in tm_gmtoff
 *   pOut     written on success only
 *
 * The second is t / 1000000 and tm_usec is t % 1000000, both truncating toward zero: -1 microsecond is
 * 1970-01-01 00:00:00 with tm_usec -1.
 *
 * Result:  VYX_OK; VYX_ERROR if pOut is null or the year does not fit.
 * Threads: any.
 */
VYX_API int32_t VYX_ExpTimeFromTime(VYX_TIME_T t, int32_t iOffset, VYX_TIME_EXP_T *pOut);

/*
 * Breaks t down into calendar fields of UTC: VYX_ExpTimeFromTime with an offset of 0.
 *   t     microseconds since 1970
 *   pOut  written on success only
 *
 * Result:  VYX_OK; VYX_ERROR if pOut is null or the year does not fit.
 * Threads: any.
 */
VYX_API int32_t VYX_ExpTimeFromTimeGMT(VYX_TIME_T t, VYX_TIME_EXP_T *pOut);

/*
 * Breaks t down into calendar fields of local time (localtime), otherwise as VYX_ExpTimeFromTime.
 *   t     microseconds since 1970
 *   pOut  written on success only
 *
 * tm_gmtoff is not the offset that was in force at t: it is the zone's present standard offset in whole minutes,
 * without daylight saving even where tm_isdst is set, also for times at which the zone had another one.
 * VYX_TimeFromExpTimeGMT undoes exactly that: the way back is late by the daylight saving, or by what the zone has
 * changed since.
 *
 * Result:  VYX_OK; VYX_ERROR if pOut is null, the year does not fit, or the platform cannot read the zone.
 * Threads: any; TZ may not be changed meanwhile.
 */
VYX_API int32_t VYX_ExpTimeFromTimeLocal(VYX_TIME_T t, VYX_TIME_EXP_T *pOut);

/*
 * The time of calendar fields taken as UTC. Only tm_year, tm_mon, tm_mday, tm_hour, tm_min, tm_sec and
 * tm_usec are read; days, hours and smaller fields out of range carry over.
 *   pOut  receives microseconds since 1970, on success only
 *
 * Result:  VYX_OK; VYX_ERROR if a pointer is null, tm_mon is not 0-11, or the time lies before 1970.
 * Threads: any.
 */
VYX_API int32_t VYX_TimeFromExpTime(const VYX_TIME_EXP_T *pIn, VYX_TIME_T *pOut);

/*
 * As VYX_TimeFromExpTime, then less tm_gmtoff: the time of local fields.
 *
 * Result:  VYX_ERROR only if a pointer is null. Otherwise VYX_OK, also for fields that VYX_TimeFromExpTime
 *          refuses: pOut then keeps its old value, so set it beforehand where that can happen.
 * Threads: any.
 */
VYX_API int32_t VYX_TimeFromExpTimeGMT(const VYX_TIME_EXP_T *pIn, VYX_TIME_T *pOut);

/*
 * Writes local time as "Thu Nov 05 09:04:03 2026": always 24 characters and a zero, no line feed, the day of
 * the month with a leading zero, the names in English.
 *   szBuf25  at least 25 bytes
 *   t        microseconds since 1970
 *
 * Result:  VYX_OK; VYX_ERROR if szBuf25 is null. Of a year the last four digits are shown.
 * Threads: any; TZ may not be changed meanwhile.
 */
VYX_API int32_t VYX_CTime(char *szBuf25, VYX_TIME_T t);

/*
 * Formats calendar fields by win32_strftime_extra, which see.
 *   szOut  receives the text; iMax bytes, at least 1. A negative iMax counts as unlimited
 *   pLen   receives the number of characters written, without the zero; 0 if the text did not fit
 *   pIn    tm_usec and tm_gmtoff are not used
 *
 * Result:  VYX_OK, also when nothing fitted; VYX_ERROR if a pointer is null.
 * Threads: any; the locale may not be changed meanwhile.
 */
VYX_API int32_t VYX_StrFmtTime(char *szOut, uint32_t *pLen, int32_t iMax, const char *szFormat,
                               const VYX_TIME_EXP_T *pIn);

/*
 * strftime with the directives "%C", "%D", "%R", "%T", "%e" and "%r" defined alike on every platform:
 *   %C  (tm_year + 1970) / 100 as "%2d". It counts from 1970, not 1900: 20 up to the year 2029, 21 from 2030
 *   %D  %m/%d/%y     %R  %H:%M     %T  %H:%M:%S     %e  day of the month, blank-padded     %r  %I:%M:%S %p
 * All others are the platform's, in the program's locale.
 *   szOut  nMax bytes
 *
 * The format with these directives replaced must be shorter than nMax too.
 *
 * Result:  characters written, without the zero; 0 with an empty text if the format or the text did not fit
 *          or memory was short. One zero byte is written even if nMax is 0. Pointers are not checked for null.
 * Threads: any; the locale may not be changed meanwhile.
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
    /* The current time. Threads: one at a time. */
    vyx_time();
    /* t seconds since 1970-01-01 00:00:00 UTC; may be negative. Threads: one at a time. */
    vyx_time(int64_t t);
    /* A copy with the same fields. Threads: one at a time. */
    vyx_time(const vyx_time &other);
    virtual ~vyx_time();

    /* Takes over the current time and returns it, in seconds. Threads: one at a time. */
    int64_t now();
    /* As now. Threads: one at a time. */
    int64_t update_time();

    /* Seconds since 1970-01-01 00:00:00 UTC. Threads: one at a time. */
    int64_t get_time() const;
    /* The full year, such as 2026. Threads: one at a time. */
    int get_year() const;
    /* 0-11, January is 0. Threads: one at a time. */
    int get_mon() const;
    /* Day of the month, 1-31. Threads: one at a time. */
    int get_day() const;
    /* As get_day. Threads: one at a time. */
    int get_mon_day() const;
    /* 0-23. Threads: one at a time. */
    int get_hour() const;
    /* 0-59. Threads: one at a time. */
    int get_min() const;
    /* 0-60. Threads: one at a time. */
    int get_sec() const;
    /* 0-6, Sunday is 0. Threads: one at a time. */
    int get_week_day() const;
    /* Day of the year, 0-365. Threads: one at a time. */
    int get_year_day() const;

    /* Writes local fields of t, in seconds, to *out, which is returned; null with *out as it was if t is negative, out
     * is null or the year does not fit an int. Threads: any. */
    static struct tm *time2tm(int64_t t, struct tm *out);

    /* Takes over the other's seconds; fields are made anew, but stay if it is negative. Threads: one at a time. */
    vyx_time &operator=(const vyx_time &other);
    /* Adds the other's seconds; the fields as for =. Threads: one at a time. */
    vyx_time &operator+=(const vyx_time &other);
    /* Subtracts the other's seconds; a negative difference becomes 0. The fields as for =. Threads: one at a time. */
    vyx_time &operator-=(const vyx_time &other);

  private:
    int64_t m_time;
    struct tm m_tm;
};

/* Whether the seconds are the same, whatever the fields. Threads: one at a time. */
VYX_API bool operator==(const vyx_time &a, const vyx_time &b);
/* Whether the seconds differ. Threads: one at a time. */
VYX_API bool operator!=(const vyx_time &a, const vyx_time &b);
/* Whether a is later. Threads: one at a time. */
VYX_API bool operator>(const vyx_time &a, const vyx_time &b);
/* Whether a is earlier. Threads: one at a time. */
VYX_API bool operator<(const vyx_time &a, const vyx_time &b);

/* A point in time in microseconds; -1 if the clock could not be read. Used by one thread at a time. */
class VYX_API vyx_time_tick {
  public:
    /* The current time. Threads: one at a time. */
    vyx_time_tick();
    /* t microseconds. Threads: one at a time. */
    vyx_time_tick(int64_t t);
    /* A copy. Threads: one at a time. */
    vyx_time_tick(const vyx_time_tick &other);
    virtual ~vyx_time_tick();

    /* The wall clock in microseconds since 1970, or -1. Threads: any. */
    static int64_t now();
    /* Takes over now() and returns it. Threads: one at a time. */
    int64_t update_time();
    /* Microseconds. Threads: one at a time. */
    int64_t get_time() const;

    /* Takes over the other's microseconds. Threads: one at a time. */
    vyx_time_tick &operator=(const vyx_time_tick &other);
    /* Adds the other's microseconds. Threads: one at a time. */
    vyx_time_tick &operator+=(const vyx_time_tick &other);
    /* Subtracts the other's microseconds; the difference may be negative. Threads: one at a time. */
    vyx_time_tick &operator-=(const vyx_time_tick &other);

    /* Milliseconds, rounded half up; -1 if tv is null or a field is -1. Other negative fields are computed
     * with. Threads: any. */
    static int64_t timeval2ms(struct timeval *tv);
    /* Writes ms to *tv, cut to its time_t, and returns tv; null with *tv as it was if negative. Threads: any. */
    static struct timeval *ms2timeval(int64_t ms, struct timeval *tv);
    /* Microseconds; -1 if tv is null or a field is -1. Others that are negative are computed with. Threads: any. */
    static int64_t timeval2us(struct timeval *tv);
    /* Writes us to *tv, cut to its time_t, and returns tv; null with *tv as it was if negative. Threads: any. */
    static struct timeval *us2timeval(int64_t us, struct timeval *tv);
    /* Microseconds as milliseconds, rounded half up; -1 if us is negative. Threads: any. */
    static int64_t us2ms(int64_t us);
    /* Microseconds as seconds, rounded half up; -1 if us is negative. Threads: any. */
    static int64_t us2s(int64_t us);
    /* Milliseconds as seconds, rounded half up; -1 if ms is negative. Threads: any. */
    static int64_t ms2s(int64_t ms);

  private:
    VYX_TIME_T m_time;
};

/* Whether the microseconds are the same. Threads: one at a time. */
VYX_API bool operator==(const vyx_time_tick &a, const vyx_time_tick &b);
/* Whether a is later. Threads: one at a time. */
VYX_API bool operator>(const vyx_time_tick &a, const vyx_time_tick &b);
/* Whether a is earlier. Threads: one at a time. */
VYX_API bool operator<(const vyx_time_tick &a, const vyx_time_tick &b);

} // namespace vyx

#endif

#endif
