// Writes disk images byte by byte: sparse VMDK extents (header, descriptor, grain directory, grain
// tables, grains) and the first sectors of disks (partition tables, volume boot sectors).
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/builder.h"

namespace testsupport {

// Sparse extent header fields, as the format lays them down (sectors of 512 bytes).
namespace vmdk {
constexpr size_t magic = 0, version = 4, flags = 8;              // "KDMV", u32, u32
constexpr size_t capacity = 12, grain_size = 20;                  // u64 sectors
constexpr size_t descriptor_offset = 28, descriptor_size = 36;    // u64 sectors
constexpr size_t entries_per_table = 44;                          // u32
constexpr size_t grain_dir = 56, overhead = 64;                   // u64 sectors
constexpr size_t compression = 77;                                // u16, 1: deflate
constexpr size_t sector = 512;
// streamOptimized: flags of compressed grains and markers; the directory offset that sends to the footer.
constexpr uint32_t stream_flags = 0x30001;
constexpr uint64_t directory_at_end = ~uint64_t{0};
}  // namespace vmdk

// One sparse extent: header, descriptor from sector 1, directory, tables, then the grains that
// were written to, in the order of the virtual disk. Or, streamed, as VMware exports a disk: header
// and descriptor, each grain compressed behind its marker, then the tables and the directory behind
// metadata markers, a footer that says where the directory is, and the end-of-stream marker.
class sparse_vmdk {
public:
    // `capacity` in bytes; grains of `grain_sectors` x 512 bytes; tables of `entries_per_table`.
    explicit sparse_vmdk(uint64_t capacity, uint32_t grain_sectors = 8, uint32_t entries_per_table = 16)
        : capacity_(capacity), grain_sectors_(grain_sectors), entries_per_table_(entries_per_table) {}

    // Descriptor keys, written as given (a hint keeps its quotes; "" leaves the hint out).
    sparse_vmdk& cid(const std::string& v) { cid_ = v; return *this; }
    sparse_vmdk& parent_cid(const std::string& v) { parent_cid_ = v; return *this; }
    sparse_vmdk& parent_hint(const std::string& v) { parent_hint_ = v; return *this; }
    sparse_vmdk& encoding(const std::string& v) { encoding_ = v; return *this; }
    // The whole descriptor text instead of the generated one, padded with NULs to its sectors.
    sparse_vmdk& descriptor(const std::string& text) { raw_descriptor_ = text; return *this; }
    // Exactly this many sectors for the descriptor (0: just enough for the text).
    sparse_vmdk& descriptor_sectors(uint32_t n) { descriptor_sectors_ = n; return *this; }
    // Tables in the directory (0: as many as the capacity needs).
    sparse_vmdk& table_count(uint32_t n) { table_count_ = n; return *this; }
    // Directory entry `table` points at `sector` instead of its table (past the end: a missing table).
    sparse_vmdk& directory_entry(uint32_t table, uint32_t sector) { overrides_[table] = sector; return *this; }
    // Streamed, grains compressed (zlib format, in stored blocks).
    sparse_vmdk& stream() { stream_ = true; return *this; }
    // Virtual bytes: each grain touched gets its slot in this file, zero where not written.
    sparse_vmdk& write(uint64_t offset, const std::string& bytes);

    byte_image image() const;
    bool save(const std::string& path) const;
    // Sector of a grain table, for tests that poke the image.
    uint64_t table_sector(uint32_t table) const;

private:
    std::string descriptor_text() const;
    byte_image streamed() const;
    uint64_t descriptor_sector_count() const;
    uint32_t tables() const;
    uint64_t grain_bytes() const { return uint64_t{grain_sectors_} * vmdk::sector; }

    uint64_t capacity_;
    uint32_t grain_sectors_;
    uint32_t entries_per_table_;
    std::string cid_ = "12345678", parent_cid_ = "ffffffff", parent_hint_, encoding_ = "\"UTF-8\"";
    std::string raw_descriptor_;
    uint32_t descriptor_sectors_ = 0;
    uint32_t table_count_ = 0;
    std::map<uint32_t, uint32_t> overrides_;  // directory entries
    std::map<uint64_t, std::string> grains_;  // grain index -> its bytes
    bool stream_ = false;
};

// A raw disk of `size` bytes (4 MiB or more) that reads like evidence, every entry with a URL of its
// own: a first MiB of text-like bytes that compress, with an entry every 8 KiB; two MiB of noise that
// doesn't, holding a container that starts on a sector and one that doesn't, and an entry across the
// end of the device road's 41st 64 KiB read; zeros after, but for a container 64 KiB before the end.
byte_image evidence_disk(size_t size = 5 << 20);

// EWF segment files: the signature and segment number, then sections, each led by a descriptor that
// names its type and points at the next section; the closing "next" or "done" points at itself.
namespace ewf {
constexpr size_t first_section = 13;
constexpr size_t type = 0, next = 16, size = 24;  // in a descriptor: 16 bytes of text, u64, u64
constexpr size_t descriptor = 76;
}  // namespace ewf

// The skeleton of a segment file: each section of the type and byte count given, descriptor included.
byte_image ewf_sections(const std::vector<std::pair<std::string, uint64_t>>& sections);

// Partition tables and boot sectors.
namespace disk {
constexpr size_t oem = 3;
constexpr size_t entries = 446;  // four 16-byte entries: type at 4, first sector at 8, count at 12
constexpr size_t signature = 510;
}  // namespace disk

struct partition_entry {
    uint8_t type = 0;
    uint32_t first_sector = 0, count = 0;
};

// A table of up to four entries at 446 and, when `signed_sector`, 0xAA55 at 510.
byte_image partition_table(const std::vector<partition_entry>& entries, bool signed_sector = true);
// Copies `sector` into `disk` at `offset`, growing it.
inline void put_bytes(byte_image& disk, size_t offset, const byte_image& sector) { disk.text(offset, sector.bytes()); }

// Volume boot sectors with the fields that name the file system.
byte_image ntfs_boot_sector(const std::string& oem, uint16_t bytes_per_sector, uint8_t sectors_per_cluster,
                            uint64_t total_sectors, uint32_t serial);
byte_image exfat_boot_sector(uint8_t sector_shift, uint8_t cluster_shift, uint64_t total_sectors, uint32_t serial);
byte_image fat_boot_sector(bool fat32, uint16_t bytes_per_sector, uint8_t sectors_per_cluster,
                           uint32_t total_sectors, uint32_t serial);
// 2048 bytes: zeros, then the superblock at 1024 with its magic, names and block fields.
byte_image ext_volume_start(uint32_t log_block_size, uint32_t blocks, const std::string& volume_name,
                            const std::string& last_mounted);
byte_image hfs_volume_start(bool hfsx);

}  // namespace testsupport
