// -complete: every entry decoded whole wherever it lies, its bytes kept, as CSV that always parses,
// with its offset, its allocation and whether the container's HASH chain names it.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

using record = csv_record;

// The records of a -complete run's report, its header row first.
std::vector<record> complete_rows(const run_result& run) { return read_csv(after_preamble(run.out)); }

// A container of 64 KiB: header, four directories, a bitmap, a HASH chain of two blocks; entries of
// every kind from 0x4000, some of them in blocks the bitmap marks free, some no slot names.
struct sample_container {
    byte_image image;
    size_t first_entry = 0x4000, end = 0x10000;
    std::vector<size_t> entries;

    sample_container() {
        write_container_header(image, {"ALPHA001", "BRAVO002", "CHARLIE3", "DELTA004"}, 0x800);
        image.resize(end);
        image.u32(28, static_cast<uint32_t>(end)).u32(36, static_cast<uint32_t>((end - first_entry) / 128));
        size_t at = first_entry;
        for (int i = 0; at + 1024 < end; ++i) {
            url_entry e;
            e.signature = i % 5 == 3 ? "LEAK" : "URL ";
            e.url = "http://e" + std::to_string(i) + ".example/a,b?q=\"x\"";
            e.file_name = "f" + std::to_string(i) + ".htm";
            e.data = "HTTP/1.1 200 OK\r\nSet-Cookie: a=1, b=2\r\n\r\n~U:user" + std::to_string(i) + "\r\n";
            e.directory_index = static_cast<uint8_t>(i % 5);
            e.last_modified = filetime_of(2014, 1 + i % 12, 1 + i % 28, i % 24);
            const size_t length = i % 7 == 6 ? write_redr_entry(image, at, "http://r" + std::to_string(i) + "/")
                                             : write_url_entry(image, at, e);
            entries.push_back(at);
            if (i % 4 != 1) {  // in use: every block of the entry
                for (size_t b = (at - first_entry) / 128; b < (at + length - first_entry) / 128; ++b)
                    image.u8(0x250 + b / 8, static_cast<uint8_t>(image.bytes()[0x250 + b / 8] | (1u << (b % 8))));
            }
            at += length + (i % 3 == 0 ? 128 : 0);
        }
        std::vector<std::pair<uint32_t, uint32_t>> first_slots, second_slots;
        for (size_t i = 0; i < entries.size(); ++i) {
            if (i % 3 == 2) continue;  // named by no slot
            (i % 2 ? second_slots : first_slots).push_back({1, static_cast<uint32_t>(entries[i])});
        }
        write_hash_block(image, 0x800, first_slots, 0x1000, 4);
        write_hash_block(image, 0x1000, second_slots, 0, 4);
    }
};

// A record without its offset and source columns (18 and 17, from 1); `shift` is taken off the offset,
// which is checked to hold it.
record without_place(record r, uint64_t shift) {
    EXPECT_EQ(r.size(), 22u);
    if (r.size() != 22) return r;
    EXPECT_GE(std::stoull(r[17]), shift);
    r[17] = std::to_string(std::stoull(r[17]) - shift);
    r.erase(r.begin() + 16);
    return r;
}

}  // namespace

TEST(CompleteE2E, OneContainerGivesTheSameRowsWhereverItLies) {
    const sample_container c;
    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("index.dat"), c.image.bytes()));
    const run_result file = run_ravel({"-complete", "-f", dir.file("index.dat")});
    ASSERT_EQ(file.status, 0) << file.err;
    const std::vector<record> expected = complete_rows(file);
    ASSERT_EQ(expected.size(), c.entries.size() + 1);
    std::vector<record> want;
    for (size_t i = 1; i < expected.size(); ++i) want.push_back(without_place(expected[i], 0));

    // Inside a raw image over 16 MiB, a VMDK and an E01 set: each placement puts an entry across a 32 KiB
    // chunk's end, a 64 KiB read's end, or both; the image's last bytes end the container.
    const std::string missing_ewf = missing_ewf_road();
    const size_t image_size = 17 << 20;
    const size_t placements[] = {28672 * 3 + 32768 - 0x4000 - 512, 61440 * 7 + 65536 - 0x4000 - 1024,
                                 image_size - c.end, 512 * 9001};
    for (size_t at : placements) {
        SCOPED_TRACE(at);
        byte_image disk(image_size);
        disk.text(at, c.image.bytes());
        ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()));
        ASSERT_TRUE(sparse_vmdk(image_size, 128, 512).write(0, disk.bytes()).save(dir.file("disk.vmdk")));
        std::vector<std::vector<std::string>> roads = {{"-complete", "-quiet", "-f", dir.file("disk.raw")},
                                                       {"-complete", "-vmdk", dir.file("disk.vmdk")}};
        if (missing_ewf.empty()) {
            std::remove(dir.file("disk.E01").c_str());
            ASSERT_TRUE(ewf_acquire(dir.file("disk.raw"), dir.file("disk"), "fast"));
            roads.push_back({"-complete", "-ewf", dir.file("disk.E01")});
        }
        for (const std::vector<std::string>& road : roads) {
            const run_result run = run_ravel(road);
            ASSERT_EQ(run.status, 0) << run.err;
            const std::vector<record> rows = complete_rows(run);
            ASSERT_EQ(rows.size(), expected.size()) << road[2];
            EXPECT_EQ(rows[0], expected[0]);
            for (size_t i = 1; i < rows.size(); ++i) EXPECT_EQ(without_place(rows[i], at), want[i - 1]) << road[2];
        }
    }
    RAVEL_NEEDS(missing_ewf);
}

