#include "foundation/hv_date_text.h"

#include <gtest/gtest.h>

namespace {

const uint64_t moment = 130703799091234567ull;   // 2015-03-09 13:05:09.1234567 UTC

std::string date_of(uint64_t ticks, const std::string& date_template) {
    std::string date, time;
    format_date_time_template(date, time, hv::time(ticks, hv::kind_filetime), date_template, "");
    return date;
}

std::string time_of(uint64_t ticks, const std::string& time_template) {
    std::string date, time;
    format_date_time_template(date, time, hv::time(ticks, hv::kind_filetime), "", time_template);
    return time;
}

}  // namespace

TEST(DateTemplate, ExampleTable) {
    const char* const rows[][2] = {
        {"yyyy-mm-dd", "2015-03-09"}, {"mm/dd/yyyy", "03/09/2015"}, {"dd/mm/yyyy", "09/03/2015"},
        {"yyyy/mm/dd", "2015/03/09"}, {"mm-dd-yy", "03-09-15"},     {"yy-mm-dd", "15-03-09"},
        {"yyyy dd mm", "2015 09 03"}, {"dd/yy/mm", "09/03/15"},     {"mmm dd, yy", "Mar 09, 15"},
        {"dd mmm, yy", "09 Mar 15"},  {"mm.dd.yyyy", "03/09/2015"}, {"abcdefgh", "03/09/2015"},
        {"mmm/dd/yy", "Mar/09/15"},   // a name but no blank: never a comma
        {"mm-yyyy-dd", "03-09-2015"}, // a year in the middle goes to the end
    };
    for (const auto& r : rows) EXPECT_EQ(date_of(moment, r[0]), r[1]) << r[0];
}

TEST(TimeTemplate, ExampleTable) {
    const char* const rows[][2] = {
        {"hh:mm:ss.xxx", "13:05:09.123"},         {"hh:mm:ss", "13:05:09"},
        {"hh:mm:ss.xxxx", "13:05:09.1234"},       {"hh:mm:ss.xxxxx", "13:05:09.12345"},
        {"hh:mm:ss.xxxxxx", "13:05:09.123456"},   {"hh:mm:ss.xxxxxxx", "13:05:09.1234567"},
        {"hh:mm:ss.xxxxxxxx", "13:05:09.12345670"}, {"hh:mm:ss.xxxxxxxxx", "13:05:09.123456700"},
        {"hh:mm:ss.xxxxxxxxxx", "13:05:09"},      // above nine digits: not even the point
        {"ss:mm:hh", ":09"},                      {"ab:cdefg", ""},
    };
    for (const auto& r : rows) EXPECT_EQ(time_of(moment, r[0]), r[1]) << r[0];
    EXPECT_EQ(time_of(130703799099999999ull, "hh:mm:ss.xxx"), "13:05:09.999");   // never rounds up
}

TEST(DateTemplate, NoDateGivesEmptyTexts) {
    std::string date = "x", time = "y";
    EXPECT_FALSE(format_date_time_template(date, time, hv::time(uint64_t(0), hv::kind_filetime), "yyyy-mm-dd",
                                           "hh:mm:ss.xxx"));
    EXPECT_EQ(date + time, "");
    format_date_time_simple(date, time, hv::time(uint64_t(0), hv::kind_filetime), false);
    EXPECT_EQ(date + time, "");
}

TEST(FixedDateForms, PrintfRoadAndLocaleRoad) {
    const hv::time t(moment, hv::kind_filetime);
    std::string date, time;
    format_date_time(date, time, t, true, false, false, false);
    EXPECT_EQ(date + " " + time, "2015-03-09 13:05:09.123");
    format_date_time(date, time, t, true, true, false, true);
    EXPECT_EQ(date + " " + time, "15-03-09 13:05:09.123456700");
    format_date_time(date, time, t, false, false, false, false);
    EXPECT_EQ(time, "13:05:09");

    const hv::time y1900(uint64_t(94354848000000000ull), hv::kind_filetime);
    const hv::time y2000(uint64_t(125911584000000000ull), hv::kind_filetime);
    format_date_time(date, time, y1900, true, true, false, false);
    EXPECT_EQ(date, "00-01-01");
    format_date_time(date, time, y2000, true, true, false, false);
    EXPECT_EQ(date, "00-01-01");

    const std::locale classic = std::locale::classic();
    format_date_time_in_locale(date, time, t, &classic, true, false, false);
    EXPECT_EQ(date + " " + time, "03/09/15 13:05:09.123");

    EXPECT_EQ(month_name_text(3), "Mar");
    EXPECT_EQ(month_name_text(0), "");
    EXPECT_EQ(month_name_text(13), "");
}

