// The program's time value: one raw stamp kept in every form a later step may ask for
// (FILETIME, UNIX seconds, DOS pair, UTC fields, local struct tm). Plain value, no heap memory.
#pragma once
#include <cstdint>
#include <ctime>

namespace hv {

constexpr uint64_t ticks_per_second = 10000000ull;                 // FILETIME unit is 100 ns
constexpr uint64_t ticks_per_day = 864000000000ull;
constexpr uint64_t ticks_per_common_year = 315360000000000ull;
constexpr uint64_t unix_epoch_ticks = 116444736000000000ull;       // 1970-01-01 00:00:00 UTC
constexpr uint64_t ntp_epoch_ticks = 94354848000000000ull;         // 1900-01-01 00:00:00 UTC

// How a raw value is read; one bit at a time.
enum time_kind : uint32_t {
    kind_filetime = 1,          // ticks since 1601
    kind_unix = 8,              // seconds since 1970
};

// SYSTEMTIME layout.
struct _windows_systemtime {
    uint16_t year = 0;          // full year
    uint16_t month = 0;         // 1..12
    uint16_t day_of_week = 0;   // 0 is Sunday
    uint16_t day = 0;           // 1..31
    uint16_t hour = 0;
    uint16_t minute = 0;
    uint16_t second = 0;
    uint16_t milliseconds = 0;
};

// UTC calendar of a value. The four fraction fields each describe the same fraction alone.
struct time_fields {
    uint16_t year = 0;
    uint16_t month = 0;
    uint16_t day_of_week = 0;
    uint16_t day = 0;
    uint16_t hour = 0;
    uint16_t minute = 0;
    uint16_t second = 0;
    uint16_t milliseconds = 0;
    uint64_t microseconds = 0;  // 0..999999
    uint64_t nanoseconds = 0;   // multiple of 100
    uint64_t picoseconds = 0;   // multiple of 100000
    void clear() { *this = time_fields(); }
};

// A DOS date word and time word, in that order.
struct dos_pair {
    uint16_t date_word = 0;
    uint16_t time_word = 0;
};

struct filetime_pair {
    uint32_t low = 0;
    uint32_t high = 0;
};

class time {
public:
    int64_t unix_seconds = 0;   // unsigned quotient: before 1970 this is a huge positive number
    uint64_t filetime = 0;
    uint16_t dos_date = 0;      // zero outside 1980..2037
    uint16_t dos_time = 0;
    struct tm local_tm {};
    time_fields fields;
    bool valid = false;
    bool local_failed = false;

    time() = default;
    time(uint64_t value, uint32_t kind) { set_value(value, kind); }
    time(int64_t value, uint32_t kind) { set_value(value, kind); }
    time(const dos_pair* pair, bool as_utc) { set_from_dos(pair, as_utc); }

    void clear() { *this = time(); }

    bool set_value(uint64_t value, uint32_t kind);
    bool set_value(int64_t value, uint32_t kind);
    bool set_from_dos(const dos_pair* pair, bool as_utc);
    bool set_from_tm(const struct tm* tm, int milliseconds, bool as_utc);
    time& set_now();
    bool set_filetime(int64_t ticks);
};

// FILETIMEs whose validity can't hang on the zone: from 1900 up to 1970, and from the second second
// of 1970 up to 2999. Near 3000 the zone of the run decides: only a whole time value can tell.
bool plain_date(uint64_t ticks);
// The calendar of a DOS pair, unchecked against the month's length; false when its words hold no
// date and time.
bool dos_to_tm(const dos_pair& pair, struct tm& out);

bool filetime_to_fields(uint64_t ticks, time_fields* out);
// Inverse on fields that need not be in range; folds and rewrites tm_mon only.
// Its leap rule reads tm_year, so 2000 counts as a common year.
uint64_t tm_to_filetime(struct tm* tm, uint64_t milliseconds);
uint64_t systemtime_to_filetime(filetime_pair* out, const _windows_systemtime* st);

bool unix_to_tm(int64_t seconds, struct tm* out, float zone_hours);
bool unix_to_local_tm(uint64_t seconds, struct tm* out);
// Offset of the zone now (standard time during summer time); computed once per wall-clock second.
int32_t local_offset_seconds();
// Drops the cached offset, for a caller that has just changed TZ.
void forget_local_offset();

// NTP stamps are kept in network byte order in memory.
// What uses them: the elapsed time of -profile and of the diagnostics file.
bool filetime_to_ntp(int64_t ticks, uint64_t* stamp);
uint64_t ntp_now();
double ntp_difference(const uint64_t* a, const uint64_t* b);

}  // namespace hv
