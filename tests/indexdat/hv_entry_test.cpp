#include "indexdat/hv_entry.h"

#include <gtest/gtest.h>

#include "support/builder.h"

using namespace testsupport;
using namespace std::string_literals;

namespace {

// The rows that the scan's decoder makes of the entry at `at`, the buffer ending with the image.
std::vector<activity_record> decode(byte_image& image, size_t at = 0, uint32_t category = cache_unknown,
                                    bool whole = false) {
    entry_decoder decoder(whole);
    decoder.cache_category = category;
    std::vector<activity_record> rows(1);
    if (!decode_entry_at(rows[0], decoder, image.data() + at, static_cast<uint32_t>(image.size() - at), at))
        rows.clear();
    return rows;
}

// The row of `e` alone in a buffer of `cut` bytes (0: the whole entry); an empty row when none was made.
activity_record row_of(const url_entry& e, size_t cut = 0, uint32_t category = cache_unknown) {
    byte_image image;
    write_url_entry(image, 0, e);
    if (cut) image.resize(cut);
    std::vector<activity_record> rows = decode(image, 0, category);
    return rows.empty() ? activity_record() : rows[0];
}

// "url|user|file name|HTTP header", or "none" for no row.
std::string fields(const activity_record& r) {
    return r.signature[0] ? r.url + "|" + r.user + "|" + r.file_name + "|" + r.http_header : "none";
}

url_entry web_entry() {
    url_entry e;
    e.url = "http://a/";
    e.file_name = "a.gif";
    e.data = "HTTP/1.1 304\r\n~U:eve\r\n";
    return e;
}

}  // namespace

TEST(EntryDecoding, FieldsOfAnEntry) {
    // web_entry() lays its texts out at 104 (URL), 120 (file name) and 128 (data).
    struct { void (*set)(url_entry&); size_t cut; std::string fields; } cases[] = {
        {[](url_entry& e) { e.data = "HTTP/1.1 200 OK\r\nX-A: 1,2\r\n~U:bob\r\n\0x"s; }, 0,
         "http://a/|bob|a.gif|HTTP/1.1 200 OK  X-A: 1;2"},
        {[](url_entry& e) { e.data = "~U:bob\0tail"s; }, 0, "http://a/|-|a.gif|-"},  // data that begins with the mark
        {[](url_entry& e) { e.data = "HTTP/1.1\r\n~U: a,b \r\n"; }, 0, "http://a/|a,b|a.gif|HTTP/1.1"},  // not cleaned
        {[](url_entry& e) { e.data = "\0HTTP/1.1\r\n~U:bob"s; }, 0, "http://a/|bob|a.gif|"},  // NUL first: no "-"
        {[](url_entry& e) { e.data_size = 0; }, 0, "none"},                                   // good offset, size 0
        {[](url_entry& e) { e.data_offset = e.data_size = 0; }, 0, "http://a/|eve|a.gif|http://a/"},  // data from 104
        {[](url_entry& e) { e.data_offset = 0x7000; }, 0, "http://a/|eve|a.gif|http://a/"},  // offset past: the same
        {[](url_entry& e) { e.data_size = 0x4000; }, 0, "http://a/||a.gif|"},       // size past the entry: no header
        {[](url_entry& e) { e.data_offset = 200, e.data_size = 100; }, 0, "http://a/||a.gif|"},  // the sum past it
        {[](url_entry& e) { e.url_offset = 0; }, 0, "none"},
        {[](url_entry& e) { e.data = "REDR", e.url_offset = 128; }, 0, "none"},  // 128 is `remaining`: the next entry
        {[](url_entry& e) { e.signature = "LEAK"; }, 0, "||a.gif|"},              // a good URL offset all the same
        {[](url_entry& e) { e.blocks = 9, e.data = "REDR"; }, 0, "http://a/||a.gif|"},  // the file's count decides,
        {[](url_entry& e) { e.blocks = 10, e.data = "REDR"; }, 0, "none"},  // not the distance to the next entry
        {[](url_entry& e) { e.blocks = 0xFFFFFFFF; }, 0, "none"},
        {[](url_entry& e) { e.url = " http://a/?q=1,2\r\nx\n", e.file_name = "a,b\r\nc.gif"; }, 0,
         "http://a/?q=1;2 ;x|eve|a;b ;c.gif|HTTP/1.1 304"},
        {[](url_entry& e) { e.data = std::string(60, 'h'); }, 103, "none"},  // less than the fixed part
        {[](url_entry& e) { e.data = std::string(60, 'h'); }, 128, "http://a/||a.gif|"},  // the data is cut
        {[](url_entry& e) { e.data = std::string(40, 'u'), e.url_offset = 128, e.data_size = 10; }, 150,
         std::string(22, 'u') + "||a.gif|"},  // a URL cut by the end: no header or user, the file name stays
    };
    for (const auto& c : cases) {
        url_entry e = web_entry();
        c.set(e);
        EXPECT_EQ(fields(row_of(e, c.cut)), c.fields) << "case " << &c - cases;
    }
}