TEST(CompleteE2E, EveryRowParsesToTwentyFieldsThatKeepTheirBytes) {
    temp_dir dir;
    byte_image odd;
    url_entry e;
    e.signature = "LEAK";
    e.url = "http://a.example/?x=\"1\",y=2|z\r\nnext";
    e.file_name = "we,ird\"name";
    e.data = "HTTP/1.1 200 OK\r\nX-A: 1,2\r\n\"q\"\r\n\r\n~U:eve, the \"user\"\r\n";
    write_url_entry(odd, 0, e);  // position 0 of the input
    const size_t second = 128 * ((odd.size() + 127) / 128);
    write_redr_entry(odd, second, "http://moved,here/ \t");
    e.signature = "URL ";
    e.url = ":2013031020130311: bob@http://history.example/";
    e.last_modified = filetime_of(2013, 3, 10, 12);
    write_url_entry(odd, odd.size(), e);
    ASSERT_TRUE(write_file(dir.file("carved, one.bin"), odd.bytes()));

    const run_result run = run_ravel({"-complete", "-f", dir.file("carved, one.bin")});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<record> rows = complete_rows(run);
    ASSERT_EQ(rows.size(), 4u);
    for (const record& r : rows) EXPECT_EQ(r.size(), 22u);
    EXPECT_EQ(rows[0][17] + "|" + rows[0][18] + "|" + rows[0][19] + "|" + rows[0][20] + "|" + rows[0][21],
              "offset|allocated|hash listed|file in image|file state");
    // The LEAK entry at 0: its URL, user and header as stored, line ends and all.
    EXPECT_EQ(rows[1][8], "LEAK");
    EXPECT_EQ(rows[1][9], "http://a.example/?x=\"1\",y=2|z\r\nnext");
    EXPECT_EQ(rows[1][10], "eve, the \"user\"");
    EXPECT_EQ(rows[1][11], "we,ird\"name");
    EXPECT_EQ(rows[1][15], "HTTP/1.1 200 OK\r\nX-A: 1,2\r\n\"q\"");
    EXPECT_EQ(rows[1][16], dir.file("carved, one.bin"));
    EXPECT_EQ(rows[1][17] + rows[1][18] + rows[1][19], "0");  // no container: nothing known
    EXPECT_EQ(rows[1][20] + rows[1][21], "");                 // off the image road
    EXPECT_EQ(rows[2][9], "http://moved,here/ \t");
    EXPECT_EQ(rows[2][17], std::to_string(second));
    // A daily history URL is local time whatever the path says.
    EXPECT_EQ(rows[3][1], "12:00:00.000 local");

}

TEST(CompleteE2E, TheRealDeletedContainerTellsItsFreeBlocks) {
    RAVEL_NEEDS(missing_real_fixtures());
    const run_result run = run_ravel({"-complete", "-f", "deleted/index.dat"}, "", {}, real_fixtures_dir());
    ASSERT_EQ(run.status, 0);
    size_t free_blocks = 0, unlisted = 0, rows = 0;
    for (const record& r : complete_rows(run)) {
        if (r[18] == "allocated") continue;
        ++rows;
        free_blocks += r[18] == "no";
        unlisted += r[19] == "no";
        if (r[18] == "yes") {
            EXPECT_EQ(r[19], "yes") << r[17];  // every live entry is in the chain
        }
    }
    EXPECT_EQ(rows, 18u);
    EXPECT_EQ(free_blocks, 11u);
    EXPECT_EQ(unlisted, 5u);
}
