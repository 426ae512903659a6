#include "cache/hv_big_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "cache/hv_process_input.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "storage/hv_text_conversion.h"
#include "storage/hv_raw_disk.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

const std::string cut_url = "http://www.example.com/" + std::string(377, 'a');  // 400 bytes

void put_entry(byte_image& image, size_t offset, const std::string& url) {
    url_entry entry;
    entry.url = url;
    entry.data = "HTTP/1.1 200 OK\r\n\r\n~U:alice\r\n";
    write_url_entry(image, offset, entry);
}

// The rows (without header) and the console's standard error of one road over `image`.
struct road_output {
    std::string rows, err;
};

template <class Road>
road_output run_road(cmd_opts& opts, Road road) {
    opts.header_pending = false;
    road_output result;
    std::ostringstream out;
    FILE* capture = std::tmpfile();
    FILE* previous = redirect_console_error(capture);
    {
        input_scan scan(out, opts);
        scan.begin_input();
        road(scan);
        scan.end_input();
    }
    redirect_console_error(previous);
    std::rewind(capture);
    for (int c; (c = std::fgetc(capture)) != EOF;) result.err.push_back(static_cast<char>(c));
    std::fclose(capture);
    result.rows = out.str();
    return result;
}

// Line `n` (from 0) of a report.
std::string line(const std::string& report, size_t n) {
    std::istringstream in(report);
    std::string text;
    for (size_t i = 0; i <= n && std::getline(in, text);) ++i;
    return text;
}

// A reader that can't tell where its data lies: every window is read.
class unsparse : public image_reader {
public:
    explicit unsparse(image_reader& inner) : inner_(inner) {}
    uint64_t size() const override { return inner_.size(); }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override { return inner_.read(offset, buffer, length); }

private:
    image_reader& inner_;
};

// Bytes in memory whose stretch [begin, end) is damaged: it reads as zeros and is told as lost once,
// at the first read that touches it, as a reader of a damaged image does.
class damaged_stretch : public image_reader {
public:
    damaged_stretch(image_reader& inner, uint64_t begin, uint64_t end) : inner_(inner), begin_(begin), end_(end) {}
    uint64_t size() const override { return inner_.size(); }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override {
        if (!inner_.read(offset, buffer, length)) return false;
        for (uint64_t at = std::max(offset, begin_); at < std::min(offset + length, end_); ++at) buffer[at - offset] = 0;
        pending_ = pending_ || (!told_ && offset < end_ && offset + length > begin_);
        return true;
    }
    bool next_lost_range(uint64_t& offset, uint64_t& length) override {
        if (!pending_) return false;
        offset = begin_;
        length = end_ - begin_;
        pending_ = false;
        told_ = true;
        return true;
    }

private:
    image_reader& inner_;
    uint64_t begin_, end_;
    bool pending_ = false, told_ = false;
};

}  // namespace

// Rows away from chunk edges are those of the whole buffer; an entry cut by the end of the first
// chunk keeps its first, poorer decoding. Percentage lines only with progress shown.
TEST(BigFile, ChunksCutEntriesAtTheirEndsAndTellTheirProgress) {
    const size_t cut = 32768 - 256;
    byte_image image(whole_file_limit + 1);
    put_entry(image, 4096, "http://one.example/");
    put_entry(image, cut, cut_url);
    put_entry(image, 28672 * 99 + 128 * 5, "http://two.example/");
    put_entry(image, whole_file_limit - 1024, "http://last.example/");
    memory_image memory(image.data(), image.size());
    cmd_opts opts;
    opts.scan_bad_header = true;
    road_output chunked = run_road(opts, [&](input_scan& scan) { EXPECT_TRUE(scan_big_file(scan, opts, memory)); });
    EXPECT_NE(line(chunked.rows, 0).find("http://one.example/"), std::string::npos);
    // The URL up to the chunk's end, no header, no user.
    EXPECT_NE(line(chunked.rows, 1).find(",URL ," + cut_url.substr(0, 32768 - (cut + 104)) + ",,,0,,0,,"),
              std::string::npos);
    EXPECT_NE(line(chunked.rows, 3).find("http://last.example/,alice"), std::string::npos);
    // Position 0 and the 99th stride (offset 2838528, 16 percent) are multiples of 99.
    EXPECT_NE(chunked.err.find("percent: 0\r"), std::string::npos);
    EXPECT_NE(chunked.err.find("percent: 16\r"), std::string::npos);
    opts.show_progress = false;
    EXPECT_EQ(run_road(opts, [&](input_scan& scan) { scan_big_file(scan, opts, memory); }).err, "");

    // Read whole, the cut entry keeps its whole URL.
    memory_image whole(image.data(), whole_file_limit);
    road_output once = run_road(opts, [&](input_scan& scan) {
        bool result = false;
        EXPECT_TRUE(scan_file(scan, opts, whole, result) && result);
    });
    EXPECT_NE(line(once.rows, 1).find(cut_url + ",alice"), std::string::npos);
}

