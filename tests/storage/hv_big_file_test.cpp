#include "cache/hv_big_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "support/builder.h"
#include "support/run_ravel.h"

using namespace testsupport;

const std::string cut_url = "http://www.example.com/" + std::string(377, 'a');  // 400 bytes

static void put_entry(byte_image& image, size_t offset, const std::string& url) {
    url_entry entry;
    entry.url = url;
    entry.data = "HTTP/1.1 200 OK\r\n\r\n~U:alice\r\n";
    write_url_entry(image, offset, entry);
}

// Key, URL and user of each row but the one at `cut`.
static std::string summary(const result_map& rows, uint64_t cut = ~uint64_t{0}) {
    std::string out;
    for (const auto& row : rows)
        if (row.first != cut) out += std::to_string(row.first) + " " + row.second.url + " " + row.second.user + "\n";
    return out;
}

// What the console wrote to standard error while `run` ran.
template <class F>
static std::string console_error_of(F run) {
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

// Rows away from chunk edges are those of the whole buffer; an entry cut by the end of the first
// chunk keeps its first, poorer decoding.
TEST(BigFile, ChunkedRowsMatchTheWholeBufferAwayFromEdges) {
    temp_dir dir;
    const size_t cut = 32768 - 256;
    byte_image image(whole_file_limit + 1);
    put_entry(image, 4096, "http://one.example/");
    put_entry(image, cut, cut_url);
    put_entry(image, 28672 * 99 + 128 * 5, "http://two.example/");
    put_entry(image, whole_file_limit - 1024, "http://last.example/");
    cmd_opts opts;
    opts.current_file = dir.file("big.bin");
    // Up to 16 MiB a file is read whole, and the cut entry keeps its whole URL.
    for (uint64_t size : {whole_file_limit, whole_file_limit + 1}) {
        ASSERT_TRUE(write_file(opts.current_file, image.bytes().substr(0, size)));
        cmd_opts run;
        run.show_progress = false;
        run.scan_bad_header = true;  // as every run sets it
        run.current_file = opts.current_file;
        std::ostringstream out;
        EXPECT_TRUE(process_input(out, run));
        EXPECT_EQ(out.str().find(cut_url) != std::string::npos, size == whole_file_limit) << size;
    }
    result_map chunked, whole;
    std::string err = console_error_of([&] { EXPECT_TRUE(scan_big_file(chunked, opts)); });
    scan_buffer(whole, opts, image.data(), static_cast<uint32_t>(image.size()), 0, 0);
    ASSERT_EQ(chunked.size(), 4u);
    // The URL up to the chunk's end, no header, no user.
    EXPECT_EQ(chunked[cut].url + "|" + chunked[cut].http_header + "|" + chunked[cut].user,
              cut_url.substr(0, 32768 - (cut + 104)) + "||");
    EXPECT_EQ(summary(chunked, cut), summary(whole, cut));
    // Position 0 and the 99th stride (offset 2838528, 16 percent) are multiples of 99.
    EXPECT_NE(err.find("percent: 0\r"), std::string::npos);
    EXPECT_NE(err.find("percent: 16\r"), std::string::npos);
    opts.result_map = nullptr;
    EXPECT_EQ(big_file_chunk(nullptr, &opts, image.data(), 100, 0, 0), 0xFFFFFFFFu);
}

// 64 KiB reads with 4096 bytes of overlap: as on the big-file road, the first decoding wins. The
// same bytes as a VMDK chain are compared end to end.
TEST(DeviceScan, RowsMatchTheWholeBufferAwayFromReadEdges) {
    temp_dir dir;
    const uint64_t size = 192 * 1024, cut = 65536 - 256;  // cut by the end of the first read
    byte_image image(size);
    put_entry(image, 1024, "http://first.example/");
    put_entry(image, 61440 - 512, "http://second.example/" + std::string(180, 'b'));  // across the overlap
    put_entry(image, cut, cut_url);
    put_entry(image, 131072, "http://third.example/");  // where a read would start without the overlap
    ASSERT_TRUE(write_file(dir.file("disk.img"), image.bytes()) && write_file(dir.file("empty.img"), ""));
    cmd_opts opts;
    result_map from_file, whole;
    opts.partition = dir.file("disk.img");
    // Reads start at 0, 61440, 122880 and 184320; only 0 is a multiple of 99.
    EXPECT_EQ(console_error_of([&] { EXPECT_TRUE(scan_device_input(from_file, opts)); }),
              std::string(short_erase_text) + "percent done: 0\r" + long_erase_text + "success");
    ASSERT_EQ(from_file.size(), 4u);
    scan_buffer(whole, opts, image.data(), static_cast<uint32_t>(size), 0, 0);
    EXPECT_EQ(from_file[cut].url, cut_url.substr(0, 152));
    EXPECT_EQ(summary(from_file, cut), summary(whole, cut));

    // An empty image is read as nothing, with success.
    opts.partition = dir.file("empty.img");
    EXPECT_EQ(console_error_of([&] { EXPECT_TRUE(scan_device_input(whole, opts)); }),
              std::string(long_erase_text) + "success");
}
