#include "report/hv_report.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/builder.h"

using namespace testsupport;

// Default rows of every kind are pinned end to end; these are the cases no real container reaches.
namespace {

// The row as the run's writer of `settings` writes it, without the header row.
std::string row_text(const activity_record& row, report_settings settings = report_settings()) {
    settings.header = false;
    std::ostringstream out;
    make_report_writer(out, settings)->write(row);
    return out.str();
}

activity_record url_row() {
    activity_record row;
    row.signature = {'U', 'R', 'L', ' '};
    row.url = "http://a/|b";
    row.file_size = 43;
    return row;
}

}  // namespace

TEST(Report, StampColumns) {
    struct { uint64_t ticks; const char* columns; } cases[] = {
        // Which stamps are dates is pinned in the time tests; here only how each kind fills its columns.
        {116444736000000000ull, ","}, {116444735999999999ull, "1969-12-31,23:59:59.999 UTC"},
    };
    for (const auto& c : cases) {
        activity_record row = url_row();
        row.last_access = c.ticks;
        row.expires = {dos_date_of(2015, 13, 1), 0};  // month 13: no date
        EXPECT_EQ(row_text(row), std::string(",,") + c.columns + ",,,,,URL ,http://a/|b,,,43,,0,,\n") << c.ticks;
    }
    activity_record row = url_row();
    row.last_modified = filetime_of(2015, 3, 1, 12, 0, 1);
    row.is_local_time = true;  // the last-mod column alone
    row.last_sync = {dos_date_of(2015, 3, 2), dos_time_of(8, 30, 2)};
    row.second_stamp = {dos_date_of(2015, 3, 1), dos_time_of(22, 15, 30)};  // only a LEAK row falls back on it
    EXPECT_EQ(row_text(row),
              "2015-03-01,12:00:01.000 local,,,,,2015-03-02,08:30:02.000 UTC,URL ,http://a/|b,,,43,,0,,\n");
}

// A lossless row is written plain and checked whole; a field that holds a byte that calls for quotes
// must still be quoted alone, whatever run it stands in and whatever the separator's length.
TEST(Report, LosslessFieldsAreQuotedOnlyWhereTheyMustBe) {
    struct { const char* separator; const char* url; const char* header; const char* url_column; const char* header_column; } cases[] = {
        {",", "http://a/", "", "http://a/", ""},
        {",", "http://a/?x=1,2", "", "\"http://a/?x=1,2\"", ""},
        {",", "say \"hi\"", "HTTP/1.1 200\r\n", "\"say \"\"hi\"\"\"", "\"HTTP/1.1 200\r\n\""},
        {"ab", "http://a/", "a;b", "http://a/", "a;b"},          // the first byte alone asks for nothing
        {"ab", "http://ab/", "", "\"http://ab/\"", ""},
        {", ", "x,y", "", "x,y", ""},
        {", ", "x, y", "", "\"x, y\"", ""},
        {"aa", "baaa", "", "\"baaa\"", ""},
        {"aa", "ba", "", "ba", ""},
    };
    for (const auto& c : cases) {
        report_settings settings;
        settings.complete = true;
        settings.separator = c.separator;
        activity_record row = url_row();
        row.url = c.url;
        row.http_header = c.header;
        row.source_file = "in,dex.dat";
        row.offset = 77;
        const std::string s = c.separator;
        std::string expected;
        for (int i = 0; i < 8; ++i) expected += s;
        expected += "URL " + s + c.url_column + s + s + s + "43" + s + s + "0" + s + c.header_column + s;
        expected += (s == "," ? "\"in,dex.dat\"" : "in,dex.dat") + s + "77" + s + s + s + s + "\n";
        EXPECT_EQ(row_text(row, settings), expected) << c.separator << " " << c.url;
    }
}
