// The same bytes through every form of the read interface: in memory, as a file read whole and in
// chunks, and as a VMDK chain. A road gives the same rows whatever stands behind it; entries away
// from window edges give the same rows on every road.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "cache/hv_big_file.h"
#include "cache/hv_process_input.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// Rows keyed by the entry's position: the position is not a column, so each entry's URL names it.
// The last column (the input) is dropped.
std::map<std::string, std::string> rows_by_url(const std::string& report) {
    std::istringstream in(report.rfind("ravel ver:", 0) == 0 ? after_preamble(report) : report);
    std::map<std::string, std::string> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("last mod date,", 0) == 0) continue;
        const std::string row = line.substr(0, line.rfind(','));
        size_t url = 0;
        for (int column = 0; column < 9; ++column) url = row.find(',', url) + 1;
        rows[row.substr(url, row.find(',', url) - url)] = row;
    }
    return rows;
}

std::string scan_memory(const byte_image& bytes, bool device) {
    cmd_opts opts;
    opts.scan_bad_header = true;
    opts.show_progress = false;
    std::ostringstream out;
    input_scan scan(out, opts);
    scan.begin_input();
    memory_image memory(reinterpret_cast<const uint8_t*>(bytes.bytes().data()), bytes.size());
    bool result = false;
    FILE* quiet = std::fopen("/dev/null", "w");
    FILE* previous = redirect_console_error(quiet);  // the device road's percentage lines
    if (device)
        scan_device(scan, memory, true);
    else
        scan_file(scan, opts, memory, result);
    redirect_console_error(previous);
    std::fclose(quiet);
    scan.end_input();
    return out.str();
}

void put_entry(byte_image& image, size_t at, const std::string& name) {
    url_entry e;
    e.url = "http://" + name + ".example/" + std::string(200, 'p');
    e.file_name = name + ".htm";
    e.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:dora\r\n";
    e.last_modified = filetime_of(2014, 5, 6, 7, 8, 9);
    write_url_entry(image, at, e);
}

}  // namespace

TEST(ScanFormsE2E, EveryFormOfTheSameBytesGivesTheRowsOfItsRoad) {
    const size_t size = 17 << 20;  // past the whole-file limit
    byte_image disk(size);
    put_entry(disk, 0, "at-zero");                              // position 0: looked at by no road
    put_entry(disk, 4096, "plain");
    put_entry(disk, 28672 * 7 + 32768 - 256, "chunk-edge");     // cut by a 32 KiB chunk's end
    put_entry(disk, 61440 * 5 + 65536 - 256, "read-edge");      // cut by a 64 KiB read's end
    put_entry(disk, (9 << 20) + 512, "middle");
    put_entry(disk, size - 1024, "last");                       // the file's last bytes come twice
    ASSERT_EQ(disk.size(), size);
    temp_dir dir;
    const std::string file = dir.file("disk.raw"), vmdk = dir.file("disk.vmdk");
    ASSERT_TRUE(write_file(file, disk.bytes()));
    ASSERT_TRUE(sparse_vmdk(size, 128, 512).write(0, disk.bytes()).save(vmdk));

    // One road, two forms: the same rows.
    const run_result chunks = run_ravel({"-quiet", "-f", file});
    ASSERT_EQ(chunks.status, 0);
    EXPECT_EQ(rows_by_url(chunks.out), rows_by_url(scan_memory(disk, false)));
    const run_result chain = run_ravel({"-vmdk", vmdk});
    ASSERT_EQ(chain.status, 0);
    EXPECT_EQ(rows_by_url(chain.out), rows_by_url(scan_memory(disk, true)));

    // Across roads: the same rows but where a window's end cut the entry.
    const auto by_chunks = rows_by_url(chunks.out), by_reads = rows_by_url(chain.out);
    for (const char* name : {"plain", "middle", "last"}) {
        const std::string url = "http://" + std::string(name) + ".example/" + std::string(200, 'p');
        ASSERT_EQ(by_chunks.count(url), 1u) << name;
        EXPECT_EQ(by_chunks.at(url), by_reads.at(url)) << name;
    }
    EXPECT_EQ(by_chunks.size(), 5u);  // all but the entry at position 0
    EXPECT_EQ(by_reads.size(), 5u);

    // Read whole, in memory and as a file.
    byte_image whole = disk;
    whole.resize(16 << 20);
    ASSERT_TRUE(write_file(file, whole.bytes()));
    const run_result once = run_ravel({"-f", file});
    ASSERT_EQ(once.status, 0);
    EXPECT_EQ(rows_by_url(once.out), rows_by_url(scan_memory(whole, false)));
}
