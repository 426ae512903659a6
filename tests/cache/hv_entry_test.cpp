#include "cache/hv_entry.h"

#include <gtest/gtest.h>

#include "cmdline/hv_cmd_params.h"
#include "support/builder.h"

using namespace testsupport;
using namespace std::string_literals;

namespace {

// The rows that the scan's decoder makes of the entry at `at`, the buffer ending with the image.
result_map decode(byte_image& image, size_t at = 0, uint32_t category = cache_unknown) {
    cmd_opts opts;
    opts.cache_category = category;
    result_map rows;
    decode_entry_at(rows, opts, image.data() + at, static_cast<uint32_t>(image.size() - at), at);
    return rows;
}

// The row of `e` written alone into a buffer of `cut` bytes (0: as long as the entry); a row
// without signature when none was made.
activity_record row_of(const url_entry& e, size_t cut = 0) {
    byte_image image;
    write_url_entry(image, 0, e);
    if (cut) image.resize(cut);
    result_map rows = decode(image);
    return rows.empty() ? activity_record() : rows.begin()->second;
}

bool made(const activity_record& row) { return row.signature[0] != 0; }

url_entry web_entry(const std::string& data) {
    url_entry e;
    e.url = "http://example.com/a";
    e.file_name = "a[1].gif";
    e.data = data;
    return e;
}

}  // namespace