// Each kind of entry that the lossless decoding once dropped although the default decoding takes it: the
// unreadable field is left empty, the row stays. "URL " entries the default rejects are kept too.
TEST(EntryDecoding, TheLosslessDecodingKeepsEveryEntry) {
    struct { void (*set)(url_entry&); std::string plain, whole; } cases[] = {
        {[](url_entry& e) { e.signature = "LEAK", e.url_offset = 0; }, "||a.gif|", "||a.gif|"},
        {[](url_entry& e) { e.signature = "LEAK", e.url_offset = 0xDEADBEEF; }, "||a.gif|", "||a.gif|"},
        {[](url_entry& e) { e.signature = "LEAK", e.url_offset = 0xFFFFFFFF; }, "||a.gif|", "||a.gif|"},
        {[](url_entry& e) { e.signature = "LEAK", e.url_offset = 128 * 3; }, "||a.gif|", "||a.gif|"},  // past the entry
        {[](url_entry& e) { e.signature = "LEAK", e.data_size = 0; }, "||a.gif|", "http://a/||a.gif|"},  // no data
        {[](url_entry& e) { e.url_offset = 0; }, "none", "||a.gif|"},
        {[](url_entry& e) { e.url_offset = 0xDEADBEEF; }, "none", "||a.gif|"},
        {[](url_entry& e) { e.data_size = 0; }, "none", "http://a/||a.gif|"},
    };
    for (const auto& c : cases) {
        url_entry e = web_entry();
        c.set(e);
        byte_image image;
        write_url_entry(image, 0, e);
        image.resize(128 * 2);
        for (bool whole : {false, true}) {
            const std::vector<activity_record> rows = decode(image, 0, cache_unknown, whole);
            EXPECT_EQ(rows.empty() ? "none" : fields(rows[0]), whole ? c.whole : c.plain) << "case " << &c - cases;
        }
    }
}

TEST(EntryDecoding, RedrEntries) {
    byte_image redr;
    write_redr_entry(redr, 0, "http://r/?a,b \r\n");
    const activity_record row = decode(redr, 0, cache_daily_history).at(0);
    EXPECT_EQ(row.url, "http://r/?a_b");  // "_", not ";"
    EXPECT_FALSE(row.is_local_time);
    EXPECT_EQ(row.directory_index, 0xFE);
    redr.u32(idx::block_count, 10);  // ten blocks or more: never reported
    EXPECT_TRUE(decode(redr).empty());
    redr.u32(idx::block_count, 9).resize(17);  // 17 bytes are enough
    EXPECT_EQ(decode(redr).at(0).url, "h");
    redr.resize(16);
    EXPECT_TRUE(decode(redr).empty());
}

TEST(EntryDecoding, SentinelsMeanNotSet) {
    url_entry e = web_entry();
    e.count = e.file_size = 0xDEADBEEF;
    e.last_modified = e.last_access = 0xDEADBEEFDEADBEEFull;
    e.expires_date = e.second_date = 0xBEEF;
    e.expires_time = e.last_sync_date = 0x4667;
    e.last_sync_time = 0xBEEF;  // a time word alone is not tested
    activity_record row = row_of(e);
    EXPECT_EQ(row.count + row.last_modified + row.last_access + row.expires.time_word + row.second_stamp.date_word, 0u);
    EXPECT_EQ(row.file_size, 3735928559u);  // the size is not tested
    EXPECT_EQ(row.last_sync.time_word, 0xBEEF);
}

TEST(EntryDecoding, LocalTimeMarks) {
    struct { std::string url; uint32_t category; bool local; } cases[] = {
        {":2015030120150308; bob@http://a/", 1, true},
        {":2015030120150308: bob@http://a/", 1, false},  // the real form, ":" at 17: kept as it tests
        {":2015030120150308,  b", 1, true},              // tested on the cleaned URL: "," is ";"
        {"http://a/", cache_daily_history, true},        // every URL row of an MSHist container
    };
    for (const auto& c : cases) {
        url_entry e = web_entry();
        e.url = c.url;
        EXPECT_EQ(row_of(e, 0, c.category).is_local_time, c.local) << c.url;
    }
}

TEST(EntryDecoding, CacheKindFromThePath) {
    struct { const char* path; uint32_t kind; } cases[] = {
        {"/cases/Content.IE5/index.dat", 1}, {"/cases/Temporary Internet Files/History/index.dat", 2},
        {"/c/History/History.IE5/MSHist012015030120150308/index.dat", 3},
        {"/c/Temporary Internet Files/Content.IE5/index.dat", 4}, {"/c/Cookies/index.dat", 5},
        {"/c/Templates/index.dat", 6}, {"/cases/temp/index.dat", 1}, {"", 4},  // no file: nothing changes
    };
    for (const auto& c : cases) {
        uint32_t category = 4;
        EXPECT_EQ(classify_container_path(c.path, category), c.kind == 1 || !*c.path ? 0 : 1) << c.path;
        EXPECT_EQ(category, c.kind) << c.path;
    }
}
