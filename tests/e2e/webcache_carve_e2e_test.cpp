// WebCache records carved on the big-file road: the sample's pages, shuffled into a raw file of random
// bytes with a tenth of them lost, give the records of the pages that are there, each once, with its
// offset, whatever the read windows' edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "driver/hv_process_input.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"
#include "webcache/hv_webcache_images.h"

using namespace testsupport;

namespace {

constexpr size_t page_size = 32768;

std::string random_bytes(std::mt19937_64& random, size_t size) {
    std::string out(size, '\0');
    for (size_t i = 0; i < size; i += 8) {
        const uint64_t word = random();
        for (size_t b = 0; b < 8 && i + b < size; ++b) out[i + b] = static_cast<char>(word >> (8 * b));
    }
    return out;
}

// offset|url of each carved row of a -complete report; no offset comes twice.
std::set<std::string> carved_rows(const std::string& report) {
    std::set<std::string> rows, offsets;
    for (const csv_record& f : read_csv(after_preamble(report)))
        if (f.size() == 22 && f[8] == "URL " && f[18] == "no") {
            rows.insert(f[17] + "|" + f[9]);
            EXPECT_TRUE(offsets.insert(f[17]).second) << "offset " << f[17] << " twice";
        }
    return rows;
}

}  // namespace

TEST(WebcacheCarveE2E, ShuffledPagesGiveTheirRecordsWithOffsets) {
    RAVEL_NEEDS(missing_real_fixtures());
    const std::string sample = read_file(real_fixtures_dir() + "/WebCache/WebCacheV01.dat");
    ASSERT_EQ(sample.size() % page_size, 0u);
    std::mt19937_64 random(27);
    std::vector<size_t> pages;
    for (size_t page = 2; page < sample.size() / page_size; ++page)
        if (page % 10 != 3) pages.push_back(page);  // a tenth lost
    std::shuffle(pages.begin(), pages.end(), random);

    // Each page after a gap of random bytes, so that pages fall anywhere across the read windows.
    std::string raw = random_bytes(random, 12345);
    std::set<std::string> expected;
    std::vector<webcache_image> images;
    for (size_t page : pages) {
        const size_t at = raw.size();
        raw += sample.substr(page * page_size, page_size);
        carve_container_records(reinterpret_cast<const uint8_t*>(raw.data()) + at, page_size, page_size, images);
        for (const webcache_image& image : images) expected.insert(std::to_string(at + image.offset) + "|" + image.record.url);
        raw += random_bytes(random, 4096 * (random() % 3) + random() % 700);
    }
    ASSERT_GT(raw.size(), whole_file_limit);  // the big-file road
    ASSERT_GT(expected.size(), 5000u);

    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("raw.bin"), raw));
    const run_result run = run_ravel({"-f", dir.file("raw.bin"), "-complete"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(carved_rows(run.out), expected);  // random bytes between the pages give no row
}
