// Partition tables and volume boot sectors, as far as the opening of a disk image reads them.
// Decoding is a pure function of (bytes, size): nothing here reads files or prints.
// Kept for an image road that may look its volumes up: no road uses the lookup today. The VMDK
// opening runs it and notes each volume's offset and sector size (volume_offsets), which nothing reads.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

// One sector: a master boot record (or extended boot record), or a volume boot record that
// stands where a table was expected. Kept as copied.
struct MASTER_BOOT_RECORD {
    static constexpr size_t size = 512;
    static constexpr size_t at_oem = 3;            // 8 bytes of OEM text in a volume boot record
    static constexpr size_t at_entries = 446;      // four partition entries
    static constexpr size_t entry_size = 16;
    static constexpr size_t entry_count = 4;
    static constexpr size_t at_signature = 510;    // u16
    static constexpr uint16_t signature_value = 0xAA55;
    // Inside one partition entry.
    static constexpr size_t entry_at_type = 4;          // u8
    static constexpr size_t entry_at_first_sector = 8;  // u32
    static constexpr size_t entry_at_count = 12;        // u32

    std::array<uint8_t, size> bytes;

    MASTER_BOOT_RECORD() { clear(); }
    void clear() { bytes.fill(0); }
    // Copies the sector at `offset` of `data`; false (and cleared) when it doesn't lie whole inside.
    bool load(const uint8_t* data, uint64_t data_size, uint64_t offset);

    bool has_signature() const;
    // The sector is a file system's boot sector ("EXFA", "MSDO" or "NTFS" at offset 3).
    bool is_vol_boot_record_instead() const;
    uint8_t type(size_t entry) const;
    uint32_t first_sector(size_t entry) const;
    uint32_t count(size_t entry) const;
};
static_assert(sizeof(MASTER_BOOT_RECORD::bytes) == 512, "one sector is copied");

// One volume found at the start of a disk.
struct partition_info {
    uint64_t start;  // first sector
    uint64_t count;  // sectors; may be replaced from the boot sector
    uint16_t type;   // partition type, then the value the file system test finds
    uint32_t sectors_per_cluster;
    uint32_t sector_size;
    uint32_t serial;
    bool has_volume_info;
    std::string label_alt;
    std::string fs_name;
    std::string ext_volume_name;
    std::string ext_last_mounted;
    uint16_t fat_flags;

    partition_info() { clear(); }
    partition_info(unsigned long long start, unsigned long long count, unsigned short type, unsigned int sector_size);
    void clear();
    bool valid() const { return sector_size != 0; }
};

// Lists the volumes of a disk whose first `size` bytes are `data`: the primary table, the chain of
// extended records, and the file system of each volume whose boot sector lies in the bytes given.
// With `accept_no_table` a bare volume or a table found further in counts. True when `out` isn't empty.
bool parse_disk_start(const uint8_t* data, uint64_t size, std::deque<partition_info>& out, bool accept_no_table);

// Names the file system whose boot sector (and, for ext and HFS+, superblock at 1024) is `sector`.
bool identify_volume(partition_info& volume, const uint8_t* sector, uint32_t size);
