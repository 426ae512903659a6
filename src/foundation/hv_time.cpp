#include "foundation/hv_time.h"

#include <sys/time.h>

#include <cmath>
#include <cstring>

namespace hv {

namespace {

constexpr int64_t seconds_per_day = 86400;
constexpr int64_t seconds_per_common_year = 31536000;
constexpr int64_t seconds_per_leap_year = 31622400;
constexpr int64_t leap_seconds_to_1600 = 33523200;                 // 388 leap days before 1601
constexpr uint64_t tm_base_ticks = 93957408000000000ull;           // tm_to_filetime's day zero

// Zero-based day of the year on which each month ends; entry 0 is the day before January.
constexpr int16_t month_end_common[13] = {-1, 30, 58, 89, 119, 150, 180, 211, 242, 272, 303, 333, 364};
constexpr int16_t month_end_leap[13] = {-1, 30, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

bool is_leap_year(int64_t y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

bool dos_from_fields(const time_fields& f, dos_pair* out) {
    if (f.year < 1980 || f.year > 2037) return false;   // 2037, although the format reaches further
    out->date_word = static_cast<uint16_t>(((f.year - 1980) << 9) | ((f.month << 5) & 0x1E0) | (f.day & 31));
    // An odd second rounds up: second 59 is stored as 30.
    out->time_word = static_cast<uint16_t>((f.hour << 11) | ((f.minute << 5) & 0x7E0) |
                                           ((f.second / 2 + f.second % 2) & 31));
    return true;
}

// A day count from 1970-01-01 as a calendar date, by whole 400-year eras and March-based years,
// with no loop. 32 bits are enough: the caller bounds the count to the end of year 3000.
struct civil_date {
    uint32_t year, month, day, yday;
};

constexpr uint32_t days_to_3001 = 376565;   // 1970-01-01 to 3001-01-01

civil_date civil_from_days(uint32_t days) {
    const uint32_t z = days + 719468;   // days since 0000-03-01
    const uint32_t era = z / 146097;
    const uint32_t doe = z - era * 146097;
    const uint32_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const uint32_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);   // 0 is March 1
    const uint32_t mp = (5 * doy + 2) / 153;
    civil_date c;
    c.day = doy - (153 * mp + 2) / 5 + 1;
    c.month = mp < 10 ? mp + 3 : mp - 9;
    c.year = yoe + era * 400 + (c.month <= 2);
    c.yday = doy >= 306 ? doy - 306 : doy + 59 + (is_leap_year(c.year) ? 1 : 0);
    return c;
}

// Every stamp asks for the zone offset; the answer can change only with the wall clock's second
// (or a new TZ, see forget_local_offset), so it is worked out once per second.
struct offset_cache {
    bool known = false;
    time_t second = 0;
    int32_t offset = 0;
};

offset_cache& zone_cache() {
    static offset_cache cache;
    return cache;
}

// Both overloads of set_value.
bool set_raw(hv::time& t, uint64_t raw, uint32_t kind) {
    t.clear();
    const int64_t sv = static_cast<int64_t>(raw);
    uint64_t ticks;   // unsigned arithmetic: out-of-range values wrap instead of overflowing
    switch (kind) {
    case kind_filetime:
        ticks = raw;
        break;
    case kind_unix:
        t.unix_seconds = sv;
        ticks = raw * ticks_per_second + unix_epoch_ticks;
        t.filetime = ticks;
        if (sv <= 0) {
            t.unix_seconds = 0;
            return false;
        }
        break;
    default:
        return false;
    }
    return t.set_filetime(static_cast<int64_t>(ticks));
}

}  // namespace

bool time::set_value(uint64_t value, uint32_t kind) { return set_raw(*this, value, kind); }

bool time::set_value(int64_t value, uint32_t kind) {
    return set_raw(*this, static_cast<uint64_t>(value), kind);
}

bool time::set_filetime(int64_t ticks) {
    valid = false;
    if (ticks == 0) return false;
    filetime = static_cast<uint64_t>(ticks);
    if (ticks < 0) return false;
    // Wraps below 1970, so unix_seconds is then a huge positive number; nothing shown reads it.
    const uint64_t since_1970 = filetime - unix_epoch_ticks;
    unix_seconds = static_cast<int64_t>(since_1970 / ticks_per_second);
    if (since_1970 < ticks_per_second) return false;   // the whole first second of 1970 is no date
    filetime_to_fields(filetime, &fields);
    dos_pair dos{dos_date, dos_time};
    if (dos_from_fields(fields, &dos)) {
        dos_date = dos.date_word;
        dos_time = dos.time_word;
    }
    local_failed = false;
    struct tm local {};
    if (unix_to_local_tm(static_cast<uint64_t>(unix_seconds), &local))
        local_tm = local;
    else
        local_failed = true;
    // The upper bound of dates is reached only through the failed local step.
    if (local_failed && fields.year > 3000) return false;
    if (fields.year >= 1900) valid = true;
    return valid;
}

bool dos_to_tm(const dos_pair& pair, struct tm& tm) {
    const unsigned date = pair.date_word, clock = pair.time_word;
    tm.tm_mday = static_cast<int>(date & 31);
    if (tm.tm_mday == 0) return false;
    tm.tm_mon = static_cast<int>((date >> 5) & 15) - 1;
    if (tm.tm_mon < 0 || tm.tm_mon > 11) return false;
    tm.tm_year = static_cast<int>(date >> 9) + 80;
    tm.tm_sec = static_cast<int>(clock & 31) * 2;
    if (tm.tm_sec >= 60) return false;
    tm.tm_min = static_cast<int>((clock >> 5) & 63);
    if (tm.tm_min >= 60) return false;
    tm.tm_hour = static_cast<int>(clock >> 11);
    return tm.tm_hour < 24;
}

bool time::set_from_dos(const dos_pair* pair, bool as_utc) {
    clear();
    struct tm tm {};
    if (!pair || !dos_to_tm(*pair, tm)) return false;
    // A day such as February 31 carries into March through tm_to_filetime.
    return set_from_tm(&tm, 0, as_utc);
}

bool time::set_from_tm(const struct tm* tm, int milliseconds, bool as_utc) {
    local_tm = *tm;
    if (as_utc) {
        const uint64_t ticks = tm_to_filetime(&local_tm, static_cast<uint64_t>(milliseconds));
        filetime = ticks;
        if (ticks == 0) return false;
        if (!set_filetime(static_cast<int64_t>(ticks))) return false;
    } else {
        struct tm scratch = local_tm;
        unix_seconds = static_cast<int64_t>(mktime(&scratch));
        if (unix_seconds < 1) return false;
        unix_seconds += local_offset_seconds();
        uint64_t ticks = unix_epoch_ticks + static_cast<uint64_t>(unix_seconds) * ticks_per_second;
        if (milliseconds != 0) ticks += static_cast<uint64_t>(static_cast<int64_t>(milliseconds)) * 10000;
        filetime = ticks;
        set_filetime(static_cast<int64_t>(ticks));   // its answer is not consulted on this road
    }
    valid = true;
    return true;
}

time& time::set_now() {
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    const uint64_t ticks = static_cast<uint64_t>(tv.tv_sec) * ticks_per_second +
                           static_cast<uint64_t>(tv.tv_usec) * 10 + unix_epoch_ticks;
    set_value(static_cast<int64_t>(ticks), kind_filetime);
    return *this;
}

bool plain_date(uint64_t ticks) {
    constexpr uint64_t ticks_1900 = ntp_epoch_ticks;
    constexpr uint64_t ticks_2999 = 441166176000000000ull;
    return (ticks >= ticks_1900 && ticks < unix_epoch_ticks) ||
           (ticks >= unix_epoch_ticks + ticks_per_second && ticks < ticks_2999);
}

// Exact integer steps: the year is estimated from 365-day years and mended by at most one.
bool filetime_to_fields(uint64_t ticks, time_fields* out) {
    out->clear();
    if (static_cast<int64_t>(ticks) < 0) return false;
    const int64_t n = static_cast<int64_t>(ticks / ticks_per_common_year);
    const int64_t y = n + 1600;
    const int64_t leap_days = y / 4 - y / 100 + y / 400;
    int64_t s = static_cast<int64_t>(ticks / ticks_per_second) - n * seconds_per_common_year +
                leap_seconds_to_1600 - leap_days * seconds_per_day;
    int64_t year = y + 1;
    if (s < 0) {
        year = y;
        s += is_leap_year(y) ? seconds_per_leap_year : seconds_per_common_year;
    }
    const int16_t* month_end = is_leap_year(year) ? month_end_leap : month_end_common;
    const int64_t d = s / seconds_per_day;
    const int64_t rem = s % seconds_per_day;
    int m = 0;
    while (m < 11 && month_end[m + 1] < d) ++m;
    const uint64_t f = ticks % ticks_per_second;
    out->year = static_cast<uint16_t>(year);
    out->month = static_cast<uint16_t>(m + 1);
    out->day_of_week = static_cast<uint16_t>((ticks / ticks_per_day + 1) % 7);   // 1601-01-01 was a Monday
    out->day = static_cast<uint16_t>(d - month_end[m]);
    out->hour = static_cast<uint16_t>(rem / 3600);
    out->minute = static_cast<uint16_t>(rem / 60 % 60);
    out->second = static_cast<uint16_t>(rem % 60);
    out->milliseconds = static_cast<uint16_t>(f / 10000);
    out->microseconds = f / 10;
    out->nanoseconds = f * 100;
    out->picoseconds = f * 100000;
    return true;
}

uint64_t tm_to_filetime(struct tm* tm, uint64_t milliseconds) {
    int64_t year = tm->tm_year;
    if (tm->tm_mon < 0 || tm->tm_mon > 11) {
        const int q = tm->tm_mon / 12;
        tm->tm_mon -= q * 12;
        year += q;
        if (tm->tm_mon < 0) {
            tm->tm_mon += 12;
            year -= 1;
        }
    }
    int64_t days = month_end_common[tm->tm_mon];
    // The leap rule reads the years since 1900, not the full year: 2000 counts as common.
    // Kept: the DOS stamps of the report depend on it.
    if (year > 0 && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) && tm->tm_mon > 1) days += 1;
    const int64_t y = year + 1899;
    const int64_t total_days = year * 365 + days + y / 4 - y / 100 + y / 400 + tm->tm_mday;
    // Unsigned from here: out-of-range fields carry through the sums and may wrap.
    const uint64_t seconds =
        ((static_cast<uint64_t>(total_days) * 24 + static_cast<uint64_t>(static_cast<int64_t>(tm->tm_hour))) * 60 +
         static_cast<uint64_t>(static_cast<int64_t>(tm->tm_min))) * 60 +
        static_cast<uint64_t>(static_cast<int64_t>(tm->tm_sec));
    return seconds * ticks_per_second + milliseconds * 10000 + tm_base_ticks;
}

uint64_t systemtime_to_filetime(filetime_pair* out, const _windows_systemtime* st) {
    struct tm tm {};
    tm.tm_sec = st->second;
    tm.tm_min = st->minute;
    tm.tm_hour = st->hour;
    tm.tm_mday = st->day;
    tm.tm_mon = st->month - 1;
    tm.tm_year = st->year - 1900;
    const uint64_t ticks = tm_to_filetime(&tm, st->milliseconds);
    out->low = static_cast<uint32_t>(ticks);
    out->high = static_cast<uint32_t>(ticks >> 32);
    return ticks;
}

bool unix_to_tm(int64_t seconds, struct tm* out, float zone_hours) {
    if (seconds < 0) return false;
    const int64_t t = seconds + static_cast<int64_t>(zone_hours * 3600.0f);
    const int64_t day_number = t / seconds_per_day;
    const int64_t sod = t % seconds_per_day;
    // The calendar passes 3000: no record (this stands for the walk over the years).
    if (day_number >= days_to_3001) {
        *out = tm();
        return false;
    }
    const civil_date c = civil_from_days(static_cast<uint32_t>(day_number));
    out->tm_sec = static_cast<int>(sod % 60);
    out->tm_min = static_cast<int>(sod / 60 % 60);
    out->tm_hour = static_cast<int>(sod / 3600);
    out->tm_wday = static_cast<int>((day_number + 4) % 7);
    out->tm_year = static_cast<int>(c.year) - 1900;
    out->tm_yday = static_cast<int>(c.yday);
    out->tm_mon = static_cast<int>(c.month) - 1;
    out->tm_mday = static_cast<int>(c.day);
    out->tm_isdst = 0;
    return true;
}

bool unix_to_local_tm(uint64_t seconds, struct tm* out) {
    const float zone_hours = static_cast<float>(local_offset_seconds()) / 3600.0f;
    if (!unix_to_tm(static_cast<int64_t>(seconds), out, zone_hours)) return false;
    return out->tm_year < 1101;
}

int32_t local_offset_seconds() {
    const time_t now = ::time(nullptr);
    offset_cache& cache = zone_cache();
    if (cache.known && cache.second == now) return cache.offset;
    // The gmtime record has tm_isdst clear, so in summer the answer is the standard offset.
    const time_t local = mktime(localtime(&now));
    const time_t utc = mktime(gmtime(&now));
    cache.offset = static_cast<int32_t>(static_cast<uint32_t>(local) - static_cast<uint32_t>(utc));
    cache.second = now;
    cache.known = true;
    return cache.offset;
}

void forget_local_offset() { zone_cache().known = false; }

bool filetime_to_ntp(int64_t ticks, uint64_t* stamp) {
    *stamp = 0;
    if (ticks < 0) return false;
    const uint64_t v = static_cast<uint64_t>(ticks) - ntp_epoch_ticks;
    const uint32_t seconds = static_cast<uint32_t>(v / ticks_per_second);
    uint32_t fraction = static_cast<uint32_t>(((v % ticks_per_second) << 28) / ticks_per_second);
    // Normalises the digits rather than scaling: a fraction below 1/16 comes out too large. Required.
    while (fraction != 0 && (fraction & 0xF0000000u) == 0) fraction <<= 4;
    const uint8_t bytes[8] = {
        static_cast<uint8_t>(seconds >> 24),  static_cast<uint8_t>(seconds >> 16),
        static_cast<uint8_t>(seconds >> 8),   static_cast<uint8_t>(seconds),
        static_cast<uint8_t>(fraction >> 24), static_cast<uint8_t>(fraction >> 16),
        static_cast<uint8_t>(fraction >> 8),  static_cast<uint8_t>(fraction)};
    std::memcpy(stamp, bytes, sizeof bytes);
    return true;
}

uint64_t ntp_now() {
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    // Whole seconds on purpose: stamps of this clock differ by whole seconds.
    const hv::time t(static_cast<int64_t>(tv.tv_sec), kind_unix);
    uint64_t stamp = 0;
    filetime_to_ntp(static_cast<int64_t>(t.filetime), &stamp);
    return stamp;
}

double ntp_difference(const uint64_t* a, const uint64_t* b) {
    auto value = [](const uint64_t* stamp) {
        uint8_t bytes[8];
        std::memcpy(bytes, stamp, sizeof bytes);
        const uint32_t seconds = (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) |
                                 (uint32_t(bytes[2]) << 8) | bytes[3];
        const uint32_t fraction = (uint32_t(bytes[4]) << 24) | (uint32_t(bytes[5]) << 16) |
                                  (uint32_t(bytes[6]) << 8) | bytes[7];
        return static_cast<double>(seconds) + static_cast<double>(fraction) * 2.3283064365386963e-10;
    };
    return std::fabs(value(a) - value(b));
}

}  // namespace hv
