#include "storage/hv_disk_structs.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/builder_vmdk.h"

using namespace testsupport;

namespace {

using listed = std::tuple<uint64_t, uint16_t, std::string>;  // start, type, file system

std::vector<listed> volumes_of(const byte_image& disk, bool accept_no_table, bool* answer = nullptr) {
    std::deque<partition_info> out;
    bool ok = parse_disk_start(reinterpret_cast<const uint8_t*>(disk.bytes().data()), disk.size(), out,
                               accept_no_table);
    if (answer) *answer = ok;
    std::vector<listed> result;
    for (const partition_info& p : out) result.emplace_back(p.start, p.type, p.fs_name);
    return result;
}

}  // namespace

TEST(ParseDiskStart, PrimaryTableStopsAtExtendedOrBadEntry) {
    // 512 bytes only: the volumes are listed, their boot sectors lie outside and stay unnamed.
    EXPECT_EQ(volumes_of(partition_table({{7, 2048, 100}, {11, 4096, 100}}), false),
              (std::vector<listed>{{2048, 7, ""}, {4096, 11, ""}}));
    // The extended entry is the last primary one read.
    EXPECT_EQ(volumes_of(partition_table({{7, 1, 9}, {7, 10, 9}, {5, 2000, 9}, {7, 30, 9}}), false).size(), 3u);
    // Type 0, an unknown type or a count of 0 ends the table.
    EXPECT_EQ(volumes_of(partition_table({{7, 1, 9}, {0, 10, 9}, {7, 20, 9}}), false).size(), 1u);
    EXPECT_EQ(volumes_of(partition_table({{7, 1, 9}, {3, 10, 9}}), false).size(), 1u);
    EXPECT_EQ(volumes_of(partition_table({{7, 1, 0}}), true).size(), 0u);
    // All zeros: nothing on either try.
    bool answer = true;
    EXPECT_TRUE(volumes_of(byte_image(4096), true, &answer).empty());
    EXPECT_FALSE(answer);
}

TEST(ParseDiskStart, WalksExtendedChainAndNamesVolumesInside) {
    byte_image disk = partition_table({{7, 1, 10}, {5, 20, 100}});
    put_bytes(disk, 1 * 512, ntfs_boot_sector("NTFS    ", 512, 8, 10, 0x1234));
    // First extended record: offsets from the extended start; the link from there too.
    put_bytes(disk, 20 * 512, partition_table({{7, 2, 5}, {5, 10, 10}}));
    put_bytes(disk, 22 * 512, fat_boot_sector(true, 512, 8, 5, 0xBEEF));
    // Later records: a volume is counted from its own record, a link from the extended start.
    put_bytes(disk, 30 * 512, partition_table({{12, 2, 3}}));
    disk.resize(40 * 512);
    EXPECT_EQ(volumes_of(disk, false), (std::vector<listed>{
                                           {1, 7, "ntfs"}, {20, 5, ""}, {22, 12, "fat32"}, {30, 5, ""}, {32, 12, ""}}));
    // Hostile chains end: a link to itself, and a first record past the bytes given.
    byte_image loop = partition_table({{5, 2, 100}});
    put_bytes(loop, 2 * 512, partition_table({{7, 1, 1}, {5, 0, 100}}));
    EXPECT_EQ(volumes_of(loop, false).size(), 3u);
    EXPECT_EQ(volumes_of(partition_table({{5, 100, 100}}), false).size(), 1u);
}

