// The same bytes through every form of the read interface: in memory, as a file read whole and in
// chunks, and as a VMDK chain. A road gives the same rows and the same percentage lines whatever stands
// behind it, holes passed over or read; an entry cut by a window's end keeps the row of its first, cut
// decoding, and every other entry gives the same row on every road.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "driver/hv_big_file.h"
#include "driver/hv_process_input.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// Rows keyed by the entry's URL, which names its position; the last column (the input) is dropped.
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

// The rows and the console's lines of a road over `bytes` in memory, where every byte is read.
run_result scan_memory(const byte_image& bytes, bool device) {
    std::ostringstream out;
    rows_writer report(out, report_settings());
    input_scan scan(report, false);
    run_context run{scan};
    scan.begin_input(input_ref());
    memory_image memory(reinterpret_cast<const uint8_t*>(bytes.bytes().data()), bytes.size());
    bool result = false;
    FILE* err = std::tmpfile();
    FILE* previous = redirect_console_error(err);
    if (device)
        scan_device(scan, memory, true);
    else
        scan_file(run, input_ref(), memory, result);
    redirect_console_error(previous);
    scan.end_input();
    run_result r;
    r.out = out.str();
    std::rewind(err);
    for (int c; (c = std::fgetc(err)) != EOF;) r.err += static_cast<char>(c);
    std::fclose(err);
    return r;
}

const std::string url_tail(200, 'p');

void put_entry(byte_image& image, size_t at, const std::string& name) {
    url_entry e;
    e.url = "http://" + name + ".example/" + url_tail;
    e.file_name = name + ".htm";
    e.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:dora\r\n";
    e.last_modified = filetime_of(2014, 5, 6, 7, 8, 9);
    write_url_entry(image, at, e);
}

}  // namespace

TEST(ScanFormsE2E, EveryFormOfTheSameBytesGivesTheRowsOfItsRoad) {
    const size_t size = 17 << 20;  // past the whole-file limit
    const std::pair<size_t, const char*> entries[] = {
        {0, "at-zero"},                                   // position 0: looked at by no road
        {4096, "plain"},
        {28672 * 7 + 32768 - 256, "chunk-edge"},          // cut by a 32 KiB chunk's end
        {61440 * 5 + 65536 - 256, "read-edge"},           // cut by a 64 KiB read's end
        {(9 << 20) + 512, "middle"},
        {size - 1024, "last"},                            // the file's last bytes come twice
    };
    byte_image disk(size);
    for (const auto& e : entries) put_entry(disk, e.first, e.second);
    ASSERT_EQ(disk.size(), size);
    // As a file with holes and as a chain with no grains between the entries.
    temp_dir dir;
    const std::string file = dir.file("disk.raw"), vmdk = dir.file("disk.vmdk");
    sparse_vmdk chain_disk(size, 128, 512);
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
    for (const auto& e : entries) {
        const std::string bytes = disk.bytes().substr(e.first, 1024);
        ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(e.first)), 1024);
        chain_disk.write(e.first, bytes);
    }
    close(fd);
    ASSERT_TRUE(chain_disk.save(vmdk));

    // One road, two forms: the same rows and lines.
    const run_result chunks = run_ravel({"-f", file}), chain = run_ravel({"-vmdk", vmdk});
    ASSERT_EQ(chunks.status, 0);
    ASSERT_EQ(chain.status, 0);
    const run_result chunks_in_memory = scan_memory(disk, false), chain_in_memory = scan_memory(disk, true);
    EXPECT_EQ(rows_by_url(chunks.out), rows_by_url(chunks_in_memory.out));
    EXPECT_EQ(chunks.err, chunks_in_memory.err + long_erase);
    EXPECT_EQ(rows_by_url(chain.out), rows_by_url(chain_in_memory.out));
    EXPECT_EQ(chain.err, chain_in_memory.err + long_erase);
    EXPECT_NE(chunks.err.find(short_erase + "percent: 15\r"), std::string::npos);

    // Read whole, in memory and as a file.
    byte_image whole = disk;
    whole.resize(16 << 20);
    ASSERT_TRUE(write_file(file, whole.bytes()));
    const run_result once = run_ravel({"-f", file});
    ASSERT_EQ(once.status, 0);
    EXPECT_EQ(rows_by_url(once.out), rows_by_url(scan_memory(whole, false).out));

    // Across roads: the same rows but where a window's end cut the entry.
    auto row = [](const run_result& run, const char* name) {
        const auto rows = rows_by_url(run.out);
        const auto found = rows.find("http://" + std::string(name) + ".example/" + url_tail);
        return found == rows.end() ? "none" : found->second;
    };
    for (const char* name : {"plain", "middle", "read-edge"}) EXPECT_EQ(row(chunks, name), row(once, name)) << name;
    for (const char* name : {"plain", "middle", "chunk-edge"}) EXPECT_EQ(row(chain, name), row(once, name)) << name;
    EXPECT_EQ(row(chunks, "last"), row(chain, "last"));
    EXPECT_NE(row(chunks, "chunk-edge"), row(once, "chunk-edge"));
    EXPECT_NE(row(chain, "read-edge"), row(once, "read-edge"));
    EXPECT_EQ(rows_by_url(chunks.out).size(), 5u);
    EXPECT_EQ(rows_by_url(chain.out).size(), 5u);
    EXPECT_EQ(rows_by_url(once.out).size(), 4u);  // the last entry lies past the cut
}
