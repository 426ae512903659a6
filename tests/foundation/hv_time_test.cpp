#include "foundation/hv_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <tuple>

namespace {

// POSIX zone texts: "XXX5" is five hours west of UTC, "XXX-9" nine hours east.
void use_zone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
    hv::forget_local_offset();
}

class TimeTest : public ::testing::Test {
protected:
    void SetUp() override { use_zone("UTC"); }
    void TearDown() override { use_zone("UTC"); }
};

std::string ymd_hms(const hv::time_fields& f) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "%04u-%02u-%02u %02u:%02u:%02u.%07llu", f.year, f.month, f.day, f.hour,
                  f.minute, f.second, static_cast<unsigned long long>(f.nanoseconds / 100));
    return buf;
}

}  // namespace

TEST_F(TimeTest, SetFiletimeValidityBoundaries) {
    struct row { uint64_t ticks; bool valid; const char* text; };
    const row rows[] = {
        {0, false, nullptr},
        {0x8000000000000000ull, false, nullptr},
        {94354847999999999ull, false, "1899-12-31 23:59:59.9999999"},   // fields filled, still no date
        {94354848000000000ull, true, "1900-01-01 00:00:00.0000000"},
        {116444735999999999ull, true, "1969-12-31 23:59:59.9999999"},
        {116444736000000000ull, false, nullptr},                       // the whole first second of 1970
        {116444736009999999ull, false, nullptr},
        {116444736010000000ull, true, "1970-01-01 00:00:01.0000000"},
        {441796895999999999ull, true, "3000-12-31 23:59:59.9999999"},
        {441796896000000000ull, false, "3001-01-01 00:00:00.0000000"},
    };
    for (const row& r : rows) {
        const hv::time t(uint64_t(r.ticks), hv::kind_filetime);
        EXPECT_EQ(t.valid, r.valid) << r.ticks;
        if (r.text) { EXPECT_EQ(ymd_hms(t.fields), r.text) << r.ticks; }
    }
    EXPECT_TRUE(hv::time(uint64_t(94354848000000000ull), hv::kind_filetime).local_failed);   // before 1970
    const hv::time negative(uint64_t(0x8000000000000001ull), hv::kind_filetime);
    EXPECT_EQ(negative.filetime, 0x8000000000000001ull);   // the field keeps the refused value
    EXPECT_EQ(negative.fields.year, 0);
}

TEST_F(TimeTest, UpperBoundMovesWithTheZoneOfTheLocalStep) {
    const uint64_t first_of_3001 = 441796896000000000ull;
    const uint64_t last_hours_of_3000 = 441796752000000000ull;   // 3000-12-31 20:00 UTC
    use_zone("XXX5");
    EXPECT_TRUE(hv::time(first_of_3001, hv::kind_filetime).valid);
    use_zone("XXX-9");
    EXPECT_EQ(hv::local_offset_seconds(), 9 * 3600);
    const hv::time east(last_hours_of_3000, hv::kind_filetime);
    EXPECT_TRUE(east.valid);
    EXPECT_TRUE(east.local_failed);
    EXPECT_FALSE(hv::time(first_of_3001, hv::kind_filetime).valid);
}

