#include "foundation/hv_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <tuple>

namespace {

// POSIX zone texts: "XXX5" is five hours west of UTC, "XXX-9" nine hours east.
void use_zone(const char* tz) { setenv("TZ", tz, 1), tzset(), hv::forget_local_offset(); }

struct TimeTest : ::testing::Test {
    void SetUp() override { use_zone("UTC"); }
    void TearDown() override { use_zone("UTC"); }
};

// The UTC fields as text; "no date" marks a refused value, followed by its fields when they were filled.
std::string shown(const hv::time& t) {
    const hv::time_fields& f = t.fields;
    char text[80];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%07llu", f.year, f.month, f.day, f.hour,
                  f.minute, f.second, static_cast<unsigned long long>(f.nanoseconds / 100));
    return t.valid ? text : f.year ? std::string("no date, ") + text : "no date";
}

hv::time from_ticks(uint64_t ticks) { return hv::time(ticks, hv::kind_filetime); }

}  // namespace

TEST_F(TimeTest, SetFiletimeValidityBoundaries) {
    const std::pair<uint64_t, const char*> rows[] = {
        {0, "no date"},                        {0x8000000000000000ull, "no date"},
        {94354847999999999ull, "no date, 1899-12-31 23:59:59.9999999"},
        {94354848000000000ull, "1900-01-01 00:00:00.0000000"},
        {116444735999999999ull, "1969-12-31 23:59:59.9999999"},
        {116444736000000000ull, "no date"},   {116444736009999999ull, "no date"},   // the first second of 1970
        {116444736010000000ull, "1970-01-01 00:00:01.0000000"},
        {441796895999999999ull, "3000-12-31 23:59:59.9999999"},
        {441796896000000000ull, "no date, 3001-01-01 00:00:00.0000000"},
    };
    for (const auto& [ticks, text] : rows) EXPECT_EQ(shown(from_ticks(ticks)), text) << ticks;
    EXPECT_TRUE(from_ticks(94354848000000000ull).local_failed);   // before 1970
    EXPECT_EQ(from_ticks(0x8000000000000001ull).filetime, 0x8000000000000001ull);   // the refused value stays

    // The upper bound is the failed local step: a zone west keeps 3001's first hours, one east 3000's last.
    const uint64_t first_of_3001 = 441796896000000000ull, last_hours_of_3000 = 441796752000000000ull;
    use_zone("XXX5");
    EXPECT_TRUE(from_ticks(first_of_3001).valid);
    use_zone("XXX-9");
    EXPECT_EQ(hv::local_offset_seconds(), 9 * 3600);
    EXPECT_TRUE(from_ticks(last_hours_of_3000).valid && from_ticks(last_hours_of_3000).local_failed);
    EXPECT_FALSE(from_ticks(first_of_3001).valid);
}

TEST_F(TimeTest, FieldsOfLeapYearsAndLocalTm) {
    const hv::time leap_day = from_ticks(125962992000000000ull), year_end = from_ticks(131277023990000000ull);
    EXPECT_EQ(shown(leap_day), "2000-02-29 12:00:00.0000000");
    EXPECT_EQ(leap_day.fields.day_of_week, 2);   // a Tuesday
    EXPECT_EQ(shown(year_end), "2016-12-31 23:59:59.0000000");
    EXPECT_EQ(std::make_tuple(year_end.local_tm.tm_yday, year_end.local_tm.tm_mon), std::make_tuple(365, 11));
    struct tm tm {}, want {};
    auto key = [](const struct tm& t) {
        return std::make_tuple(t.tm_year, t.tm_yday, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_sec, t.tm_wday);
    };
    for (int64_t s = 0; s < 32503680000ll; s += 86399ll * 397) {   // 1970 to 3000 against the C library
        const time_t as_time = static_cast<time_t>(s);
        gmtime_r(&as_time, &want);
        ASSERT_TRUE(hv::unix_to_tm(s, &tm, 0)) << s;
        ASSERT_EQ(key(tm), key(want)) << s;
    }
    EXPECT_FALSE(hv::unix_to_tm(-1, &tm, 0));
    EXPECT_FALSE(hv::unix_to_tm(32535216000ll, &tm, 0));   // 3001-01-01
    EXPECT_EQ(tm.tm_year, 0);                               // cleared on failure
}

// Expiry and last-sync stamps: years counted from 1900 make 2000 a common year, as the report has always shown.
TEST_F(TimeTest, DosPairs) {
    struct row { uint16_t date, time; const char* text; };
    const row rows[] = {
        {10337, 0, "2000-02-29 00:00:00.0000000"},      // 2000-03-01 comes out one day early
        {10655, 0, "2000-12-30 00:00:00.0000000"},      // 2000-12-31 likewise
        {10143, 26788, "1999-12-31 13:05:08.0000000"},  {10785, 0, "2001-01-01 00:00:00.0000000"},
        {(35 << 9) | (2 << 5) | 31, 0, "2015-03-03 00:00:00.0000000"},   // February 31 carries into March
        {0, 0, "no date"},  {(35 << 9) | (0 << 5) | 1, 0, "no date"},  {(35 << 9) | (13 << 5) | 1, 0, "no date"},
        {10785, 30, "no date"},  {10785, 60 << 5, "no date"},  {10785, 24 << 11, "no date"},   // 60 s, 60 min, 24 h
    };
    for (const row& r : rows) {
        const hv::dos_pair pair{r.date, r.time};
        EXPECT_EQ(shown(hv::time(&pair, true)), r.text) << r.date << "/" << r.time;
    }
}
