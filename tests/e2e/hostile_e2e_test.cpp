// Hostile inputs through the two roads that read bytes an attacker may have written, `-f` and
// `-vmdk`: every run must end with its own message and status, and leave its input as it was.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

const std::string long_erase = "\x1b[2K\r                           \r";
const std::string first_percent = "\x1b[2K\r    \rpercent done: 0\r";  // device road, position 0
const std::string header_row =
    "last mod date,last mod time,access date,access time,expires date,expires time,last sync date,"
    "last sync time,type,url,user,filename,file size,directory,count,HTTP header,index.dat filename\n";

// A row with no stamps, from the type column to the HTTP header; "PATH" stands for the input.
std::string row(const std::string& type_to_header) { return ",,,,,,,," + type_to_header + ",PATH\n"; }

std::string with_path(std::string text, const std::string& path) {
    for (size_t at; (at = text.find("PATH")) != std::string::npos;) text.replace(at, 4, path);
    return text;
}

struct hostile_case {
    const char* name;
    const char* road;   // "-f" or "-vmdk"
    std::string bytes;
    std::string body;   // standard output behind the preamble
    std::string err;
    int status;
};

// "URL ", "LEAK", "REDR" in turn on every 128-byte boundary of zeros. The walk skips position 0;
// a URL entry with no URL offset gives no row, a LEAK or REDR with nothing behind it an empty one.
std::string signature_grid(std::string& rows) {
    const char* kinds[] = {"URL ", "LEAK", "REDR"};
    std::string bytes(4096, '\0');
    for (size_t block = 0; block < 32; ++block) {
        bytes.replace(block * 128, 4, kinds[block % 3]);
        if (block > 0 && block % 3 != 0) rows += row(std::string(kinds[block % 3]) + ",,,,0,,0,");
    }
    return bytes;
}

// Entry fields near 4 GiB, and a directory count whose table would wrap 32 bits.
std::string far_offsets(std::string& rows) {
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
    size_t at = 128;
    at += write_url_entry(image, at, a);
    rows += row("URL ,http://a.example/,,,4294967295,,4294967294,");

    url_entry b = a;  // URL offset past the entry: no row
    b.url_offset = 0xFFFFFFF0u;
    at += write_url_entry(image, at, b);

    url_entry c = a;  // a block count of 4 Gi blocks: no row
    c.blocks = 0xFFFFFFFFu;
    at += write_url_entry(image, at, c);

    url_entry d;  // data offset out of reach: all behind the fixed part is the data
    d.url = "http://d.example/";
    d.file_name = "d.htm";
    d.data = std::string("~U:bob\0", 7);
    d.data_offset = 0xFFFFFFF0u;
    d.data_size = 8;
    write_url_entry(image, at, d);
    rows += row("URL ,http://d.example/,bob,d.htm,0,,0,http://d.example/");
    return image.bytes();
}

// Header, one descriptor sector, the directory at sector 2, two tables, one grain.
std::string small_vmdk() {
    sparse_vmdk disk(128 * 1024);
    disk.write(4096, "data");
    return disk.image().bytes();
}

// Two grain tables: the second one's directory entry points far past the file, and so does a
// grain of the first. The one grain that is there still gives its REDR entry.
std::string vmdk_tables_past_end() {
    sparse_vmdk disk(128 * 1024);  // 8-sector grains, 16 a table: two tables
    byte_image redr;
    write_redr_entry(redr, 0, "http://v.example/");
    disk.write(4096 + 128, redr.bytes()).directory_entry(1, 0x00FFFFF0u);
    byte_image image = disk.image();
    image.u32(disk.table_sector(0) * vmdk::sector + 4 * 5, 0x00FFFFF0u);
    return image.bytes();
}

std::string vmdk_with(size_t field, uint64_t value) {
    byte_image image;
    image.text(0, small_vmdk());
    image.u64(field, value);
    return image.bytes();
}

}  // namespace

TEST(HostileE2E, EveryRunEndsWithItsMessageAndLeavesItsInputAlone) {
    const std::string parse_failed = long_erase + "probs parsing file: PATH";
    const std::string cant_open = "PATH can't be opened\n\nsuggested array: -vmdk \"PATH\"\n";
    std::string grid_rows, far_rows;
    const std::string grid = signature_grid(grid_rows);
    const std::string far = far_offsets(far_rows);

    const std::vector<hostile_case> cases = {
        {"all 0xFF", "-f", std::string(4096, '\xFF'), header_row, parse_failed, 255},
        {"all zero", "-f", std::string(4096, '\0'), header_row, parse_failed, 255},
        {"empty", "-f", "", "", parse_failed, 255},
        // Past 16 MiB the chunked road answers true for any file it could open.
        {"16 MiB + 1 of 0xFF", "-f", std::string(16777217, '\xFF'), header_row, "", 0},
        {"signature on every block", "-f", grid, header_row + grid_rows, "", 0},
        {"offsets near 4 GiB", "-f", far, header_row + far_rows, "", 0},
        {"all 0xFF as a disk", "-vmdk", std::string(4096, '\xFF'), "", cant_open, 255},
        {"header cut at 100 bytes", "-vmdk", small_vmdk().substr(0, 100), "", cant_open, 255},
        {"header only", "-vmdk", small_vmdk().substr(0, 512), "", cant_open, 255},
        {"cut inside the directory", "-vmdk", small_vmdk().substr(0, 2 * 512 + 2), "", cant_open, 255},
        {"directory near 4 GiB", "-vmdk", vmdk_with(vmdk::grain_dir, 0xFFFFFFF0u), "", cant_open, 255},
        {"grain size 0", "-vmdk", vmdk_with(vmdk::grain_size, 0), "", cant_open, 255},
        {"grain tables past the end", "-vmdk", vmdk_tables_past_end(),
         header_row + row("REDR,http://v.example/,,,0,,0,"), first_percent + long_erase + "success", 0},
    };

    temp_dir dir;
    for (const hostile_case& c : cases) {
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