TEST(ParseDiskStart, BareVolumesAndLargeSectors) {
    // A boot sector with the signature is a bare volume, accepted on the second try only.
    byte_image ntfs = ntfs_boot_sector("NTFS    ", 512, 8, 1000, 7);
    EXPECT_TRUE(volumes_of(ntfs, false).empty());
    EXPECT_EQ(volumes_of(ntfs, true), (std::vector<listed>{{0, 7, "ntfs"}}));
    // A BitLocker sector isn't a volume boot record by its OEM word: it is read as a table.
    byte_image fve = ntfs_boot_sector("-FVE-FS-", 512, 8, 1000, 7);
    put_bytes(fve, 446, byte_image().u8(4, 7).u32(8, 4).u32(12, 9));
    EXPECT_EQ(volumes_of(fve, false), (std::vector<listed>{{4, 7, ""}}));
    // Entries of a table in 4096-byte sectors are still read at 446; starts count in 4096s.
    byte_image big = partition_table({{7, 1, 10}}, false);
    big.u16(4094, 0xAA55);
    put_bytes(big, 4096, exfat_boot_sector(9, 3, 5000, 99));
    std::deque<partition_info> out;
    ASSERT_TRUE(parse_disk_start(big.data(), big.size(), out, false));
    EXPECT_EQ(out[0].sector_size, 512u);  // from the exFAT sector, which replaced 4096
    EXPECT_EQ(out[0].fs_name, "exfat");
    // No signature where a table should be: a table further in starts an extended walk.
    byte_image later(3 * 512);
    put_bytes(later, 2 * 512, partition_table({{7, 5, 1}}));
    EXPECT_TRUE(volumes_of(later, false).empty());
    EXPECT_EQ(volumes_of(later, true), (std::vector<listed>{{7, 7, ""}}));
}

TEST(IdentifyVolume, NamesEachFileSystem) {
    struct row {
        const char* what;
        byte_image sector;
        bool recognised;
        uint16_t type;
        const char* fs_name;
        uint32_t sector_size;
        uint64_t count;
    };
    byte_image fat_with_ext = ext_volume_start(2, 1000, "", "");
    fat_with_ext.text(3, "SYSLINUX");
    const row rows[] = {
        {"ntfs", ntfs_boot_sector("NTFS    ", 4096, 1, 777, 1), true, 7, "ntfs", 4096, 777},
        {"bitlocker", ntfs_boot_sector("-FVE-FS-", 512, 8, 5, 1), true, 7, "bitlocker container", 512, 5},
        {"exfat", exfat_boot_sector(12, 3, 64, 1), true, 7, "exfat", 4096, 64},
        {"fat32", fat_boot_sector(true, 512, 8, 2000, 1), true, 12, "fat32", 512, 2000},
        {"fat16", fat_boot_sector(false, 1024, 4, 3000, 1), true, 4, "fat16", 1024, 3000},
        {"ext superblock", ext_volume_start(0, 10, "vol", "/mnt"), true, 131, "ext", 512, 0},
        {"ext behind boot code", fat_with_ext, true, 131, "ext2/3", 512, 4096 * 1000},
        {"hfs+", hfs_volume_start(false), true, 175, "hfs+", 512, 0},
        {"hfsx", hfs_volume_start(true), true, 175, "hfsx", 512, 0},
        {"zeros, no superblock", byte_image(2048), false, 0, "", 512, 0},
        {"zeros, too short", byte_image(1024), false, 0, "", 512, 0},
        {"unknown", byte_image(512).text(3, "MYOWNFS!"), false, 0, "", 512, 0},
    };
    for (const row& r : rows) {
        partition_info volume;
        bool answer = identify_volume(volume, reinterpret_cast<const uint8_t*>(r.sector.bytes().data()),
                                      static_cast<uint32_t>(r.sector.size()));
        EXPECT_EQ(answer, r.recognised) << r.what;
        EXPECT_EQ(volume.type, r.type) << r.what;
        EXPECT_EQ(volume.fs_name, r.fs_name) << r.what;
        EXPECT_EQ(volume.sector_size, r.sector_size) << r.what;
        EXPECT_EQ(volume.count, r.count) << r.what;
    }
    partition_info ext;
    byte_image named = ext_volume_start(0, 10, "0123456789abcdefTOO-LONG", "/media/x");
    identify_volume(ext, named.data(), static_cast<uint32_t>(named.size()));
    EXPECT_EQ(ext.ext_volume_name + " " + ext.ext_last_mounted, "0123456789abcdef /media/x");
}
