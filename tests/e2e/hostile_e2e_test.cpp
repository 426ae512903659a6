// Hostile inputs through the two roads that read bytes an attacker may have written, `-f` and
// `-vmdk`: every run must end with its own message and status, and leave its input as it was.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/needs.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// A row with no stamps, from the type column to the HTTP header; "PATH" stands for the input.
std::string row(const std::string& type_to_header) { return ",,,,,,,," + type_to_header + ",PATH\n"; }

std::string with_path(std::string text, const std::string& path) {
    for (size_t at; (at = text.find("PATH")) != std::string::npos;) text.replace(at, 4, path);
    return text;
}

// Entry fields near 4 GiB, and a directory count whose table would wrap 32 bits.
std::string far_offsets() {
    byte_image image;
    write_container_header(image, {});
    image.u32(idx::header_directory_count, 0xFFFFFFF0u);
    url_entry a;  // file name and data out of reach: the row keeps its URL only
    a.url = "http://a.example/";
    a.file_name_offset = 0xFFFFFFF8u;
    a.data_offset = 0xFFFFFF00u;
    a.data_size = 0xFFFFFFF0u;
    a.file_size = 0xFFFFFFFFu;
    a.count = 0xFFFFFFFEu;
    size_t at = 128 + write_url_entry(image, 128, a);
    a.url_offset = 0xFFFFFFF0u;  // a URL offset past the entry: no row
    at += write_url_entry(image, at, a);
    a.url_offset = url_entry::automatic;
    a.blocks = 0xFFFFFFFFu;  // a block count of 4 Gi blocks: no row
    at += write_url_entry(image, at, a);
    url_entry d;  // data offset out of reach: all behind the fixed part is the data
    d.url = "http://d.example/";
    d.file_name = "d.htm";
    d.data = std::string("~U:bob\0", 7);
    d.data_offset = 0xFFFFFFF0u;
    d.data_size = 8;
    write_url_entry(image, at, d);
    return image.bytes();
}

// Header, one descriptor sector, the directory at sector 2, two tables, one grain; or streamed.
byte_image small_vmdk(bool streamed = false) {
    sparse_vmdk disk(128 * 1024);
    if (streamed) disk.stream();
    return disk.write(4096, "data").image();
}

// Two grain tables: the second one's directory entry points far past the file, and so does a
// grain of the first. The one grain that is there still gives its REDR entry.
std::string vmdk_tables_past_end() {
    sparse_vmdk disk(128 * 1024);  // 8-sector grains, 16 a table: two tables
    byte_image redr;
    write_redr_entry(redr, 0, "http://v.example/");
    disk.write(4096 + 128, redr.bytes()).directory_entry(1, 0x00FFFFF0u);
    return disk.image().u32(disk.table_sector(0) * vmdk::sector + 4 * 5, 0x00FFFFF0u).bytes();
}

}  // namespace

TEST(HostileE2E, EveryRunEndsWithItsMessageAndLeavesItsInputAlone) {
    const std::string parse_failed = long_erase + "probs parsing file: PATH";
    const std::string cant_open = "PATH can't be opened\n\nsuggested array: -vmdk \"PATH\"\n";
    // "URL ", "LEAK", "REDR" in turn on every 128-byte boundary of zeros. The walk skips position 0;
    // a URL entry with no URL offset gives no row, a LEAK or REDR with nothing behind it an empty one.
    const char* kinds[] = {"URL ", "LEAK", "REDR"};
    std::string grid(4096, '\0'), grid_rows;
    for (size_t block = 0; block < 32; ++block) grid.replace(block * 128, 4, kinds[block % 3]);
    for (int i = 0; i < 21; ++i) grid_rows += row(i % 2 ? "REDR,,,,0,,0," : "LEAK,,,,0,,0,");

    struct { const char *name, *road; std::string bytes, body, err; int status; } const cases[] = {
        {"all 0xFF", "-f", std::string(4096, '\xFF'), header_row, parse_failed, 255},
        {"all zero", "-f", std::string(4096, '\0'), header_row, parse_failed, 255},
        {"empty", "-f", "", "", parse_failed, 255},
        // Past 16 MiB the chunked road answers true for any file it could open.
        {"16 MiB + 1 of 0xFF", "-f", std::string(16777217, '\xFF'), header_row, "", 0},
        {"signature on every block", "-f", grid, header_row + grid_rows, "", 0},
        {"offsets near 4 GiB", "-f", far_offsets(),
         header_row + row("URL ,http://a.example/,,,4294967295,,4294967294,") +
             row("URL ,http://d.example/,bob,d.htm,0,,0,http://d.example/"), "", 0},
        {"all 0xFF as a disk", "-vmdk", std::string(4096, '\xFF'), "", cant_open, 255},
        {"header cut at 100 bytes", "-vmdk", small_vmdk().bytes().substr(0, 100), "", cant_open, 255},
        {"header only", "-vmdk", small_vmdk().bytes().substr(0, 512), "", cant_open, 255},
        {"cut inside the directory", "-vmdk", small_vmdk().bytes().substr(0, 2 * 512 + 2), "", cant_open, 255},
        {"directory near 4 GiB", "-vmdk", small_vmdk().u64(vmdk::grain_dir, 0xFFFFFFF0u).bytes(), "", cant_open, 255},
        {"grain size 0", "-vmdk", small_vmdk().u64(vmdk::grain_size, 0).bytes(), "", cant_open, 255},
        // Compressed grains that can't be read as such: no footer, or another algorithm.
        {"stream without its footer", "-vmdk", small_vmdk(true).bytes().substr(0, small_vmdk(true).size() - 1024), "",
         cant_open, 255},
        {"stream of another algorithm", "-vmdk", small_vmdk(true).u16(vmdk::compression, 2).bytes(), "", cant_open, 255},
        {"grain tables past the end", "-vmdk", vmdk_tables_past_end(),
         header_row + row("REDR,http://v.example/,,,0,,0,"),
         short_erase + "percent done: 0\r" + long_erase + "success", 0},  // the device road's progress line
    };
    temp_dir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir.file("input.bin");
        ASSERT_TRUE(write_file(path, c.bytes));
        const run_result r = run_ravel({"-quiet", c.road, path});
        EXPECT_EQ(after_preamble(r.out), with_path(c.body, path));
        EXPECT_EQ(r.err, with_path(c.err, path));
        EXPECT_EQ(r.status, c.status);
        EXPECT_TRUE(read_file(path) == c.bytes) << "the input was changed";
    }
}

