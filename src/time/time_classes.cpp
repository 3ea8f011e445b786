// The classes over calendar time in seconds and over time in microseconds.
#include <vyx/time.h>

#include "base/units.h"
#include "time/calendar.h"

// Programs built with another release rely on it. In front of the members lies the class's table of functions.
static_assert(sizeof(vyx::vyx_time_tick) == sizeof(int64_t) + alignof(vyx::vyx_time_tick));
static_assert(sizeof(vyx::vyx_time) - sizeof(vyx::vyx_time_tick) - sizeof(struct tm) <
              alignof(vyx::vyx_time));

namespace {

using vyx_inter::kMicrosPerMilli;
using vyx_inter::kMicrosPerSecond;
using vyx_inter::kMillisPerSecond;

int64_t Add_Local(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int64_t Subtract_Local(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

int64_t Multiply_Local(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

// Rounds half up; -1 for a negative value.
int64_t Rounded_Local(int64_t iValue, int64_t iUnit) {
    return iValue < 0 ? -1 : iValue / iUnit + (iValue % iUnit >= iUnit / 2 ? 1 : 0);
}

bool IsUsable_Local(const struct timeval *tv) {
    return tv != nullptr && tv->tv_sec != -1 && tv->tv_usec != -1;
}

// A time whose fields the platform cannot tell leaves them as they were.
void SetFields_Local(int64_t t, struct tm *pOut) {
    (void)VYX_LocalTime_Inter(t, pOut);
}

} // namespace

namespace vyx {

vyx_time::vyx_time() : m_time(0), m_tm() {
    (void)update_time();
}
vyx_time::vyx_time(int64_t t) : m_time(t), m_tm() {
    SetFields_Local(t, &m_tm);
}
vyx_time::vyx_time(const vyx_time &other) = default;
vyx_time::~vyx_time() {
    m_time = 0;
}

int64_t vyx_time::now() {
    m_time = VYX_SecondsNow_Inter();
    SetFields_Local(m_time, &m_tm);
    return m_time;
}

int64_t vyx_time::update_time() {
    return now();
}
int64_t vyx_time::get_time() const {
    return m_time;
}
int vyx_time::get_year() const {
    return m_tm.tm_year + 1900;
}
int vyx_time::get_mon() const {
    return m_tm.tm_mon;
}
int vyx_time::get_day() const {
    return m_tm.tm_mday;
}
int vyx_time::get_mon_day() const {
    return m_tm.tm_mday;
}
int vyx_time::get_hour() const {
    return m_tm.tm_hour;
}
int vyx_time::get_min() const {
    return m_tm.tm_min;
}
int vyx_time::get_sec() const {
    return m_tm.tm_sec;
}
int vyx_time::get_week_day() const {
    return m_tm.tm_wday;
}
int vyx_time::get_year_day() const {
    return m_tm.tm_yday;
}

struct tm *vyx_time::time2tm(int64_t t, struct tm *out) {
    return t < 0 || out == nullptr ? nullptr : VYX_LocalTime_Inter(t, out);
}

// NOLINTNEXTLINE(cert-oop54-cpp): assigned to itself, a time refreshes its fields and is otherwise unchanged
vyx_time &vyx_time::operator=(const vyx_time &other) {
    m_time = other.m_time;
    // Deliberate: a negative time keeps the old fields. Pinned by TimeClass.FieldsFollowTheTimeUnlessItIsNegative.
    (void)time2tm(m_time, &m_tm);
    return *this;
}

vyx_time &vyx_time::operator+=(const vyx_time &other) {
    m_time = Add_Local(m_time, other.m_time);
    (void)time2tm(m_time, &m_tm);
    return *this;
}

vyx_time &vyx_time::operator-=(const vyx_time &other) {
    m_time = Subtract_Local(m_time, other.m_time);
    // Deliberate: only here is a negative time clamped. Pinned by TimeClass.FieldsFollowTheTimeUnlessItIsNegative.
    if (m_time < 0)
        m_time = 0;
    (void)time2tm(m_time, &m_tm);
    return *this;
}

bool operator==(const vyx_time &a, const vyx_time &b) {
    return a.get_time() == b.get_time();
}
bool operator!=(const vyx_time &a, const vyx_time &b) {
    return a.get_time() != b.get_time();
}
bool operator>(const vyx_time &a, const vyx_time &b) {
    return a.get_time() > b.get_time();
}
bool operator<(const vyx_time &a, const vyx_time &b) {
    return a.get_time() < b.get_time();
}

vyx_time_tick::vyx_time_tick() : m_time(now()) {}
vyx_time_tick::vyx_time_tick(int64_t t) : m_time(t) {}
vyx_time_tick::vyx_time_tick(const vyx_time_tick &other) = default;
vyx_time_tick::~vyx_time_tick() {
    m_time = 0;
}

int64_t vyx_time_tick::now() {
    return VYX_TimeNow();
}

int64_t vyx_time_tick::update_time() {
    m_time = now();
    return m_time;
}

int64_t vyx_time_tick::get_time() const {
    return m_time;
}

vyx_time_tick &vyx_time_tick::operator=(const vyx_time_tick &other) = default;

vyx_time_tick &vyx_time_tick::operator+=(const vyx_time_tick &other) {
    m_time = Add_Local(m_time, other.m_time);
    return *this;
}

vyx_time_tick &vyx_time_tick::operator-=(const vyx_time_tick &other) {
    m_time = Subtract_Local(m_time, other.m_time);
    return *this;
}

int64_t vyx_time_tick::timeval2ms(struct timeval *tv) {
    if (!IsUsable_Local(tv))
        return -1;
    const auto iMicros = static_cast<int32_t>(tv->tv_usec);
    return Add_Local(Multiply_Local(tv->tv_sec, kMillisPerSecond),
                     (static_cast<int64_t>(iMicros) + 500) / kMicrosPerMilli);
}

struct timeval *vyx_time_tick::ms2timeval(int64_t ms, struct timeval *tv) {
    if (ms < 0 || tv == nullptr)
        return nullptr;
    tv->tv_sec = static_cast<time_t>(ms / kMillisPerSecond);
    tv->tv_usec = static_cast<suseconds_t>(ms % kMillisPerSecond * kMicrosPerMilli);
    return tv;
}

int64_t vyx_time_tick::timeval2us(struct timeval *tv) {
    return IsUsable_Local(tv) ? Add_Local(Multiply_Local(tv->tv_sec, kMicrosPerSecond), tv->tv_usec) : -1;
}

struct timeval *vyx_time_tick::us2timeval(int64_t us, struct timeval *tv) {
    if (us < 0 || tv == nullptr)
        return nullptr;
    tv->tv_sec = static_cast<time_t>(us / kMicrosPerSecond);
    tv->tv_usec = static_cast<suseconds_t>(us % kMicrosPerSecond);
    return tv;
}

int64_t vyx_time_tick::us2ms(int64_t us) {
    return Rounded_Local(us, kMicrosPerMilli);
}
int64_t vyx_time_tick::us2s(int64_t us) {
    return Rounded_Local(us, kMicrosPerSecond);
}
int64_t vyx_time_tick::ms2s(int64_t ms) {
    return Rounded_Local(ms, kMillisPerSecond);
}

bool operator==(const vyx_time_tick &a, const vyx_time_tick &b) {
    return a.get_time() == b.get_time();
}
bool operator>(const vyx_time_tick &a, const vyx_time_tick &b) {
    return a.get_time() > b.get_time();
}
bool operator<(const vyx_time_tick &a, const vyx_time_tick &b) {
    return a.get_time() < b.get_time();
}

} // namespace vyx