TEST(DateReader, ExampleTable) {
    struct row { const char* text; char sep; bool ok; uint32_t year, month, day; };
    const row rows[] = {
        {"2015-03-09", '-', true, 2015, 3, 9},  {"2015/3/9", '/', true, 2015, 3, 9},
        {"15-03-09", '-', true, 2015, 3, 9},    {"31-12-01", '-', true, 1931, 12, 1},
        {"2015--03-09", '-', true, 2015, 3, 9}, {"2015-03", '-', false, 0, 0, 0},
        {"2015-13-01", '-', false, 0, 0, 0},    {"2015-03-32", '-', false, 0, 0, 0},
        {"2015-00-00", '-', true, 2015, 0, 0},  {"0x7DF-o3-9", '-', true, 2015, 3, 9},
    };
    for (const row& r : rows) {
        uint32_t d = 0, m = 0, y = 0;
        EXPECT_EQ(parse_date_text(r.text, "YMD", r.sep, &d, &m, &y), r.ok) << r.text;
        if (r.ok) {
            EXPECT_EQ(std::to_string(y) + "-" + std::to_string(m) + "-" + std::to_string(d),
                      std::to_string(r.year) + "-" + std::to_string(r.month) + "-" + std::to_string(r.day))
                << r.text;
        }
    }
    uint32_t d, m, y;
    EXPECT_FALSE(parse_date_text("2015-03-09", "DMY", '-', &d, &m, &y));   // 2015 is no day
    ASSERT_TRUE(parse_date_text("09-MAR-2015", "DMonY", '-', &d, &m, &y));
    EXPECT_EQ(y * 10000 + m * 100 + d, 20150309u);
    EXPECT_FALSE(parse_date_text("09-Mrz-2015", "DMonY", '-', &d, &m, &y));

    hv::_windows_systemtime st, folded;
    ASSERT_TRUE(parse_date_time_text("2015-00-00", nullptr, "YMD", '-', &folded));
    hv::filetime_pair pair;
    hv::filetime_to_systemtime(hv::systemtime_to_filetime(&pair, &folded), &st);
    EXPECT_EQ(st.year * 10000 + st.month * 100 + st.day, 20141130);
}

TEST(TimeReader, ExampleTable) {
    struct row { const char* text; bool ok; uint32_t hour, minute; double second; };
    const row rows[] = {
        {"10:15", true, 10, 15, 0},       {"10:15:30", true, 10, 15, 30},
        {"10:15:30.250", true, 10, 15, 30.25}, {"1:05 pm", true, 13, 5, 0},
        {"1:05:09pm", true, 13, 5, 9},    {"12:30 pm", true, 24, 30, 0},
        {"12:30 am", true, 12, 30, 0},    {"10", false, 0, 0, 0},
        {"10:", false, 0, 0, 0},          {"2015-03-09", false, 0, 0, 0},
        // Numbers with no int reading, or no number at all, do not read.
        {"1e15:00", false, 0, 0, 0},      {"nan:00", false, 0, 0, 0},
        {"10:1e30", false, 0, 0, 0},      {"10:15:inf", false, 0, 0, 0},
    };
    for (const row& r : rows) {
        uint32_t h = 9, m = 9;
        double s = 9;
        EXPECT_EQ(parse_time_text(r.text, &h, &m, &s), r.ok) << r.text;
        if (r.ok) {
            EXPECT_EQ(h, r.hour) << r.text;
            EXPECT_EQ(m, r.minute) << r.text;
            EXPECT_DOUBLE_EQ(s, r.second) << r.text;
        }
    }
}

TEST(DateTimeReader, RoundsMillisecondsAndRefusesTheStopRoadDate) {
    hv::_windows_systemtime st;
    ASSERT_TRUE(parse_date_time_text("2015-03-09", "10:15:59.9996", "YMD", '-', &st));
    EXPECT_EQ(st.second, 59);
    EXPECT_EQ(st.milliseconds, 1000);
    EXPECT_EQ(st.hour * 100 + st.minute, 1015);
    EXPECT_FALSE(parse_date_time_text("2015-03-09", "2015-03-09", "YMD", '-', &st));   // date passed as time
    EXPECT_FALSE(parse_date_time_text("", nullptr, "YMD", '-', &st));
    // Seconds that the 16-bit field cannot hold.
    for (const char* time : {"10:15:1e30", "10:15:-1e10", "10:15:-0.5", "10:15:65536"})
        EXPECT_FALSE(parse_date_time_text("2015-03-09", time, "YMD", '-', &st)) << time;
    ASSERT_TRUE(parse_date_time_text("2015-03-09", "10:15:65535.25", "YMD", '-', &st));
    EXPECT_EQ(st.second, 65535);
    EXPECT_EQ(st.milliseconds, 250);
}
