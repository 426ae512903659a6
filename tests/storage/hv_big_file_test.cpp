#include "cache/hv_big_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "cache/hv_report.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "storage/hv_fileio.h"
#include "storage/hv_raw_disk.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

std::string url_of_length(size_t n) {
    std::string url = "http://www.example.com/";
    while (url.size() < n) url += "abcdefghij";
    url.resize(n);
    return url;
}

void put_entry(byte_image& image, size_t offset, const std::string& url) {
    url_entry entry;
    entry.url = url;
    entry.file_name = "page[1].htm";
    entry.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:alice\r\n";
    entry.last_modified = filetime_of(2012, 5, 30, 12);
    write_url_entry(image, offset, entry);
}

// Each row with its key, as the report writes it, but for the column that names the input.
std::string render(const result_map& rows, const cmd_opts& opts) {
    std::ostringstream out;
    for (const auto& row : rows) {
        activity_record copy = row.second;
        copy.source_file.clear();
        out << row.first << ": ";
        write_activity_row(copy, out, opts);
    }
    return out.str();
}

// What the console wrote to standard error while `run` ran.
template <class F>
std::string console_error_of(F run) {
    FILE* capture = std::tmpfile();
    FILE* previous = redirect_console_error(capture);
    run();
    redirect_console_error(previous);
    std::string text;
    std::rewind(capture);
    for (int c; (c = std::fgetc(capture)) != EOF;) text.push_back(static_cast<char>(c));
    std::fclose(capture);
    return text;
}

// An entry whose URL runs across the end of the first 32 KiB chunk: decoded there, cut.
constexpr size_t cut_entry = 32768 - 256;
const std::string cut_url = url_of_length(400);
const size_t cut_url_kept = 32768 - (cut_entry + 104);

}  // namespace

TEST(BigFile, ChunkedRowsMatchTheWholeBufferAwayFromEdges) {
    temp_dir dir;
    byte_image image(whole_file_limit + 1);
    put_entry(image, 4096, "http://one.example/");
    put_entry(image, cut_entry, cut_url);
    put_entry(image, 28672 * 99 + 128 * 5, "http://two.example/");
    put_entry(image, whole_file_limit - 1024, "http://last.example/");
    ASSERT_TRUE(write_file(dir.file("unallocated.bin"), image.bytes()));

    cmd_opts opts;
    opts.current_file = dir.file("unallocated.bin");
    result_map chunked, whole;
    std::string err = console_error_of([&] { EXPECT_TRUE(scan_big_file(chunked, opts)); });
    EXPECT_EQ(opts.result_map, &chunked);
    scan_buffer(whole, opts, image.data(), static_cast<uint32_t>(image.size()), 0, 0);

    ASSERT_EQ(chunked.size(), 4u);
    // The cut entry keeps its first, poorer decoding: URL up to the chunk's end, no header, no user.
    EXPECT_EQ(chunked[cut_entry].url + "|" + chunked[cut_entry].http_header + "|" + chunked[cut_entry].user,
              cut_url.substr(0, cut_url_kept) + "||");
    EXPECT_EQ(whole[cut_entry].url + "|" + whole[cut_entry].user, cut_url + "|alice");
    chunked.erase(cut_entry);
    whole.erase(cut_entry);
    EXPECT_EQ(render(chunked, opts), render(whole, opts));
    // Position 0 and the 99th stride (offset 2838528, 16 percent) are multiples of 99.
    EXPECT_NE(err.find("percent: 0\r"), std::string::npos);
    EXPECT_NE(err.find("percent: 16\r"), std::string::npos);

    cmd_opts no_map;
    EXPECT_EQ(big_file_chunk(nullptr, &no_map, image.data(), 100, 0, 0), 0xFFFFFFFFu);
}

