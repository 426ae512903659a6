#include "webcache/hv_ese_record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_ese.h"
#include "webcache/hv_ese_long_values.h"
#include "webcache/hv_ese_page.h"
#include "webcache/hv_webcache_images.h"

using namespace testsupport;

namespace {

const uint8_t* bytes_of(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

ese_record visit() {
    ese_record r;
    r.entry_id = 2223;
    r.container_id = 11;
    r.access_count = 3;
    r.accessed_time = filetime_of(2021, 2, 3, 4, 5, 6);
    r.modified_time = filetime_of(2021, 2, 1);
    r.url = "ieflipahead:d:www.example.com";
    r.file_name = "page[1].htm";
    r.response_headers = std::string("\x01\x00\x00\x00", 4) + "HTTP/1.1 200 OK";
    return r;
}

}  // namespace

// Each change breaks one check; the image is refused whole.
TEST(EseRecord, RefusesWhatFailsACheck) {
    const std::string good = ese_record_image(visit());
    struct change {
        const char* what;
        size_t at;
        std::string bytes;
    } changes[] = {
        {"header", 0, "\x12"},
        {"null bitmap of absent columns", 118, std::string("\x00", 1)},
        {"stamp out of range", ESE_CONTAINER_RECORD::at_accessed_time + 7, "\x7f"},
        {"first tagged column not the Url", 119, "\x01\x01"},
        {"tagged array out of bounds", 121, "\xff\x7f"},
        {"tagged ids out of order", 123, std::string("\x00\x01", 2)},
        {"offset with the top bit", 125, "\x80"},
        {"a column the table hasn't", 127, std::string("\x09\x01", 2)},
        {"Url with a control character", 119 + 12 + 1, std::string("\x07", 1)},
        {"Url compressed", 119 + 12, std::string("\x03", 1)},
    };
    for (const change& c : changes) {
        std::string bad = good;
        bad.replace(c.at, c.bytes.size(), c.bytes);
        webcache_record out;
        ese_record_notes notes;
        EXPECT_FALSE(decode_container_record(bytes_of(bad), bad.size(), nullptr, out, notes)) << c.what;
        EXPECT_TRUE(out.url.empty()) << c.what;
    }
    for (size_t cut = 0; cut < 123; ++cut) {
        webcache_record out;
        ese_record_notes notes;
        EXPECT_FALSE(decode_container_record(bytes_of(good), cut, nullptr, out, notes)) << cut;
    }
}

// A Url in the long-value tree: read from it when it is there, left empty when not.
TEST(EseRecord, LongValues) {
    ese_record r = visit();
    r.url_long_value = 0x1234;
    const std::string image = ese_record_image(r);
    const ese_long_values tree = {{0x1234, utf16_of("http://long.example.com/")}};
    for (const ese_long_values* values : {&tree, static_cast<const ese_long_values*>(nullptr)}) {
        webcache_record out;
        ese_record_notes notes;
        ASSERT_TRUE(decode_container_record(bytes_of(image), image.size(), values, out, notes));
        EXPECT_EQ(out.url, values ? "http://long.example.com/" : "");
        EXPECT_EQ(notes.values_left_empty, values ? 0u : 1u);
        EXPECT_FALSE(notes.url_inline);
        EXPECT_EQ(out.file_name, "page[1].htm");
    }
}

// A leaf page: two live tags, a deleted one, two images in its free space; each found once, where the
// builder put it, with its state.
TEST(EsePage, FindsEveryImageWithItsState) {
    ese_leaf_page page;
    std::vector<std::string> images;
    for (uint64_t id = 1; id <= 5; ++id) {
        ese_record r = visit();
        r.entry_id = id;
        r.url = "http://example.com/" + std::to_string(id);
        images.push_back(ese_record_image(r));
    }
    page.live = {images[0], images[1]};
    page.deleted = {images[2]};
    page.free_space = {images[3], images[4]};
    ese_page_layout layout;
    const std::string bytes = ese_page_bytes(page, &layout);

    std::vector<webcache_image> found;
    decode_database_page(bytes_of(bytes), bytes.size(), true, nullptr, found);
    struct expected {
        size_t offset;
        webcache_record_state state;
        uint64_t entry;
    } want[] = {
        {layout.live[0], webcache_record_state::live, 1},        {layout.live[1], webcache_record_state::live, 2},
        {layout.deleted[0], webcache_record_state::deleted_tag, 3}, {layout.free_space[0], webcache_record_state::free_space, 4},
        {layout.free_space[1], webcache_record_state::free_space, 5},
    };
    ASSERT_EQ(found.size(), 5u);
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].offset, want[i].offset) << i;
        EXPECT_EQ(found[i].state, want[i].state) << i;
        EXPECT_EQ(found[i].record.entry_id, want[i].entry) << i;
        EXPECT_EQ(found[i].record.url, "http://example.com/" + std::to_string(want[i].entry)) << i;
        EXPECT_EQ(found[i].container_id, 11u);
    }
    // The same page read as one outside any table: the same images, each "outside the tree".
    decode_database_page(bytes_of(bytes), bytes.size(), false, nullptr, found);
    ASSERT_EQ(found.size(), 5u);
    for (const webcache_image& image : found) EXPECT_EQ(image.state, webcache_record_state::outside_tree);
    // Carved from the page's bytes: the same five with their offsets, and none from a window that ends
    // before them.
    carve_container_records(bytes_of(bytes), bytes.size(), bytes.size(), found);
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[3].offset, layout.free_space[0]);
    carve_container_records(bytes_of(bytes), bytes.size(), layout.live[0], found);
    EXPECT_TRUE(found.empty());
}

