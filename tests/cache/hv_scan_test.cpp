#include "cache/hv_scan.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cmdline/hv_cmd_params.h"
#include "support/builder.h"
#include "support/run_ravel.h"

using namespace testsupport;

TEST(Scan, FindNextSignatureLooksOnlyAtBlockBoundaries) {
    byte_image image(1024);
    image.text(0, "URL ").text(128, "URL ");
    EXPECT_EQ(find_next_signature(image.data(), 132), no_signature);  // nor in the last 4 bytes
    EXPECT_EQ(find_next_signature(image.data(), 133), 128u);
    image.text(0, "LEAK").text(128, "HASH").text(200, "URL ").text(384, "REDR");
    EXPECT_EQ(find_next_signature(image.data(), image.size()), 384u);
}

TEST(Scan, EveryBlockSignatureIsAnEntryAndTheFirstDecodingWins) {
    url_entry e;
    e.url = "http://one/";
    byte_image image;
    write_url_entry(image, 0, e);  // position 0 is never looked at
    size_t at = 128 + write_url_entry(image, 128, e);
    e.data = std::string(200, 'x');  // 3 blocks, with a stray REDR in the third
    write_url_entry(image, at, e);
    write_redr_entry(image, at + 256, "http://stray/");
    image.text(at + 64, "URL ");  // off the grid
    cmd_opts opts;
    result_map rows;
    rows[1000 + at + 256].url = "earlier";
    EXPECT_TRUE(scan_buffer(rows, opts, image.data(), static_cast<uint32_t>(image.size()), 1000, 0));
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows.at(1000 + at).http_header, "");  // cut at the stray signature, which is an entry
    EXPECT_EQ(hv::le32(image.data(), image.size(), at + 4), 2u);  // the entry's count, rewritten in memory
    EXPECT_EQ(rows.at(1000 + at + 256).url, "earlier");
    EXPECT_FALSE(scan_buffer(rows, opts, byte_image(4096).data(), 4096, 0, 4096));
}

class ProcessInput : public ::testing::Test {
protected:
    std::string run(const std::string& bytes, const std::string& name = "index.dat") {
        write_file(dir.file(name), bytes);
        opts.current_file = dir.file(name);
        opts.scan_bad_header = true;  // as every run sets it
        std::ostringstream out;
        answer = process_input(out, opts);
        return out.str();
    }
    temp_dir dir;
    cmd_opts opts;
    bool answer = false;
};

TEST_F(ProcessInput, AFileOfExactly16MiBIsScannedWhole) {
    byte_image image(16777216);
    write_container_header(image, {"ONLYDIR1"});
    url_entry last;
    last.url = "http://last/";
    last.data = "HTTP/1.1 200 OK\r\n~U:amy\r\n";
    write_url_entry(image, 16777216 - 256, last);
    std::string out = run(image.bytes());
    EXPECT_TRUE(answer);
    EXPECT_EQ(out.substr(out.find('\n') + 1),
              ",,,,,,,,URL ,http://last/,amy,,0,ONLYDIR1,0,HTTP/1.1 200 OK," + opts.current_file + "\n");
}

TEST_F(ProcessInput, HeaderRowOnceAndNoteColumnsNumberTheRows) {
    EXPECT_EQ(run(std::string(4096, 'z')).substr(0, 14), "last mod date,");  // even without rows
    EXPECT_FALSE(answer);
    byte_image image(512);
    write_redr_entry(image, 128, "http://a/");
    write_redr_entry(image, 384, "http://b/");
    opts.show_note_columns = true;
    std::string out = run(image.bytes(), "History.IE5/MSHist01/index.dat"), source = opts.current_file;
    EXPECT_EQ(out, "1,0x00000080,,,,,,,,,REDR,http://a/,,,0,,0,," + source + "\n" +
                   "2,0x00000180,,,,,,,,,REDR,http://b/,,,0,,0,," + source + "\n");
    EXPECT_EQ(opts.cache_category, 3u);
}
