#include "cache/hv_scan.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cmdline/hv_cmd_params.h"
#include "support/builder.h"
#include "support/run_ravel.h"

using namespace testsupport;

TEST(Scan, FindNextSignatureLooksOnlyAtBlockBoundaries) {
    byte_image image(133);
    image.text(0, "URL ").text(128, "URL ");
    EXPECT_EQ(find_next_signature(image.data(), 132), no_signature);  // nor in the last 4 bytes
    EXPECT_EQ(find_next_signature(image.data(), 133), 128u);
    EXPECT_EQ(find_next_signature(nullptr, 1000), no_signature);
    byte_image mixed(1024);
    mixed.text(0, "LEAK").text(200, "URL ").text(256, "HASH").text(384, "REDR");
    EXPECT_EQ(find_next_signature(mixed.data(), mixed.size()), 384u);
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
    EXPECT_EQ(rows.at(1128).url, "http://one/");
    EXPECT_EQ(rows.at(1000 + at).http_header, "");  // cut at the stray signature, which is an entry
    EXPECT_EQ(rows.at(1000 + at + 256).url, "earlier");

    byte_image rejected(512);  // "URL " without URL offset; a bare LEAK needs only its fixed part
    rejected.text(128, "URL ").text(256, "LEAK").text(384, "REDR");
    result_map some;
    EXPECT_TRUE(scan_buffer(some, opts, rejected.data(), 512, 0, 0));
    EXPECT_EQ(some.size(), 2u);
    EXPECT_EQ(some.count(128), 0u);
    byte_image blank(4096);
    EXPECT_FALSE(scan_buffer(some, opts, blank.data(), 4096, 0, 4096));
}

class ProcessInput : public ::testing::Test {
protected:
    void SetUp() override { opts.scan_bad_header = true; }  // as every run sets it
    std::string run(const std::string& bytes, bool& answer, const std::string& name = "index.dat") {
        write_file(dir.file(name), bytes);
        opts.current_file = dir.file(name);
        std::ostringstream out;
        answer = process_input(out, opts);
        return out.str();
    }
    temp_dir dir;
    cmd_opts opts;
};

TEST_F(ProcessInput, AFileOfExactly16MiBIsScannedWhole) {
    byte_image image(16777216);
    write_container_header(image, {"ONLYDIR1"});
    url_entry last;
    last.url = "http://last/";
    last.data = "HTTP/1.1 200 OK\r\n~U:amy\r\n";
    write_url_entry(image, 16777216 - 256, last);
    bool answer = false;
    std::string out = run(image.bytes(), answer);
    EXPECT_TRUE(answer);
    EXPECT_EQ(out.substr(out.find('\n') + 1),
              ",,,,,,,,URL ,http://last/,amy,,0,ONLYDIR1,0,HTTP/1.1 200 OK," + opts.current_file + "\n");
}

TEST_F(ProcessInput, TheHeaderRowComesOnceEvenWithoutRows) {
    bool answer = true;
    EXPECT_EQ(run("", answer), "");  // empty: no header row
    EXPECT_FALSE(answer);
    EXPECT_EQ(run(std::string(4096, 'z'), answer).substr(0, 14), "last mod date,");
    EXPECT_FALSE(answer);
    EXPECT_EQ(run(std::string(4096, 'z'), answer), "");

    byte_image image(512);  // without scan_bad_header only a container is scanned
    write_redr_entry(image, 128, "http://a/");
    opts.scan_bad_header = false;
    EXPECT_EQ(run(image.bytes(), answer), "");
    write_container_header(image, {});
    EXPECT_NE(run(image.bytes(), answer), "");
    EXPECT_TRUE(opts.scan_bad_header);
}

TEST_F(ProcessInput, NoteColumnsNumberTheRowsOfAnInput) {
    byte_image image(512);
    write_redr_entry(image, 128, "http://a/");
    write_redr_entry(image, 384, "http://b/");
    opts.show_note_columns = true;
    opts.header_pending = false;
    bool answer = false;
    std::string out = run(image.bytes(), answer, "History.IE5/MSHist01/index.dat");
    std::string source = opts.current_file;
    EXPECT_EQ(out, "1,0x00000080,,,,,,,,,REDR,http://a/,,,0,,0,," + source + "\n" +
                   "2,0x00000180,,,,,,,,,REDR,http://b/,,,0,,0,," + source + "\n");
    EXPECT_EQ(opts.cache_category, 3u);
}
