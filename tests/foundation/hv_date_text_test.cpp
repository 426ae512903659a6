#include "foundation/hv_date_text.h"

#include <gtest/gtest.h>

namespace {

const uint64_t moment = 130703799091234567ull;   // 2015-03-09 13:05:09.1234567 UTC

// The date and time columns of a stamp under -dateformat and -timeformat, written over a row's old texts.
std::string formatted(const std::string& date_template, const std::string& time_template, uint64_t ticks = moment) {
    std::string date = "old", time = "old";
    format_date_time_template(date, time, hv::time(ticks, hv::kind_filetime), date_template, time_template);
    return date + "|" + time;
}

}  // namespace

TEST(DateTimeTemplates, ExampleTable) {
    const char* const dates[][2] = {
        {"yyyy-mm-dd", "2015-03-09"}, {"mm/dd/yyyy", "03/09/2015"}, {"dd/mm/yyyy", "09/03/2015"},
        {"yyyy/mm/dd", "2015/03/09"}, {"mm-dd-yy", "03-09-15"},     {"yy-mm-dd", "15-03-09"},
        {"yyyy dd mm", "2015 09 03"}, {"dd/yy/mm", "09/03/15"},     {"mmm dd, yy", "Mar 09, 15"},
        {"dd mmm, yy", "09 Mar 15"},  {"mm.dd.yyyy", "03/09/2015"}, {"abcdefgh", "03/09/2015"},
        {"mmm/dd/yy", "Mar/09/15"},   // a name but no blank: never a comma
        {"mm-yyyy-dd", "03-09-2015"}, // a year in the middle goes to the end
    };
    for (const auto& r : dates) EXPECT_EQ(formatted(r[0], ""), r[1] + std::string("|")) << r[0];
    const char* const times[][2] = {
        {"hh:mm:ss.xxx", "13:05:09.123"},         {"hh:mm:ss", "13:05:09"},
        {"hh:mm:ss.xxxx", "13:05:09.1234"},       {"hh:mm:ss.xxxxx", "13:05:09.12345"},
        {"hh:mm:ss.xxxxxx", "13:05:09.123456"},   {"hh:mm:ss.xxxxxxx", "13:05:09.1234567"},
        {"hh:mm:ss.xxxxxxxx", "13:05:09.12345670"}, {"hh:mm:ss.xxxxxxxxx", "13:05:09.123456700"},
        {"hh:mm:ss.xxxxxxxxxx", "13:05:09"},      // above nine digits: not even the point
        {"ss:mm:hh", ":09"},                      {"ab:cdefg", ""},
    };
    for (const auto& r : times) EXPECT_EQ(formatted("", r[0]), "|" + std::string(r[1])) << r[0];
    EXPECT_EQ(formatted("", "hh:mm:ss.xxx", 130703799099999999ull), "|13:05:09.999");   // never rounds up
    EXPECT_EQ(formatted("yyyy-mm-dd", "hh:mm:ss.xxx", 0), "|");   // no date: both columns empty
}

// -cmd_start_time and -cmd_stop_time read a date, and a time after a blank.
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
            EXPECT_EQ(y * 10000 + m * 100 + d, r.year * 10000 + r.month * 100 + r.day) << r.text;
        }
    }
    uint32_t d, m, y;
    EXPECT_FALSE(parse_date_text("2015-03-09", "DMY", '-', &d, &m, &y));   // 2015 is no day
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
            EXPECT_EQ(h * 100 + m, r.hour * 100 + r.minute) << r.text;
            EXPECT_DOUBLE_EQ(s, r.second) << r.text;
        }
    }
}

// -locale: the date in the locale's short form, the time as by default.
TEST(DateForms, LocaleRoad) {
    const std::locale classic = std::locale::classic();
    std::string date, time;
    format_date_time_in_locale(date, time, hv::time(moment, hv::kind_filetime), &classic);
    EXPECT_EQ(date + " " + time, "03/09/15 13:05:09.123");
}
