#include "indexdat/hv_container.h"

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

// The lossless report's questions: a bit or a slot says "yes", a bit or a chain read whole says "no",
// and whatever can't be read says nothing, whatever the header claims.
TEST(Container, AllocationAndHashListingSayOnlyWhatTheContainerHolds) {
    // `reused` is a live entry written into the third block of the deleted four-block entry `old`
    const uint32_t live = 0x4000, deleted = 0x4200, leaked = 0x4400, unlisted = 0x4600, old = 0x4800,
                   reused = 0x4900;
    auto build = [&](uint32_t blocks, uint32_t first_hash, uint32_t next) {
        byte_image image(0x5000);
        write_container_header(image, {"DIR00001"}, first_hash);
        image.u32(28, 0x5000).u32(36, blocks);
        for (uint32_t at : {live, unlisted, reused}) image.u8(0x250 + (at - 0x4000) / 128 / 8, 1u << ((at - 0x4000) / 128 % 8));
        url_entry e;
        e.url = "http://a/";
        for (uint32_t at : {live, deleted, unlisted}) write_url_entry(image, at, e);
        e.blocks = 4;
        write_url_entry(image, old, e);
        e.blocks = url_entry::automatic;
        write_url_entry(image, reused, e);
        e.signature = "LEAK";
        write_url_entry(image, leaked, e);
        write_hash_block(image, 0x800, {{1, live}, {1, deleted}, {3, leaked}, {1, reused}}, next);
        return image;
    };
    struct { const char* name; uint32_t blocks, first_hash, next; std::string answers; } cases[] = {
        // live, deleted, leaked, unlisted, old, reused: "allocated hash-listed", with "?" for nothing known
        {"a chain read whole", 32, 0x800, 0, "11 01 01 10 00 11"},
        {"no chain at all", 32, 0, 0, "1? 0? 0? 1? 0? 1?"},
        {"a chain that loops", 32, 0x800, 0x800, "11 01 01 1? 0? 11"},
        {"a chain that ends at a block that isn't one", 32, 0x800, 0x900, "11 01 01 1? 0? 11"},
        {"a chain that points past the file", 32, 0x800, 0x7000, "11 01 01 1? 0? 11"},
        {"a bitmap that ends inside the entries", 8, 0x800, 0, "11 01 ?1 ?0 ?0 ?1"},
        {"a bitmap that claims more blocks than the file holds", 0xFFFFFFF0u, 0x800, 0, "11 01 01 10 00 11"},
    };
    for (const auto& c : cases) {
        byte_image image = build(c.blocks, c.first_hash, c.next);
        container_facts facts;
        ASSERT_TRUE(facts.read(image.data(), static_cast<uint32_t>(image.size()))) << c.name;
        std::string answers;
        for (uint32_t at : {live, deleted, leaked, unlisted, old, reused}) {
            const char* mark = "?01";
            if (!answers.empty()) answers += ' ';
            answers += mark[facts.allocated(at) + 1];
            answers += mark[facts.hash_listed(at) + 1];
        }
        EXPECT_EQ(answers, c.answers) << c.name;
    }
    container_facts foreign;
    EXPECT_FALSE(foreign.read(byte_image(0x5000).data(), 0x5000));
    EXPECT_EQ(foreign.allocated(live) + foreign.hash_listed(live), -2);
}
