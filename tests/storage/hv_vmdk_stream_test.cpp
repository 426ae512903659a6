// Compressed grains (streamOptimized, as VMware exports a disk): a grain that doesn't inflate reads as
// zeros and is lost once. Whole disks are read end to end (tests/e2e/vmdk_stream_e2e_test.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "storage/hv_vmdk.h"
#include "support/builder_vmdk.h"
#include "support/needs.h"

using namespace testsupport;

namespace {

constexpr uint64_t grain = 65536, capacity = 3 << 20;

std::string missing_zlib() {
    return VMWARE_DISK::inflate_offered() ? "" : "ravel built without zlib (Debian package zlib1g-dev)";
}

// Grains written at the start, across a grain's end, in the second table (16 grains to a table), and last.
sparse_vmdk writes(sparse_vmdk disk) {
    return disk.write(0, std::string(3000, 'a'))
        .write(grain * 5 - 100, std::string(300, 'b'))
        .write(grain * 20 + 7, "second table")
        .write(capacity - 10, std::string(10, 'z'));
}

// A chain of one disk loaded from `file`'s bytes, which it reads in place; null when it won't load.
struct loaded {
    byte_image file;
    VMWARE_COLLECTION chain{false};
    bool good = false;

    explicit loaded(byte_image bytes) : file(std::move(bytes)) {
        std::unique_ptr<VMWARE_DISK> disk(new VMWARE_DISK());
        if (!disk->load(std::unique_ptr<image_reader>(new memory_image(file.data(), file.size())))) return;
        chain.add_disk(std::move(disk));
        good = chain.link();
    }
    std::string virtual_disk() {
        std::string bytes(capacity, '\x55');
        for (uint64_t at = 0; at < capacity; at += 40000) {
            uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(40000, capacity - at));
            EXPECT_TRUE(chain.read(&bytes[at], at, piece));
        }
        return bytes;
    }
};

}  // namespace

// A byte changed in a grain's data, or a marker that names another grain: that grain reads as zeros,
// the others as written, and each is lost once however often it is read.
TEST(VmwareStream, GrainThatDoesNotInflateIsLostOnce) {
    RAVEL_NEEDS(missing_zlib());
    const std::string expected = loaded(writes(sparse_vmdk(capacity, 128, 16)).image()).virtual_disk();
    const byte_image whole = writes(sparse_vmdk(capacity, 128, 16).stream()).image();
    // The first marker (of grain 0) follows the header and the descriptor's sector; the second (of
    // grain 4) follows grain 0's data, its stored-block framing (16 bytes), and the sector's rest.
    const size_t first_marker = 1024, second_marker = first_marker + (12 + grain + 16 + 511) / 512 * 512;
    const struct {
        const char* what;
        size_t at;
        uint64_t lost;
    } cases[] = {{"data", first_marker + 12 + 2000, 0}, {"marker", second_marker, grain * 4}};
    for (const auto& c : cases) {
        byte_image damaged = whole;
        damaged.bytes()[c.at] = static_cast<char>(damaged.bytes()[c.at] ^ 0x01);
        loaded disk(damaged);
        ASSERT_TRUE(disk.good) << c.what;
        std::string zeroed = expected;
        zeroed.replace(c.lost, grain, std::string(grain, '\0'));
        EXPECT_TRUE(disk.virtual_disk() == zeroed) << c.what;
        uint64_t offset = 0, length = 0;
        ASSERT_TRUE(disk.chain.next_lost_range(offset, length)) << c.what;
        EXPECT_EQ(offset, c.lost) << c.what;
        EXPECT_EQ(length, grain) << c.what;
        disk.virtual_disk();
        EXPECT_FALSE(disk.chain.next_lost_range(offset, length)) << c.what;
    }
}
