#include "webcache/hv_webcache_images.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "support/needs.h"
#include "support/run_ravel.h"
#include "webcache/hv_webcache.h"

using namespace testsupport;

namespace {

constexpr size_t sample_page_size = 32768;

// The records the library returns, by table and entry id.
struct keeping_sink : webcache_sink {
    std::map<std::pair<std::string, uint64_t>, webcache_record> records;
    bool record(const webcache_record& record) override {
        if (record.container != nullptr)
            records[{"Container_" + std::to_string(record.container->id), record.entry_id}] = record;
        return true;
    }
    void table_unreadable(const std::string&, uint64_t, const std::string&) override {}
};

}  // namespace

// The live tags of the sample's Container_N leaf pages, decoded without the library, are the library's
// records column by column; the tables it can't read give records from their pages; no offset twice.
TEST(WebcacheImages, SampleLiveRecordsAreTheLibrarys) {
    RAVEL_NEEDS(webcache_database::offered() ? "" : "ravel built without libesedb (Debian package libesedb-dev)");
    RAVEL_NEEDS(missing_real_fixtures());
    const std::string bytes = read_file(real_fixtures_dir() + "/WebCache/WebCacheV01.dat");
    webcache_database database;
    ASSERT_EQ(database.open_memory(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), webcache_fault::none);
    keeping_sink library;
    database.walk(library);
    const std::map<uint32_t, std::string> objects = database.table_objects();

    std::map<std::pair<std::string, uint64_t>, webcache_record> walked;
    std::map<std::pair<std::string, std::string>, size_t> counts;  // by table and state
    std::set<size_t> offsets;
    std::vector<webcache_image> images;
    for (size_t at = 2 * sample_page_size; at + sample_page_size <= bytes.size(); at += sample_page_size) {
        const uint8_t* page = reinterpret_cast<const uint8_t*>(bytes.data()) + at;
        ese_page header;
        read_ese_page(page, sample_page_size, header);
        auto table = objects.find(header.father_object);
        const bool in_table = table != objects.end() && table->second.compare(0, 10, "Container_") == 0 && header.leaf();
        decode_database_page(page, sample_page_size, in_table, nullptr, images);
        for (const webcache_image& image : images) {
            EXPECT_TRUE(offsets.insert(at + image.offset).second) << at + image.offset;
            const std::string name = in_table ? table->second : "Container_" + std::to_string(image.container_id);
            ++counts[{name, webcache_record_state_name(image.state)}];
            if (image.state == webcache_record_state::live) walked[{name, image.record.entry_id}] = image.record;
        }
    }
    const std::map<std::pair<std::string, std::string>, size_t> expected = {
        {{"Container_1", "free space"}, 99},  {{"Container_1", "live"}, 46},   {{"Container_1", "outside the tree"}, 30},
        {{"Container_11", "free space"}, 1536}, {{"Container_11", "live"}, 4112}, {{"Container_11", "outside the tree"}, 121},
        {{"Container_15", "live"}, 1},        {{"Container_16", "live"}, 14},  {{"Container_17", "live"}, 2},
        {{"Container_19", "live"}, 2},        {{"Container_2", "free space"}, 2}, {{"Container_2", "live"}, 33},
        {{"Container_20", "live"}, 13},       {{"Container_4", "free space"}, 888}, {{"Container_4", "live"}, 3297},
        {{"Container_4", "outside the tree"}, 74}, {{"Container_5", "free space"}, 6}, {{"Container_5", "live"}, 24},
        {{"Container_9", "live"}, 1},
    };
    EXPECT_EQ(counts, expected);

    size_t compared = 0;
    for (const auto& kept : library.records) {
        auto found = walked.find(kept.first);
        ASSERT_NE(found, walked.end()) << kept.first.first << " " << kept.first.second;
        const webcache_record& a = kept.second;
        const webcache_record& b = found->second;
        const std::string what = kept.first.first + " " + std::to_string(kept.first.second);
        EXPECT_EQ(std::make_tuple(a.secure_directory, a.file_size, a.type, a.flags, a.access_count, a.sync_count,
                                  a.exemption_delta),
                  std::make_tuple(b.secure_directory, b.file_size, b.type, b.flags, b.access_count, b.sync_count,
                                  b.exemption_delta))
            << what;
        EXPECT_EQ(std::make_tuple(a.sync_time, a.creation_time, a.expiry_time, a.modified_time, a.accessed_time,
                                  a.post_check_time),
                  std::make_tuple(b.sync_time, b.creation_time, b.expiry_time, b.modified_time, b.accessed_time,
                                  b.post_check_time))
            << what;
        if (!b.url.empty()) {
            EXPECT_EQ(a.url, b.url) << what;
        }
        EXPECT_EQ(a.file_name, b.file_name) << what;
        EXPECT_EQ(a.request_headers, b.request_headers) << what;
        EXPECT_EQ(a.response_headers, b.response_headers) << what;
        EXPECT_EQ(a.redirect_url, b.redirect_url) << what;
        ++compared;
    }
    EXPECT_EQ(compared, library.records.size());
}