TEST(BigFile, OneByteOverTheLimitTakesTheChunkedRoad) {
    temp_dir dir;
    for (uint64_t size : {whole_file_limit, whole_file_limit + 1}) {
        byte_image image(size);
        put_entry(image, cut_entry, cut_url);
        ASSERT_TRUE(write_file(dir.file("big.bin"), image.bytes()));
        cmd_opts opts;
        opts.show_progress = false;
        opts.scan_bad_header = true;  // as every run sets it
        opts.current_file = dir.file("big.bin");
        std::ostringstream out;
        EXPECT_TRUE(process_input(out, opts));
        bool whole_url = out.str().find(cut_url) != std::string::npos;
        EXPECT_EQ(whole_url, size == whole_file_limit) << size;
        EXPECT_NE(out.str().find(cut_url.substr(0, cut_url_kept)), std::string::npos);
    }
}

TEST(DeviceScan, ImageFileAndVmdkChainGiveTheSameRows) {
    temp_dir dir;
    const uint64_t size = 192 * 1024;
    byte_image image(size);
    put_entry(image, 1024, "http://first.example/");
    put_entry(image, 61440 - 512, url_of_length(200));
    put_entry(image, 65536 - 256, cut_url);  // cut by the end of the first read
    put_entry(image, 130048, "http://third.example/");
    ASSERT_TRUE(write_file(dir.file("disk.img"), image.bytes()));
    // The base lacks grain 0 and holds the rest; the snapshot holds grain 0 and part of the last entry.
    const std::string& bytes = image.bytes();
    sparse_vmdk(size).cid("0000000a").write(4096, bytes.substr(4096)).save(dir.file("base.vmdk"));
    sparse_vmdk(size).cid("0000000b").parent_cid("0000000a").write(0, bytes.substr(0, 4096))
        .write(126976, bytes.substr(126976, 8192)).save(dir.file("snap.vmdk"));

    cmd_opts opts;
    result_map from_file, from_chain, whole;
    opts.partition = dir.file("disk.img");
    std::string err = console_error_of([&] { EXPECT_TRUE(scan_device_input(from_file, opts)); });
    opts.partition.clear();
    opts.vmdk_files = {wide_of(dir.file("snap.vmdk")), wide_of(dir.file("base.vmdk"))};
    EXPECT_EQ(console_error_of([&] { EXPECT_TRUE(scan_device_input(from_chain, opts)); }), err);
    ASSERT_EQ(from_file.size(), 4u);
    EXPECT_EQ(render(from_file, opts), render(from_chain, opts));

    scan_buffer(whole, opts, image.data(), static_cast<uint32_t>(size), 0, 0);
    EXPECT_EQ(from_file[65536 - 256].url, cut_url.substr(0, 152));
    from_file.erase(65536 - 256);
    whole.erase(65536 - 256);
    EXPECT_EQ(render(from_file, opts), render(whole, opts));

    // Reads start at 0, 61440, 122880 and 184320; only 0 is a multiple of 99.
    EXPECT_EQ(err, std::string(short_erase_text) + "percent done: 0\r" + long_erase_text + "success");
}

TEST(RawDiskIo, ImageFilesReadAsDevices) {
    temp_dir dir;
    write_file(dir.file("k"), std::string(1000, 'k'));
    write_file(dir.file("empty"), "");
    EXPECT_EQ(RAW_DISK_IO("", 0, 0, 1, 1).get_size(), 0u);
    EXPECT_FALSE(RAW_DISK_IO(dir.file("missing"), 0, 0, 1, 1).valid());

    RAW_DISK_IO disk(dir.file("k"), 0, 0, 1, 1);
    ASSERT_TRUE(disk.valid());
    EXPECT_EQ(disk.sector_size, 512u);
    std::vector<char> buffer(65536);
    uint32_t length = 65536;
    EXPECT_TRUE(disk.read(buffer.data(), length, 0));
    EXPECT_EQ(length, 1000u);  // cut at the end
    for (uint32_t offset : {0, 1000}) {
        length = offset == 0 ? 0 : 10;  // nothing asked, or nothing left
        EXPECT_FALSE(disk.read(buffer.data(), length, offset));
    }
    // An empty file opens with size 0: nothing is read and the scan reports success.
    RAW_DISK_IO empty(dir.file("empty"), 0, 0, 1, 1);
    EXPECT_TRUE(empty.valid());
    result_map rows;
    cmd_opts opts;
    EXPECT_EQ(console_error_of([&] { EXPECT_TRUE(scan_device(rows, opts, empty)); }),
              std::string(long_erase_text) + "success");
}