TEST(EntryDecoding, UserMarkSplitsHeaderAndUser) {
    struct {
        std::string data, header, user;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n~U:bob\r\n\0x"s, "HTTP/1.1 200 OK  Content-Type: text/html", "bob"},
        {"~U:bob\0tail"s, "-", "-"},  // data that begins with the mark
        {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK", ""},
        {"HTTP/1.1 200 OK, fine\r\n~U: a,b \r\n", "HTTP/1.1 200 OK; fine", "a,b"},  // the user isn't cleaned
        {"\0HTTP/1.1\r\n~U:bob"s, "", "bob"},  // NUL first: empty header, and no "-"
    };
    for (const auto& c : cases) {
        activity_record row = row_of(web_entry(c.data));
        EXPECT_EQ(row.http_header, c.header) << c.data;
        EXPECT_EQ(row.user, c.user) << c.data;
        EXPECT_EQ(row.file_name, "a[1].gif");
    }
}

TEST(EntryDecoding, DataOffsetAndSize) {
    const uint32_t a = url_entry::automatic;
    struct {
        uint32_t offset, size;
        bool row;
        std::string header;
    } cases[] = {
        {a, a, true, "HTTP/1.1 304"},
        {a, 0, false, ""},                           // good offset, size 0: no row
        {0, 0, true, "http://example.com/a"},         // offset 0: all behind the fixed part is data
        {0x7000, 5, true, "http://example.com/a"},    // an offset past the entry, the same
        {a, 0x4000, true, ""},                        // a size past the entry: no header
        {200, 100, true, ""},                         // offset + size past the entry
    };
    for (const auto& c : cases) {
        url_entry e = web_entry("HTTP/1.1 304\r\n~U:eve\r\n");
        e.data_offset = c.offset;
        e.data_size = c.size;
        activity_record row = row_of(e);
        EXPECT_EQ(made(row), c.row) << c.offset << " " << c.size;
        EXPECT_EQ(row.http_header, c.header) << c.offset << " " << c.size;
    }
}

TEST(EntryDecoding, EntriesCutByTheBuffersEnd) {
    url_entry e = web_entry(std::string(60, 'h'));
    EXPECT_FALSE(made(row_of(e, 103)));  // less than the fixed part
    activity_record row = row_of(e, 128);  // the URL fits, the data doesn't
    EXPECT_EQ(row.url, "http://example.com/a");
    EXPECT_EQ(row.http_header, "");

    // A URL with no NUL before the buffer's end is cut there: file name kept, no header or user.
    e.data = "HTTP/1.1 200 OK\r\n~U:bob\r\n";
    e.file_name_offset = 104;
    e.url_offset = 120;
    byte_image image;
    write_url_entry(image, 0, e);
    image.text(104, "x.gif\0"s).text(120, std::string(40, 'u')).resize(150);
    row = decode(image).at(0);
    EXPECT_EQ(row.url, std::string(30, 'u'));
    EXPECT_EQ(row.file_name, "x.gif");
    EXPECT_EQ(row.http_header + row.user, "");

    byte_image redr;
    write_redr_entry(redr, 0, "http://r/");
    redr.resize(17);  // 17 bytes of a REDR are enough
    EXPECT_EQ(decode(redr).at(0).url, "h");
    redr.resize(16);
    EXPECT_TRUE(decode(redr).empty());
}

TEST(EntryDecoding, UrlOffsetAndLeakRows) {
    url_entry e = web_entry("HTTP/1.1 200 OK\r\n~U:bob\r\n");
    e.url_offset = 128;  // equal to `remaining` once the next entry bounds this one
    byte_image image;
    write_url_entry(image, 0, e);
    write_redr_entry(image, 128, "http://next/");
    EXPECT_TRUE(decode(image).empty());
    e.url_offset = 0;
    EXPECT_FALSE(made(row_of(e)));

    e.url_offset = url_entry::automatic;
    e.signature = "LEAK";  // a good URL offset all the same: no URL, header or user
    activity_record leak = row_of(e);
    EXPECT_TRUE(leak.is_leak);
    EXPECT_EQ(leak.url + leak.http_header + leak.user, "");
    EXPECT_EQ(leak.file_name, "a[1].gif");
}

TEST(EntryDecoding, CommasAndLineEndsAreCleanedInEveryField) {
    url_entry e = web_entry("HTTP/1.1 200 OK\r\nX-A: 1,2\r\n~U:bob\r\n");
    e.url = " http://a/?q=1,2\r\nx\n";
    e.file_name = "a,b\r\nc.gif";
    byte_image image;
    size_t redr_at = write_url_entry(image, 0, e);
    write_redr_entry(image, redr_at, " http://r/?a,b\r\n");
    activity_record row = decode(image).at(0);
    EXPECT_EQ(row.url, "http://a/?q=1;2 ;x");
    EXPECT_EQ(row.file_name, "a;b ;c.gif");
    EXPECT_EQ(row.http_header, "HTTP/1.1 200 OK  X-A: 1;2");
    EXPECT_EQ(decode(image, redr_at).at(redr_at).url, "http://r/?a_b");  // REDR: "_", trimmed
}

TEST(EntryDecoding, TenBlocksOrMoreAreNeverReported) {
    for (uint32_t blocks : {9u, 10u, 0xFFFFFFFFu}) {
        url_entry e = web_entry("");
        e.blocks = blocks;
        byte_image image;
        write_url_entry(image, 0, e);
        write_redr_entry(image, 128, "http://next/", blocks);  // the file's count is tested, not the distance
        EXPECT_EQ(decode(image).size(), blocks == 9 ? 1u : 0u) << blocks;
        EXPECT_EQ(decode(image, 128).size(), blocks == 9 ? 1u : 0u) << blocks;
    }
    // The next signature bounds the entry: its distance is written over the count in memory.
    byte_image image;
    write_url_entry(image, 0, web_entry(std::string(300, 'd')));  // 4 blocks
    image.text(256, "URL ");
    URL_OR_LEAK_ACTIVITY_RECORD record;
    ASSERT_EQ(decode_url_or_leak(record, image.data(), 0, static_cast<uint32_t>(image.size())), 1);
    EXPECT_EQ(record.header.block_count(), 4u);
    EXPECT_EQ(hv::le32(image.data(), image.size(), 4), 2u);
    EXPECT_EQ(record.http_header, "");  // the data ran past the signature
}

TEST(EntryDecoding, SentinelsMeanNotSet) {
    url_entry e = web_entry("");
    e.count = e.file_size = 0xDEADBEEF;
    e.last_modified = e.last_access = 0xDEADBEEFDEADBEEFull;
    e.expires_date = 0xBEEF;
    e.expires_time = 0x1234;
    e.last_sync_date = 0x4667;
    e.last_sync_time = 0xBEEF;  // a time word alone is not tested
    e.second_date = 0xBEEF;
    activity_record row = row_of(e);
    EXPECT_EQ(row.count, 0u);
    EXPECT_EQ(row.file_size, 3735928559u);  // the size is not tested
    EXPECT_EQ(row.last_modified + row.last_access, 0u);
    EXPECT_EQ(row.expires.date_word + row.expires.time_word + row.second_stamp.date_word, 0);
    EXPECT_EQ(row.last_sync.date_word, 0x4667);
    EXPECT_EQ(row.last_sync.time_word, 0xBEEF);
}

TEST(EntryDecoding, LocalTimeMarks) {
    struct {
        std::string url;
        uint32_t category;
        bool local;
    } cases[] = {
        {":2015030120150308; bob@http://a/", 1, true},
        {":2015030120150308: bob@http://a/", 1, false},  // the real form, ":" at 17: kept as it tests
        {":2015030120150308,  b", 1, true},              // "," is ";" before the test
        {":2015030120150308; ", 1, false},               // trimmed to 18 characters
        {"http://a/", cache_daily_history, true},        // every URL row of an MSHist container
    };
    for (const auto& c : cases) {
        url_entry e = web_entry("");
        e.url = c.url;
        byte_image image;
        write_url_entry(image, 0, e);
        EXPECT_EQ(decode(image, 0, c.category).at(0).is_local_time, c.local) << c.url;
    }
    byte_image redr;
    write_redr_entry(redr, 0, "http://r/");
    const activity_record row = decode(redr, 0, cache_daily_history).at(0);
    EXPECT_FALSE(row.is_local_time);
    EXPECT_TRUE(row.is_redr);
    EXPECT_EQ(row.directory_index, 0xFE);
}

TEST(EntryDecoding, CacheKindFromThePathWords) {
    struct {
        const char* path;
        uint32_t kind;
    } cases[] = {
        {"/cases/Content.IE5/index.dat", 1},
        {"/cases/Temporary Internet Files/History/index.dat", 2},
        {"/c/History/History.IE5/MSHist012015030120150308/index.dat", 3},
        {"/c/Temporary Internet Files/Content.IE5/index.dat", 4},
        {"/c/Cookies/index.dat", 5},
        {"/c/Templates/index.dat", 6},
        {"/cases/temp/index.dat", 1},
    };
    for (const auto& c : cases) {
        cmd_opts opts;
        opts.cache_category = 4;
        opts.current_file = c.path;
        EXPECT_EQ(classify_container_path(opts), c.kind == 1 ? 0 : 1) << c.path;
        EXPECT_EQ(opts.cache_category, c.kind) << c.path;
    }
    cmd_opts opts;
    opts.cache_category = 5;
    EXPECT_EQ(classify_container_path(opts), 0);  // no file: nothing changes
    EXPECT_EQ(opts.cache_category, 5u);
}

TEST(EntryDecoding, SourceTextOnEachRoad) {
    cmd_opts opts;
    EXPECT_EQ(build_source_text(opts), "");
    opts.vmdk_files = {L"a.vmdk", L"b.vmdk"};
    EXPECT_EQ(build_source_text(opts), "a.vmdk; b.vmdk");
    opts.partition = "/dev/disk2s1";
    EXPECT_EQ(build_source_text(opts), "/dev/disk2s1:\\");
    opts.current_file = "/x/index.dat";
    EXPECT_EQ(build_source_text(opts), "/x/index.dat");
}