TEST_F(TimeTest, FieldsOfLeapYearsAndLocalTm) {
    const hv::time leap_day(uint64_t(125962992000000000ull), hv::kind_filetime);   // 2000-02-29 12:00
    EXPECT_EQ(ymd_hms(leap_day.fields), "2000-02-29 12:00:00.0000000");
    EXPECT_EQ(leap_day.fields.day_of_week, 2);   // a Tuesday
    const hv::time year_end(uint64_t(131277023990000000ull), hv::kind_filetime);   // 2016-12-31 23:59:59
    EXPECT_EQ(ymd_hms(year_end.fields), "2016-12-31 23:59:59.0000000");
    EXPECT_EQ(year_end.local_tm.tm_yday, 365);
    EXPECT_EQ(year_end.local_tm.tm_mon, 11);
    const hv::time moment(uint64_t(130703799091234567ull), hv::kind_filetime);
    EXPECT_EQ(moment.fields.milliseconds, 123);
    EXPECT_EQ(moment.fields.microseconds, 123456u);
    EXPECT_EQ(moment.fields.nanoseconds, 123456700u);
    EXPECT_EQ(moment.fields.picoseconds, 123456700000u);
    EXPECT_EQ(moment.unix_seconds, 1425906309);

    struct tm tm {};
    for (int64_t s = 0; s < 32503680000ll; s += 86399ll * 397) {   // 1970 to 3000 against the C library
        struct tm want {};
        const time_t as_time = static_cast<time_t>(s);
        gmtime_r(&as_time, &want);
        ASSERT_TRUE(hv::unix_to_tm(s, &tm, 0)) << s;
        ASSERT_EQ(std::make_tuple(tm.tm_year, tm.tm_yday, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_sec, tm.tm_wday),
                  std::make_tuple(want.tm_year, want.tm_yday, want.tm_mon, want.tm_mday, want.tm_hour, want.tm_sec,
                                  want.tm_wday)) << s;
    }
    EXPECT_FALSE(hv::unix_to_tm(-1, &tm, 0));
    EXPECT_FALSE(hv::unix_to_tm((441796896000000000ll - 116444736000000000ll) / 10000000, &tm, 0));
    EXPECT_EQ(tm.tm_year, 0);   // cleared on failure
}

TEST_F(TimeTest, DosPairsTakeTheYear2000Rule) {
    struct row { uint16_t date, time; const char* text; };
    const row rows[] = {
        {10337, 0, "2000-02-29 00:00:00.0000000"},      // 2000-03-01 comes out one day early
        {10655, 0, "2000-12-30 00:00:00.0000000"},      // 2000-12-31 likewise
        {10333, 0, "2000-02-29 00:00:00.0000000"},      // the true leap day gives the same
        {10143, 26788, "1999-12-31 13:05:08.0000000"},
        {10785, 0, "2001-01-01 00:00:00.0000000"},
        {(35 << 9) | (2 << 5) | 31, 0, "2015-03-03 00:00:00.0000000"},   // February 31 carries into March
        {0, 0, nullptr},                              // date word 0
        {(35 << 9) | (0 << 5) | 1, 0, nullptr},       // month 0
        {(35 << 9) | (13 << 5) | 1, 0, nullptr},      // month 13
        {10785, 30, nullptr},                         // 60 seconds
        {10785, 60 << 5, nullptr},                    // minute 60
        {10785, 24 << 11, nullptr},                   // hour 24
    };
    for (const row& r : rows) {
        const hv::dos_pair pair{r.date, r.time};
        const hv::time t(&pair, true);
        EXPECT_EQ(t.valid, r.text != nullptr) << r.date << "/" << r.time;
        if (r.text) { EXPECT_EQ(ymd_hms(t.fields), r.text) << r.date; }
    }
}

TEST_F(TimeTest, FiletimeToDosRange) {
    hv::dos_pair pair{7, 7};
    ASSERT_TRUE(hv::filetime_to_dos(137903903990000000ull, &pair));   // 2037-12-31 23:59:59
    EXPECT_EQ(pair.date_word, (57 << 9) | (12 << 5) | 31);
    EXPECT_EQ(pair.time_word, (23 << 11) | (59 << 5) | 30);            // odd second rounds up
    pair = {7, 7};
    EXPECT_FALSE(hv::filetime_to_dos(119599200000000000ull, &pair));   // 1979
    EXPECT_EQ(pair.date_word, 7);
    const hv::time y2038(uint64_t(137919456000000000ull), hv::kind_filetime);
    EXPECT_TRUE(y2038.valid);
    EXPECT_EQ(y2038.dos_date, 0);
    EXPECT_EQ(y2038.dos_time, 0);
}