// Disks that claim far more than they hold end within seconds and small memory, with the message and
// status they have always had: empty stretches are passed over unread, their percentage lines made
// from positions.
TEST(HostileE2E, HugeOrLoopingDisksEndQuickly) {
    temp_dir dir;
    // A header that claims 2^40 sectors (512 TiB) over one table of nothing.
    byte_image claims = sparse_vmdk(64 * 1024).image();
    claims.u64(vmdk::capacity, uint64_t{1} << 40);
    // 1 TiB whose second table and a grain of the first lie past the file's end.
    sparse_vmdk past(uint64_t{1} << 40, 128, 512);
    byte_image redr;
    write_redr_entry(redr, 0, "http://v.example/");
    byte_image tables_past = past.write(65536 * 3 + 128, redr.bytes()).directory_entry(1, 0x00FFFFF0u).image();
    tables_past.u32(past.table_sector(0) * vmdk::sector + 4 * 5, 0x00FFFFF0u);
    // Two disks, each the other's parent.
    sparse_vmdk a(1 << 20), b(1 << 20);
    a.cid("aaaaaaaa").parent_cid("bbbbbbbb").parent_hint("\"b.vmdk\"");
    b.cid("bbbbbbbb").parent_cid("aaaaaaaa").parent_hint("\"a.vmdk\"");
    ASSERT_TRUE(write_file(dir.file("claims.vmdk"), claims.bytes()) &&
                write_file(dir.file("past.vmdk"), tables_past.bytes()) && a.save(dir.file("a.vmdk")) &&
                b.save(dir.file("b.vmdk")));
    std::vector<std::string> disks = {dir.file("claims.vmdk"), dir.file("past.vmdk"),
                                      dir.file("a.vmdk") + " | " + dir.file("b.vmdk")};
    const std::string qemu_missing = missing_tools({"qemu-img"}, "qemu-utils");
    if (qemu_missing.empty() && std::system(("qemu-img create -q -f vmdk " + dir.file("empty.vmdk") + " 2T").c_str()) == 0)
        disks.push_back(dir.file("empty.vmdk"));
    const std::string success = long_erase + "success" + long_erase;
    const std::string looped = "\nsuggested array: -vmdk \"" + disks[2] + "\"\n" + long_erase;
    struct { std::string rows, err_end; int status; } const expected[] = {
        {header_row, success, 0},
        {header_row + with_path(row("REDR,http://v.example/,,,0,,0,"), disks[1]), success, 0},
        {"", looped, 255},
        {header_row, success, 0},
    };
#if defined(__SANITIZE_ADDRESS__)
    const uint64_t peak_limit_kib = 512u * 1024;  // the sanitizer's shadow and quarantine come on top
#else
    const uint64_t peak_limit_kib = 128u * 1024;
#endif
    for (size_t i = 0; i < disks.size(); ++i) {
        SCOPED_TRACE(disks[i]);
        const bounded_result r = run_ravel_bounded({"-vmdk", disks[i]}, 90);
        EXPECT_FALSE(r.killed);
        EXPECT_LT(r.peak_kib, peak_limit_kib);
        EXPECT_EQ(r.status, expected[i].status);
        EXPECT_EQ(after_preamble(r.out), expected[i].rows);
        ASSERT_GE(r.err_tail.size(), expected[i].err_end.size());
        EXPECT_EQ(r.err_tail.substr(r.err_tail.size() - expected[i].err_end.size()), expected[i].err_end);
    }
    RAVEL_NEEDS(qemu_missing);
}
