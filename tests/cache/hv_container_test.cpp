#include "cache/hv_container.h"

#include <gtest/gtest.h>

#include "support/builder.h"

using namespace testsupport;
using namespace std::string_literals;
using names = std::vector<std::string>;

namespace {

// The directory table of `image` as rows with these indexes would show it.
names directories(byte_image& image, std::initializer_list<uint8_t> indexes, int* answer = nullptr) {
    INDEX_DAT_RECORD record;
    int got = read_directory_table(record, image.data(), static_cast<uint32_t>(image.size()));
    if (answer) *answer = got;
    names out;
    for (uint8_t i : indexes) {
        const std::string* name = directory_name_of(record, i);
        out.push_back(name ? *name : "");
    }
    return out;
}

}  // namespace

TEST(Container, RangeIsInsideAndTheHeaderCopy) {
    const char b[16] = {};
    EXPECT_EQ(range_is_inside(b, b + 11, 4, 16), 11u);
    EXPECT_EQ(range_is_inside(b, b, 4, 16) + range_is_inside(b, b + 12, 4, 16), 0u);  // at base; ending at total
    EXPECT_EQ(range_is_inside(b + 4, b, 1, 16) + range_is_inside(b, b + 1, 17, 16), 0u);
    byte_image image;
    write_container_header(image, {});
    image.u8(0, 'c');
    INDEX_DAT_RECORD record;
    EXPECT_EQ(read_container_header(record, image.data(), 81), 0);
    EXPECT_EQ(record.header[0], 'c');  // copied before the test
}

TEST(Container, DirectoryIndexRules) {
    byte_image image(512);
    write_container_header(image, {"ENG3X4ZR", "AB\0D\0FGH"s, "NAME2"});
    EXPECT_EQ(directories(image, {0, 1, 2, 3, 0xFE, 0xFF, 0x80}),
              (names{"ENG3X4ZR", "AB\0D\0FGH"s, "NAME2\0\0\0"s, "", "", "", ""}));
    names many(255, "DDDDDDDD");  // 0xFE names something only past 254 items
    many[254] = "LAST0254";
    byte_image big(4096);
    write_container_header(big, many);
    EXPECT_EQ(directories(big, {0xFE, 0xFF}), (names{"LAST0254", ""}));
}

TEST(Container, BadTablesLeaveDirectoriesEmpty) {
    struct { uint32_t count; size_t size; char first; int answer; } cases[] = {
        {0, 512, 'C', 1},           {2, 105, 'C', 1},   // the table ends before the file does
        {2, 104, 'C', 0},           {40, 512, 'C', 0},  // it runs to the file's end, past it
        {0x15555556, 512, 'C', 0},  {2, 512, 'c', 0},   // the product wraps to 8; a foreign header
        {0, 80, 'C', 0},                                // fewer than 81 bytes
    };
    for (const auto& c : cases) {
        byte_image image(512);
        write_container_header(image, {"AAAAAAAA", "BBBBBBBB"});
        image.u32(idx::header_directory_count, c.count).u8(0, c.first).resize(c.size);
        int answer = -1;
        EXPECT_EQ(directories(image, {0}, &answer)[0], c.count == 2 && c.answer ? "AAAAAAAA" : "") << c.count;
        EXPECT_EQ(answer, c.answer) << c.count;
    }
}

TEST(Container, HashWalkFollowsTheChainAndFindsGaps) {
    byte_image image(0x3000);
    write_container_header(image, {"DIR00000"}, 0x800);
    // Gap entries are decoded with the gap's rest as the size and their file offset as the offset:
    // one near the file's start is found, one far from it isn't.
    url_entry e;
    e.url = "http://gap/";
    write_url_entry(image, 0x300, e);
    write_url_entry(image, 0x1C00, e);
    e.url = "http://named/";
    write_url_entry(image, 0x200, e);
    write_url_entry(image, 0x2000, e);
    write_redr_entry(image, 0x280, "http://redr/");
    write_hash_block(image, 0x800, {{1, 0x200}, {2, 0x280}, {3, 0x2000}, {4, 0x9999}, {5, 0x10}}, 0xC00);
    write_hash_block(image, 0xC00, {{6, 0x2000}}, 0x800);  // points back: each block is read once
    INDEX_DAT_RECORD record;
    ASSERT_TRUE(record.walk_hash_tables(image.data(), static_cast<uint32_t>(image.size()), true));
    ASSERT_EQ(record.hash_tables.size(), 2u);
    EXPECT_EQ(record.hash_tables[0].pairs.size(), 3u);  // slots naming no entry are skipped
    EXPECT_EQ(record.entries.at(0x280).redr_index, 0u);
    EXPECT_EQ(record.entries.at(0x2000).hash_blocks, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(record.gap_url_entries.at(0).url, "http://gap/");
    EXPECT_EQ(record.entries.at(0x300).hash_blocks, std::vector<uint32_t>{no_index});
    EXPECT_EQ(record.entries.count(0x1C00), 0u);
}