TEST_F(TimeTest, TmAndSystemtimeFold) {
    hv::_windows_systemtime st;
    st.year = 2015;
    st.month = 13;
    st.day = 1;
    hv::filetime_pair pair;
    const uint64_t ticks = hv::systemtime_to_filetime(&pair, &st);
    hv::_windows_systemtime back;
    ASSERT_TRUE(hv::filetime_to_systemtime(ticks, &back));
    EXPECT_EQ(back.year, 2016);
    EXPECT_EQ(back.month, 1);
    EXPECT_EQ((uint64_t(pair.high) << 32) | pair.low, ticks);

    struct tm tm {};
    tm.tm_year = 115;
    tm.tm_mon = -1;
    tm.tm_mday = 1;
    hv::tm_to_filetime(&tm, 0);
    EXPECT_EQ(tm.tm_mon, 11);
    EXPECT_EQ(tm.tm_year, 115);   // only the month is written back

    // A local tm under a steady zone comes back as the same wall clock.
    use_zone("XXX5");
    struct tm local {};
    local.tm_year = 115, local.tm_mon = 2, local.tm_mday = 9, local.tm_hour = 13, local.tm_min = 5, local.tm_sec = 9;
    hv::time t;
    EXPECT_TRUE(t.set_from_tm(&local, 0, false));
    EXPECT_EQ(t.filetime, 130703799090000000ull);
}

TEST_F(TimeTest, KindsConvertToTicks) {
    struct row { int64_t value; uint32_t kind; bool is_signed; bool valid; const char* text; };
    const row rows[] = {
        {0, hv::kind_unix, true, false, nullptr},
        {-5, hv::kind_unix, true, false, nullptr},
        {1, hv::kind_unix, false, true, "1970-01-01 00:00:01.0000000"},
        {1425906309123ll, hv::kind_unix_ms, false, true, "2015-03-09 13:05:09.1230000"},
        {999, hv::kind_unix_ms, true, false, nullptr},
        {13070379909123456ll, hv::kind_chrome, false, true, "2015-03-09 13:05:09.1234560"},
        {-1, hv::kind_firefox3, true, true, "1969-12-31 23:59:59.9999990"},
        {0, hv::kind_vhd, false, true, "2000-01-01 17:00:00.0000000"},
        {0, hv::kind_hfs_plus, false, true, "1904-01-01 00:00:00.0000000"},
        {2, hv::kind_ole, true, true, "1900-01-01 00:00:00.0000000"},
        {2, hv::kind_ole, false, false, nullptr},      // the unsigned setter does not know it
        {0, hv::kind_safari, false, true, "2001-01-01 00:00:00.0000000"},
        {1, 3, false, false, nullptr},                // no such kind
    };
    for (const row& r : rows) {
        hv::time t;
        if (r.is_signed)
            t.set_value(r.value, r.kind);
        else
            t.set_value(static_cast<uint64_t>(r.value), r.kind);
        EXPECT_EQ(t.valid, r.valid) << r.value << " kind " << r.kind;
        if (r.text) { EXPECT_EQ(ymd_hms(t.fields), r.text) << r.value << " kind " << r.kind; }
    }
    const hv::time zero(int64_t(0), hv::kind_unix);
    EXPECT_EQ(zero.filetime, hv::unix_epoch_ticks);   // kept although no date
    EXPECT_EQ(zero.unix_seconds, 0);
    EXPECT_STREQ(hv::time_kind_name(hv::kind_unix_ms), "unix millisec time");
}

TEST_F(TimeTest, NtpStampsNormaliseTheFraction) {
    auto bytes = [](uint64_t stamp) {
        uint8_t b[8];
        std::memcpy(b, &stamp, 8);
        char text[24];
        std::snprintf(text, sizeof text, "%02x%02x%02x%02x %02x%02x%02x%02x", b[0], b[1], b[2], b[3], b[4], b[5],
                      b[6], b[7]);
        return std::string(text);
    };
    uint64_t a = 1, b = 1, c = 1;
    ASSERT_TRUE(hv::filetime_to_ntp(hv::ntp_epoch_ticks + 15000000, &a));
    EXPECT_EQ(bytes(a), "00000001 80000000");
    ASSERT_TRUE(hv::filetime_to_ntp(hv::ntp_epoch_ticks + 100000, &b));   // 0.01 s
    EXPECT_EQ(bytes(b), "00000000 28f5c200");                          // too large, as required
    ASSERT_TRUE(hv::filetime_to_ntp(hv::ntp_epoch_ticks + 30000000, &c));
    EXPECT_DOUBLE_EQ(hv::ntp_difference(&a, &c), 1.5);
    EXPECT_FALSE(hv::filetime_to_ntp(-1, &c));
    EXPECT_EQ(c, 0u);
    const uint64_t now = hv::ntp_now();
    EXPECT_EQ(now >> 32, 0u);   // whole seconds: the fraction bytes are zero
}
