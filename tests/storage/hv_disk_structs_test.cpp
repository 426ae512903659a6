#include "storage/hv_disk_structs.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/builder_vmdk.h"

using namespace testsupport;

using listed = std::vector<std::tuple<uint64_t, uint16_t, std::string>>;  // start, type, file system

TEST(ParseDiskStart, ListsTablesChainsAndBareVolumes) {
    byte_image chain = partition_table({{7, 1, 10}, {5, 20, 100}});
    put_bytes(chain, 1 * 512, ntfs_boot_sector("NTFS    ", 512, 8, 10, 0x1234));
    // The first extended record counts volumes and its link from the extended start; later records
    // count a volume from their own start and a link from the extended start.
    put_bytes(chain, 20 * 512, partition_table({{7, 2, 5}, {5, 10, 10}}));
    put_bytes(chain, 22 * 512, fat_boot_sector(true, 512, 8, 5, 0xBEEF));
    put_bytes(chain, 30 * 512, partition_table({{12, 2, 3}}));
    chain.resize(40 * 512);
    byte_image loop = partition_table({{5, 2, 100}});
    put_bytes(loop, 2 * 512, partition_table({{7, 1, 1}, {5, 0, 100}}));
    byte_image fve = ntfs_boot_sector("-FVE-FS-", 512, 8, 1000, 7);  // not a volume boot record by its OEM word
    put_bytes(fve, 446, byte_image().u8(4, 7).u32(8, 4).u32(12, 9));
    byte_image big = partition_table({{7, 1, 10}}, false);  // 4096-byte sectors: entries still at 446
    big.u16(4094, 0xAA55);
    put_bytes(big, 4096, exfat_boot_sector(9, 3, 5000, 99));
    byte_image later(3 * 512);  // no signature at all: a table further in starts an extended walk
    put_bytes(later, 2 * 512, partition_table({{7, 5, 1}}));
    const byte_image ntfs = ntfs_boot_sector("NTFS    ", 512, 8, 1000, 7);
    const std::tuple<const char*, byte_image, bool, listed> rows[] = {
        // 512 bytes only: the volumes' boot sectors lie outside and stay unnamed.
        {"primary", partition_table({{7, 2048, 100}, {11, 4096, 100}}), false, {{2048, 7, ""}, {4096, 11, ""}}},
        {"extended ends it", partition_table({{7, 1, 9}, {5, 600, 9}, {7, 30, 9}}), false, {{1, 7, ""}, {600, 5, ""}}},
        {"type 0 ends it", partition_table({{7, 1, 9}, {0, 10, 9}, {7, 20, 9}}), false, {{1, 7, ""}}},
        {"count 0 ends it", partition_table({{7, 1, 0}}), true, {}},
        {"chain", chain, false, {{1, 7, "ntfs"}, {20, 5, ""}, {22, 12, "fat32"}, {30, 5, ""}, {32, 12, ""}}},
        {"link to itself", loop, false, {{2, 5, ""}, {3, 7, ""}, {2, 5, ""}}},
        {"first record past the bytes", partition_table({{5, 100, 100}}), false, {{100, 5, ""}}},
        {"bare volume, first try", ntfs, false, {}},
        {"bare volume, second try", ntfs, true, {{0, 7, "ntfs"}}},
        {"bitlocker", fve, false, {{4, 7, ""}}},
        {"4096-byte sectors", big, false, {{1, 7, "exfat"}}},
        {"table further in, second try", later, true, {{7, 7, ""}}},
    };
    for (const auto& r : rows) {
        std::deque<partition_info> out;
        const byte_image& disk = std::get<1>(r);
        bool ok = parse_disk_start(reinterpret_cast<const uint8_t*>(disk.bytes().data()), disk.size(), out,
                                   std::get<2>(r));
        listed got;
        for (const partition_info& p : out) got.emplace_back(p.start, p.type, p.fs_name);
        EXPECT_EQ(got, std::get<3>(r)) << std::get<0>(r);
        EXPECT_EQ(ok, !got.empty()) << std::get<0>(r);
    }
}

TEST(IdentifyVolume, NamesEachFileSystem) {
    byte_image fat_with_ext = ext_volume_start(2, 1000, "", "");
    fat_with_ext.text(3, "SYSLINUX");
    // sector, type, file system (none: not recognised), sector size, count
    const std::tuple<byte_image, uint16_t, std::string, uint32_t, uint64_t> rows[] = {
        {ntfs_boot_sector("NTFS    ", 4096, 1, 777, 1), 7, "ntfs", 4096, 777},
        {ntfs_boot_sector("-FVE-FS-", 512, 8, 5, 1), 7, "bitlocker container", 512, 5},
        {exfat_boot_sector(12, 3, 64, 1), 7, "exfat", 4096, 64},
        {fat_boot_sector(true, 512, 8, 2000, 1), 12, "fat32", 512, 2000},
        {fat_boot_sector(false, 1024, 4, 3000, 1), 4, "fat16", 1024, 3000},
        {ext_volume_start(0, 10, "vol", "/mnt"), 131, "ext", 512, 0},
        {fat_with_ext, 131, "ext2/3", 512, 4096 * 1000},  // ext behind boot code
        {hfs_volume_start(false), 175, "hfs+", 512, 0},
        {hfs_volume_start(true), 175, "hfsx", 512, 0},
        {byte_image(1024), 0, "", 512, 0},  // too short for a superblock
        {byte_image(512).text(3, "MYOWNFS!"), 0, "", 512, 0},
    };
    for (const auto& r : rows) {
        partition_info v;
        const byte_image& sector = std::get<0>(r);
        bool answer = identify_volume(v, reinterpret_cast<const uint8_t*>(sector.bytes().data()),
                                      static_cast<uint32_t>(sector.size()));
        EXPECT_EQ(std::make_tuple(answer, v.type, v.fs_name, v.sector_size, v.count),
                  std::make_tuple(!std::get<2>(r).empty(), std::get<1>(r), std::get<2>(r), std::get<3>(r),
                                  std::get<4>(r)));
    }
}
