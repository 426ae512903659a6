#include "webcache/hv_webcache_rows.h"

#include <gtest/gtest.h>

#include <sstream>

#include "report/hv_report.h"
#include "report/hv_timeline.h"
#include "support/builder.h"

using namespace testsupport;

namespace {

webcache_container content_container() {
    webcache_container c;
    c.id = 1;
    c.name = "Content";
    c.partition_id = "M";
    c.secure_directories = {"0KLPAC95", "EIRRDZXC", "L9HRTYNO"};
    return c;
}

webcache_record content_record(const webcache_container& container) {
    webcache_record r;
    r.container = &container;
    r.entry_id = 56;
    r.secure_directory = 3;  // counted from 1
    r.file_size = 219;
    r.access_count = 3;
    r.flags = 40;
    r.type = 2113;
    r.modified_time = filetime_of(2021, 11, 29, 20, 0, 0);
    r.accessed_time = filetime_of(2021, 11, 29, 22, 47, 25);
    r.expiry_time = filetime_of(2021, 12, 29, 22, 47, 25);
    r.sync_time = filetime_of(2021, 11, 29, 22, 47, 26);
    r.creation_time = filetime_of(2021, 11, 29, 22, 47, 24);
    r.post_check_time = 0;
    r.url = "http://a.example/x,y";
    r.file_name = "x,y[1].htm";
    r.response_headers = std::string("HTTP/1.1 200 OK\r\nA: b,c\r\n\r\n~U:alice\0junk", 38);
    r.request_headers = "GET / HTTP/1.1";
    return r;
}

std::string row_text(const activity_record& row, bool complete) {
    report_settings settings;
    settings.header = false;
    settings.complete = complete;
    std::ostringstream out;
    make_report_writer(out, settings)->write(row);
    return out.str();
}

}  // namespace

TEST(WebcacheRows, ContainerNamesGiveTheCacheKind) {
    const struct {
        const char* name;
        uint32_t kind;
    } cases[] = {
        {"Content", cache_browser},         {"History", cache_history},   {"MSHist012021112220211129", cache_daily_history},
        {"Cookies", cache_cookies},         {"iedownload", cache_download}, {"DOMStore", cache_unknown},
        {"feedplat", cache_unknown},        {"", cache_unknown},
    };
    for (const auto& c : cases) EXPECT_EQ(webcache_container_kind(c.name), c.kind) << c.name;
}

// The columns an index.dat entry has, by its rules: the default cleans the texts, the lossless report
// keeps them; the user comes from "~U:" or from a history URL.
TEST(WebcacheRows, RecordsBecomeRows) {
    const webcache_container content = content_container();
    const webcache_record record = content_record(content);
    activity_record row;
    fill_activity_from_webcache(row, record, false, "W.dat");
    EXPECT_EQ(row_text(row, false),
              "2021-11-29,20:00:00.000 UTC,2021-11-29,22:47:25.000 UTC,2021-12-29,22:47:25.000 UTC,"
              "2021-11-29,22:47:26.000 UTC,URL ,http://a.example/x;y,alice,x;y[1].htm,219,L9HRTYNO,3,"
              "HTTP/1.1 200 OK  A: b;c,W.dat\n");
    fill_activity_from_webcache(row, record, true, "W.dat");
    EXPECT_EQ(row_text(row, true),
              "2021-11-29,20:00:00.000 UTC,2021-11-29,22:47:25.000 UTC,2021-12-29,22:47:25.000 UTC,"
              "2021-11-29,22:47:26.000 UTC,URL ,\"http://a.example/x,y\",alice,\"x,y[1].htm\",219,L9HRTYNO,3,"
              "\"HTTP/1.1 200 OK\r\nA: b,c\",W.dat,,yes,,,\n");

    webcache_container history = content_container();
    history.name = "MSHist012021112220211129";
    webcache_record visit = content_record(history);
    visit.url = ":2021112220211129: bob@https://b.example/";
    visit.response_headers.clear();
    visit.secure_directory = 9;  // points at no folder
    visit.expiry_time = 0xDEADBEEFDEADBEEFull;
    fill_activity_from_webcache(row, visit, false, "W.dat");
    EXPECT_EQ(row.user, "bob");
    EXPECT_EQ(row.directory, "");
    EXPECT_EQ(row.cache_category, uint32_t{cache_daily_history});
    EXPECT_EQ(row_text(row, false).substr(0, 93),
              "2021-11-29,20:00:00.000 local,2021-11-29,22:47:25.000 UTC,,,2021-11-29,22:47:26.000 UTC,URL ,");
    visit.url = "Visited: carol@file:///E:/";
    fill_activity_from_webcache(row, visit, false, "W.dat");
    EXPECT_EQ(row.user, "carol");

    webcache_record leak;
    leak.leak = true;
    leak.entry_id = 2;
    leak.creation_time = filetime_of(2021, 11, 29, 1, 2, 3);
    leak.file_name = "C:\\IE\\log[1].txt";
    fill_activity_from_webcache(row, leak, false, "W.dat");
    EXPECT_EQ(row_text(row, false), ",,,,,,,,LEAK,,,C:\\IE\\log[1].txt,0,,0,,W.dat\n");
}

// Every set stamp is an event, the creation and post-check times too, with the record's own members;
// the body file's crtime is the creation time.
TEST(WebcacheRows, TimelinesCarryEveryStamp) {
    const webcache_container content = content_container();
    webcache_record record = content_record(content);
    record.post_check_time = filetime_of(2021, 11, 30);
    activity_record row;
    fill_activity_from_webcache(row, record, true, "W.dat");

    std::ostringstream jsonl;
    timeline_writer(jsonl, timeline_form::jsonl).write(row);
    const std::string events = jsonl.str();
    for (const char* desc : {"Last Modified", "Last Accessed", "Expires", "Last Checked", "Created", "Post Check"})
        EXPECT_NE(events.find(std::string("\"timestamp_desc\":\"") + desc + "\""), std::string::npos) << desc;
    EXPECT_NE(events.find("\"datetime\":\"2021-11-29T22:47:24.000Z\",\"timestamp_desc\":\"Created\""), std::string::npos);
    EXPECT_NE(events.find("(user alice; file x,y[1].htm; dir L9HRTYNO; count 3; allocated yes; in W.dat table Container_1 entry 56)"),
              std::string::npos);
    EXPECT_NE(events.find("\"offset\":null,\"allocated\":true,\"hash_listed\":null,\"cache_kind\":\"browser_cache\","
                          "\"table\":\"Container_1\",\"container\":\"Content\",\"container_id\":1,\"entry_id\":56,"
                          "\"partition_id\":\"M\",\"request_headers\":\"GET / HTTP/1.1\",\"redirect_url\":\"\","
                          "\"flags\":40,\"entry_type\":2113,\"sync_count\":0,\"exemption_delta\":0,\"time_label\":\"UTC\"}\n"),
              std::string::npos)
        << events;

    std::ostringstream body;
    timeline_writer(body, timeline_form::body).write(row);
    EXPECT_EQ(body.str().substr(body.str().rfind("|219|")), "|219|1638226045|1638216000|1638226046|1638226044\n");
}
