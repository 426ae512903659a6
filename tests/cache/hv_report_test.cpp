#include "cache/hv_report.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cmdline/hv_cmd_params.h"
#include "support/builder.h"

using namespace testsupport;

namespace {

std::string row_text(const activity_record& row, const cmd_opts& opts) {
    std::ostringstream out;
    write_activity_row(row, out, opts);
    return out.str();
}

activity_record full_url_row() {
    activity_record row;
    row.signature = {'U', 'R', 'L', ' '};
    row.last_modified = filetime_of(2015, 3, 1, 12, 0, 1);
    row.last_access = filetime_of(2015, 3, 2, 8, 30, 0);
    row.expires = {dos_date_of(2015, 4, 1), dos_time_of(0, 0, 0)};
    row.last_sync = {dos_date_of(2015, 3, 2), dos_time_of(8, 30, 2)};
    row.url = "about:blank";
    row.user = "Bob";
    row.file_name = "a[1].gif";
    row.file_size = 43;
    row.directory = "0ABCDEFG";
    row.count = 2;
    row.http_header = "HTTP/1.1 200 OK Content-Type: image/gif";
    row.source_file = "/cases/index.dat";
    return row;
}

}  // namespace

TEST(Report, HeaderRow) {
    cmd_opts opts;
    std::ostringstream out;
    write_header_row(out, opts);
    EXPECT_EQ(out.str(),
              "last mod date,last mod time,access date,access time,expires date,expires time,last sync date,"
              "last sync time,type,url,user,filename,file size,directory,count,HTTP header,index.dat filename\n");
    opts.show_note_columns = true;
    opts.separator = "|";
    std::ostringstream noted;
    write_header_row(noted, opts);
    EXPECT_EQ(noted.str().substr(0, 26), "note|offset|last mod date|");
}

TEST(Report, RowsOfEachKind) {
    cmd_opts opts;
    activity_record row = full_url_row();
    EXPECT_EQ(row_text(row, opts),
              "2015-03-01,12:00:01.000 UTC,2015-03-02,08:30:00.000 UTC,2015-04-01,00:00:00.000 UTC,2015-03-02,"
              "08:30:02.000 UTC,URL ,about:blank,Bob,a[1].gif,43,0ABCDEFG,2,HTTP/1.1 200 OK Content-Type: "
              "image/gif,/cases/index.dat\n");
    row.is_local_time = true;  // the last-mod column alone
    EXPECT_EQ(row_text(row, opts).substr(0, 58), "2015-03-01,12:00:01.000 local,2015-03-02,08:30:00.000 UTC,");

    activity_record redr;
    redr.signature = {'R', 'E', 'D', 'R'};
    redr.url = "http://r/";
    redr.source_file = "/s";
    EXPECT_EQ(row_text(redr, opts), ",,,,,,,,REDR,http://r/,,,0,,0,,/s\n");
    // Only a LEAK row falls back on its DOS access stamp.
    activity_record leak = redr;
    leak.signature = {'L', 'E', 'A', 'K'};
    leak.second_stamp = {dos_date_of(2015, 3, 1), dos_time_of(22, 15, 30)};
    leak.is_leak = true;
    EXPECT_EQ(row_text(leak, opts), ",,2015-03-01,22:15:30.000 UTC,,,,,LEAK,http://r/,,,0,,0,,/s\n");
    leak.is_leak = false;
    EXPECT_EQ(row_text(leak, opts), ",,,,,,,,LEAK,http://r/,,,0,,0,,/s\n");
}

TEST(Report, StampsThatAreNoDateGiveEmptyColumns) {
    struct {
        uint64_t ticks;
        const char* columns;
    } cases[] = {
        {filetime_of(1899, 12, 31, 23, 59, 59), ","},
        {filetime_of(1900, 1, 1), "1900-01-01,00:00:00.000 UTC"},
        {116444736000000000ull, ","},  // the first second of 1970
        {116444736009999999ull, ","},
        {116444735999999999ull, "1969-12-31,23:59:59.999 UTC"},
        {116444736010000000ull, "1970-01-01,00:00:01.000 UTC"},
        {0x8000000000000000ull, ","},
    };
    for (const auto& c : cases) {
        activity_record row;
        row.signature = {'U', 'R', 'L', ' '};
        row.last_access = c.ticks;
        row.expires = {dos_date_of(2015, 13, 1), 0};  // month 13: no date
        EXPECT_EQ(row_text(row, cmd_opts()), std::string(",,") + c.columns + ",,,,,URL ,,,,0,,0,,\n") << c.ticks;
    }
}

TEST(Report, SeparatorNoteColumnsAndShortForm) {
    cmd_opts opts;
    opts.separator = "|";
    activity_record row = full_url_row();
    row.last_modified = row.last_access = 0;
    row.expires = row.last_sync = {};
    row.url = "http://a/|b";  // nothing is escaped
    EXPECT_EQ(row_text(row, opts), "||||||||URL |http://a/|b|Bob|a[1].gif|43|0ABCDEFG|2|"
                                   "HTTP/1.1 200 OK Content-Type: image/gif|/cases/index.dat\n");
    opts.separator = ",";
    opts.show_note_columns = true;
    row.offset = 0x80;
    EXPECT_EQ(row_text(row, opts).substr(0, 12), "0x00000080,,");
    row.offset = 0x123456789ull;
    std::string text = row_text(row, opts);
    EXPECT_EQ(text.substr(0, 13), "0x123456789,,");
    EXPECT_NE(text.find(",43,0ABCDEFG,2,"), std::string::npos);  // decimal again, no fill
    opts.show_note_columns = opts.verbose = false;
    EXPECT_EQ(row_text(row, opts), ",,,,,,,,URL ,http://a/|b,,,,,,,/cases/index.dat\n");
}