// 64 KiB reads with 4096 bytes of overlap, as on the big-file road; a device's last read is cut at its
// end, a chain's is padded with zeros.
TEST(DeviceScan, ReadsOverlapAndTheLastIsCutOrPadded) {
    const uint64_t size = 192 * 1024, cut = 65536 - 256;  // cut by the end of the first read
    byte_image image(size);
    put_entry(image, 1024, "http://first.example/");
    put_entry(image, 61440 - 512, "http://second.example/" + std::string(180, 'b'));  // across the overlap
    put_entry(image, cut, cut_url);
    put_entry(image, 131072, "http://third.example/");  // where a read would start without the overlap
    put_entry(image, size - 160, "http://tail.example/");  // 160 bytes before the end: whole only when padded
    memory_image memory(image.data(), image.size());
    cmd_opts opts;
    for (bool padded : {false, true}) {
        road_output disk = run_road(opts, [&](input_scan& scan) { EXPECT_TRUE(scan_device(scan, memory, padded)); });
        // Reads start at 0, 61440, 122880 and 184320; only 0 is a multiple of 99.
        EXPECT_EQ(disk.err, std::string(short_erase_text) + "percent done: 0\r" + long_erase_text + "success");
        EXPECT_NE(line(disk.rows, 2).find(",URL ," + cut_url.substr(0, 152) + ",,,0,"), std::string::npos);
        EXPECT_NE(line(disk.rows, 3).find("http://third.example/,alice"), std::string::npos);
        EXPECT_EQ(line(disk.rows, 4).find("http://tail.example/"), std::string::npos)
            << padded;
    }
    memory_image empty(image.data(), 0);
    EXPECT_EQ(run_road(opts, [&](input_scan& scan) { EXPECT_TRUE(scan_device(scan, empty, true)); }).err,
              std::string(long_erase_text) + "success");
}

// A stretch lost to damage reads as zeros, and its line comes once, after the read that met it, between
// the percentage lines; it is met again in the next read's overlap, but not told again.
TEST(DeviceScan, LostStretchesAreToldOnceOnLinesOfTheirOwn) {
    byte_image image(256 * 1024);
    put_entry(image, 1024, "http://kept.example/");
    put_entry(image, 65536 * 3 + 1024, "http://lost.example/");
    put_entry(image, 65536 * 3 + 52224, "http://after.example/");
    memory_image memory(image.data(), image.size());
    damaged_stretch damaged(memory, 65536 * 3, 65536 * 3 + 51200);  // into the last read's overlap
    cmd_opts opts;
    road_output disk = run_road(opts, [&](input_scan& scan) { EXPECT_TRUE(scan_device(scan, damaged, true)); });
    // Reads at 0, 61440, 122880, 184320 and 245760; the last two meet the stretch.
    EXPECT_EQ(disk.err, std::string(short_erase_text) + "percent done: 0\r" + long_erase_text +
                            "prob reading media bytes 196608 to 247807, read as zeros\n" + long_erase_text + "success");
    EXPECT_NE(line(disk.rows, 0).find("http://kept.example/"), std::string::npos);
    EXPECT_NE(line(disk.rows, 1).find("http://after.example/"), std::string::npos);
    EXPECT_EQ(disk.rows.find("http://lost.example/"), std::string::npos);
}

// Windows wholly in grains no file holds are passed over unread; the rows and every byte of the
// percentage lines are those of reading them.
TEST(DeviceScan, EmptyStretchesOfAChainAreSkippedExactly) {
    const uint64_t capacity = 1ull << 30;
    byte_image container(4096);
    put_entry(container, 1024, "http://near.example/");
    put_entry(container, 3072, "http://far.example/");
    sparse_vmdk disk(capacity, 128, 512);
    disk.write(61440 * 40 - 2048, container.bytes()).write(capacity - 8192, container.bytes());
    temp_dir dir;
    ASSERT_TRUE(disk.save(dir.file("disk.vmdk")));
    RAW_DISK_IO chain({wide_of(dir.file("disk.vmdk"))}, false, false);
    ASSERT_TRUE(chain.valid());
    EXPECT_LT(chain.next_data(61440), capacity);
    cmd_opts opts;
    road_output skipped = run_road(opts, [&](input_scan& scan) { scan_device(scan, chain, true); });
    unsparse every(chain);
    road_output read_all = run_road(opts, [&](input_scan& scan) { scan_device(scan, every, true); });
    EXPECT_EQ(skipped.rows, read_all.rows);
    EXPECT_EQ(skipped.err, read_all.err);
    EXPECT_NE(skipped.rows.find("http://far.example/"), std::string::npos);
    EXPECT_GT(skipped.err.size(), 500u * 20);  // some 530 percentage lines
}