// Random bytes and index.dat containers hold no image that passes the checks.
TEST(EseCarve, NothingInOtherBytes) {
    uint64_t state = 0x9e3779b97f4a7c15ULL;
    std::string noise(1 << 20, '\0');
    for (size_t i = 0; i < noise.size(); ++i) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        noise[i] = static_cast<char>(state >> 56);
    }
    // Planted headers followed by noise: still refused.
    for (size_t at = 0; at + 4 < noise.size(); at += 4099) noise.replace(at, 4, "\x11\x7f\x77\x00", 4);
    std::vector<webcache_image> found;
    carve_container_records(bytes_of(noise), noise.size(), noise.size(), found);
    EXPECT_TRUE(found.empty());
    const std::string container = small_container("example.com").bytes();
    carve_container_records(bytes_of(container), container.size(), container.size(), found);
    EXPECT_TRUE(found.empty());
}

// The catalog names a table's long-value tree; the tree's pieces, some keyed through the page's common
// key, one deleted and replaced, join into the value a record refers to.
TEST(EseLongValues, JoinsTheTreesPieces) {
    const std::string url = utf16_of("http://example.com/" + std::string(300, 'a'));
    std::vector<ese_entry> entries = ese_long_value_entries(0x17, url, 100);
    for (size_t i = 2; i < entries.size(); ++i) entries[i].common = 4;  // the id, from tag 0
    ese_entry stale = entries[1];
    stale.deleted = true;
    stale.data = std::string(100, 'x');
    entries.insert(entries.begin() + 1, stale);
    entries.push_back({std::string("\0\0\0\x18", 4), std::string("\1\0\0\0\x32\0\0\0", 8)});  // 50 bytes, no piece
    const std::string lv_page = ese_entries_page(41, 0x82, std::string("\0\0\0\x17", 4), entries);
    const std::string catalog = ese_entries_page(2, 0x2, "", {{std::string(4, '\0'), ese_catalog_long_values_record(40, 41)}});

    ese_long_value_reader reader(1 << 20);
    reader.read_catalog_page(bytes_of(catalog), catalog.size());
    reader.read_long_value_page(bytes_of(lv_page), lv_page.size(), 41);
    ese_long_values values;
    reader.values_of_table(40, values);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values.at(0x17), url);
    reader.values_of_table(14, values);
    EXPECT_TRUE(values.empty());

    // A reader with no room left takes no piece.
    ese_long_value_reader full(10);
    full.read_catalog_page(bytes_of(catalog), catalog.size());
    full.read_long_value_page(bytes_of(lv_page), lv_page.size(), 41);
    full.values_of_table(40, values);
    EXPECT_TRUE(values.empty());
}
