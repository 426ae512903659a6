#include "indexdat/hv_scan.h"

#include <gtest/gtest.h>

#include "driver/hv_process_input.h"
#include "storage/hv_image.h"
#include "support/builder.h"
#include "support/collect_rows.h"

using namespace testsupport;

namespace {

// "url|user|directory" of each row.
std::string summary(const collect_rows& report) {
    std::string out;
    for (const activity_record& row : report.rows) out += row.url + "|" + row.user + "|" + row.directory + "\n";
    return out;
}

}  // namespace

// Two windows that overlap on the 128-byte grid: an entry cut by the first window's end keeps its poorer row,
// one the first window rejects (too few bytes before its end) gets its row from the second, and the
// rows come out in order. The second window is the last, as when a read fails: a row past its report
// end still comes out when the input ends.
TEST(Scan, TheFirstDecodingOfAPositionWins) {
    const std::string long_url = "http://cut.example/" + std::string(300, 'c');
    struct { size_t at, first_end, second; std::string url, row; } cases[] = {
        {1792, 2048, 1024, long_url, long_url.substr(0, 2048 - 1792 - 104)},
        {1920, 1984, 896, "http://late/", "http://late/"},
    };
    for (const auto& c : cases) {
        byte_image image(4096);
        url_entry e;
        e.url = "http://one/";
        write_url_entry(image, 128, e);
        e.url = c.url;
        write_url_entry(image, c.at, e);
        image.text(128 + 64, "URL ");  // off the grid
        write_redr_entry(image, 3072, "http://last/");
        collect_rows out;
        input_scan scan(out, false);
        scan.begin_input(input_ref());
        const size_t second = c.second;
        EXPECT_TRUE(scan.scan_buffer(image.data(), static_cast<uint32_t>(c.first_end), 0, second));
        EXPECT_TRUE(scan.scan_buffer(image.data() + second, static_cast<uint32_t>(4096 - second), second, 3072));
        scan.end_input();
        EXPECT_EQ(summary(out), "http://one/||\n" + c.row + "||\nhttp://last/||\n") << c.at;
    }
}

// The decoder once rewrote an entry's block count in the file's bytes in memory. Two reads saw that:
// a directory table that runs into the first entry, and the entry's own text at offset 4.
TEST(Scan, TheBlockCountRewriteStaysVisibleWhereItWasSeen) {
    byte_image image;
    write_container_header(image, {"ZERO0000", "ONE11111", "TWO22222", "THREE333", "FOUR4444"});
    url_entry e;
    e.url = "http://a/";
    e.directory_index = 4;
    e.url_offset = 4;  // the text at 4 is the block count, as rewritten: 'A' blocks to the next entry
    write_url_entry(image, 128, e);
    write_redr_entry(image, 128 + 128 * 'A', "http://next/");
    collect_rows out;
    input_scan scan(out, false);
    run_context run{scan};
    scan.begin_input(input_ref());
    memory_image memory(image.data(), image.size());
    bool result = false;
    ASSERT_TRUE(scan_file(run, input_ref(), memory, result));
    scan.end_input();
    EXPECT_TRUE(result);
    EXPECT_EQ(summary(out), std::string("A||URL A\0\0\0", 11) + "\nhttp://next/||\n");
}
