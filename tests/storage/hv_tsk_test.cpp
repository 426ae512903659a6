// The libtsk image over bytes in memory: reads past the media's end give zeros, and bytes that hold
// no volume system and no file system are told as such, whole, with no file met.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "storage/hv_tsk.h"
#include "support/needs.h"

namespace {

struct recorded_walk : image_walk_events {
    std::vector<std::string> files;
    std::vector<std::pair<uint64_t, bool>> without;
    void file(const image_file& facts, const uint8_t*, size_t, image_reader&) override { files.push_back(facts.path); }
    void no_file_system(uint64_t sector, bool whole) override { without.emplace_back(sector, whole); }
};

}  // namespace

TEST(TskImage, MemoryWithoutAFileSystemIsToldWhole) {
    RAVEL_NEEDS(tsk_image::offered() ? "" : "ravel built without libtsk (Debian package libtsk-dev)");
    std::vector<uint8_t> bytes(64 * 1024, 0x5A);
    tsk_image image;
    ASSERT_TRUE(image.open_memory(bytes.data(), bytes.size()));
    EXPECT_EQ(image.size(), bytes.size());
    std::vector<uint8_t> buffer(1024, 1);
    ASSERT_TRUE(image.read(bytes.size() - 512, buffer.data(), buffer.size()));
    EXPECT_EQ(buffer[0], 0x5A);
    EXPECT_EQ(buffer[511], 0x5A);
    EXPECT_EQ(buffer[512], 0);
    EXPECT_EQ(buffer[1023], 0);

    recorded_walk walk;
    image.walk(walk, 16);
    EXPECT_TRUE(walk.files.empty());
    EXPECT_EQ(walk.without, (std::vector<std::pair<uint64_t, bool>>{{0, true}}));
}
