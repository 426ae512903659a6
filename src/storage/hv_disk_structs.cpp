#include "storage/hv_disk_structs.h"

#include <algorithm>
#include <cstring>

#include "foundation/hv_bytes.h"

namespace {

// Volume boot sector fields, by the file system that puts them there.
namespace boot {
constexpr size_t at_oem = 3;                   // 8 bytes
constexpr size_t at_bytes_per_sector = 11;     // u16 (FAT, NTFS)
constexpr size_t at_sectors_per_cluster = 13;  // u8 (FAT, NTFS)
constexpr size_t at_fat_total_sectors = 32;    // u32 (FAT16, FAT32)
constexpr size_t at_ntfs_total_sectors = 40;   // u64
constexpr size_t at_ntfs_serial = 72;          // u32
constexpr size_t at_fat32_flags = 40;          // u16
constexpr size_t at_fat32_serial = 67;         // u32
constexpr size_t at_fat32_name = 82;           // "FAT32"
constexpr size_t at_fat16_serial = 39;         // u32
constexpr size_t at_fat16_name = 54;           // "FAT16"
constexpr size_t at_exfat_total_sectors = 72;  // u64
constexpr size_t at_exfat_serial = 100;        // u32
constexpr size_t at_exfat_sector_shift = 108;  // u8
constexpr size_t at_exfat_cluster_shift = 109; // u8
}  // namespace boot

// The ext superblock and the HFS+ volume header both start 1024 bytes into the volume.
namespace super {
constexpr size_t at_start = 1024;                 // HFS+ signature u16 here
constexpr size_t at_ext_blocks = 1024 + 4;        // u32
constexpr size_t at_ext_log_block = 1024 + 24;    // u32
constexpr size_t at_ext_magic = 1024 + 56;        // u16
constexpr size_t at_ext_uuid = 1024 + 104;        // first u32 as serial
constexpr size_t at_ext_volume_name = 1024 + 120; // 16 bytes
constexpr size_t ext_volume_name_size = 16;
constexpr size_t at_ext_last_mounted = 1024 + 136; // 64 bytes
constexpr size_t ext_last_mounted_size = 64;
constexpr size_t needed = 2048;
constexpr uint16_t ext_magic = 0xEF53;
constexpr uint16_t hfsx_signature = 0x5848;      // "HX"
constexpr uint16_t hfs_plus_signature = 0x2B48;  // "H+"
}  // namespace super

// Tables may sit in sectors larger than 512 bytes; the signature then ends each of these.
constexpr uint32_t large_sector_sizes[] = {1024, 2048, 4096, 8192, 16384};

bool is_extended(uint16_t type) { return type == 5 || type == 15; }

bool is_known_type(uint16_t t) {
    switch (t) {
    case 1: case 4: case 5: case 6: case 7: case 8: case 11: case 12: case 14: case 15:
    case 17: case 18: case 20: case 21: case 22: case 27: case 28: case 30: case 31: case 36:
    case 39: case 65: case 66: case 67: case 86: case 100: case 102: case 116: case 118:
    case 121: case 122: case 123: case 124: case 125:
    case 128: case 129: case 130: case 131: case 132: case 133: case 134: case 135: case 136:
    case 139: case 140: case 142: case 144: case 145: case 146: case 147: case 151: case 152:
    case 154: case 168: case 171: case 172: case 175: case 182: case 183: case 187: case 188:
    case 194: case 195: case 196: case 197: case 198: case 199:
    case 203: case 204: case 205: case 206: case 207: case 212: case 213: case 214: case 216:
    case 222: case 228: case 229: case 230: case 232: case 239: case 240: case 242: case 244:
    case 246: case 249: case 251: case 252: case 253: case 254:
        return true;
    default:
        return false;
    }
}

// An entry that ends the reading of a table: unknown or empty type, or no sectors.
bool entry_usable(const MASTER_BOOT_RECORD& record, size_t entry) {
    uint16_t type = record.type(entry);
    return type != 0 && record.count(entry) != 0 && is_known_type(type);
}

bool has_signature_at(const uint8_t* data, uint64_t size, uint64_t offset) {
    return hv::fits(size, offset, 2) && hv::le16(data, size, offset) == MASTER_BOOT_RECORD::signature_value;
}

// NUL-terminated text inside a fixed field.
std::string field_text(const uint8_t* data, size_t size, size_t offset, size_t length) {
    std::string text;
    for (size_t i = 0; i < length && offset + i < size; ++i) {
        char c = static_cast<char>(data[offset + i]);
        if (c == '\0') break;
        text.push_back(c);
    }
    return text;
}

bool text_at(const uint8_t* data, size_t size, size_t offset, const char* text) {
    size_t length = std::strlen(text);
    return hv::fits(size, offset, length) && std::memcmp(data + offset, text, length) == 0;
}

// A shift count read from the disk; 32 or more gives 0 rather than undefined behaviour.
uint32_t shifted_one(uint8_t shift) { return shift < 32 ? (uint32_t{1} << shift) : 0; }

}  // namespace

bool MASTER_BOOT_RECORD::load(const uint8_t* data, uint64_t data_size, uint64_t offset) {
    clear();
    if (data == nullptr || !hv::fits(data_size, offset, size)) return false;
    std::memcpy(bytes.data(), data + offset, size);
    return true;
}

bool MASTER_BOOT_RECORD::has_signature() const {
    return hv::le16(bytes.data(), size, at_signature) == signature_value;
}

bool MASTER_BOOT_RECORD::is_vol_boot_record_instead() const {
    uint32_t oem = hv::le32(bytes.data(), size, at_oem);
    return oem == 0x41465845 /* "EXFA" */ || oem == 0x4F44534D /* "MSDO" */ || oem == 0x5346544E /* "NTFS" */;
}

uint8_t MASTER_BOOT_RECORD::type(size_t entry) const {
    return hv::byte_at(bytes.data(), size, at_entries + entry * entry_size + entry_at_type);
}

uint32_t MASTER_BOOT_RECORD::first_sector(size_t entry) const {
    return hv::le32(bytes.data(), size, at_entries + entry * entry_size + entry_at_first_sector);
}

uint32_t MASTER_BOOT_RECORD::count(size_t entry) const {
    return hv::le32(bytes.data(), size, at_entries + entry * entry_size + entry_at_count);
}

partition_info::partition_info(unsigned long long start_sector, unsigned long long sector_count,
                               unsigned short partition_type, unsigned int bytes_per_sector) {
    clear();
    start = start_sector;
    count = sector_count;
    type = partition_type;
    sector_size = bytes_per_sector;
}

void partition_info::clear() {
    start = 0;
    count = 0;
    type = 0;
    sectors_per_cluster = 0;
    sector_size = 512;
    serial = 0;
    has_volume_info = false;
    label_alt.clear();
    fs_name.clear();
    ext_volume_name.clear();
    ext_last_mounted.clear();
    fat_flags = 0;
}

bool parse_disk_start(const uint8_t* data, uint64_t size, std::deque<partition_info>& out, bool accept_no_table) {
    out.clear();
    if (data == nullptr || size < MASTER_BOOT_RECORD::size) return false;

    MASTER_BOOT_RECORD first;
    first.load(data, size, 0);
    uint32_t sector_size = 512;
    uint64_t extended_start = 0;
    bool read_primary = true;
    bool identify = true;

    if (first.has_signature() && !first.is_vol_boot_record_instead()) {
        // a table in 512-byte sectors
    } else if (first.is_vol_boot_record_instead()) {
        if (!accept_no_table) return false;
        partition_info bare(0, 0, 0, 512);
        bare.has_volume_info = true;
        identify_volume(bare, data, MASTER_BOOT_RECORD::size);
        out.push_back(bare);
        return true;
    } else {
        bool found = false;
        for (uint32_t candidate : large_sector_sizes) {
            if (size >= candidate + 1 && has_signature_at(data, size, candidate - 2)) {
                sector_size = candidate;
                found = true;
                break;
            }
        }
        if (!found) {
            if (!accept_no_table) return false;
            // A table further in: its sector number is taken as the start of an extended chain.
            uint64_t hit = 0;
            for (uint64_t at = 0; hv::fits(size, at, MASTER_BOOT_RECORD::size); at += MASTER_BOOT_RECORD::size) {
                MASTER_BOOT_RECORD record;
                record.load(data, size, at);
                if (record.has_signature() && !record.is_vol_boot_record_instead()) {
                    hit = at / MASTER_BOOT_RECORD::size;
                    found = true;
                    break;
                }
            }
            if (!found || hit == 0) return false;
            extended_start = hit;
            read_primary = false;
            identify = false;
        }
    }

    if (read_primary) {
        // Entries stay at offset 446 of the data whatever the sector size.
        for (size_t i = 0; i < MASTER_BOOT_RECORD::entry_count; ++i) {
            if (!entry_usable(first, i)) break;
            out.emplace_back(first.first_sector(i), first.count(i), first.type(i), sector_size);
            if (is_extended(first.type(i))) {
                extended_start = first.first_sector(i);
                break;
            }
        }
    }

    // The bound compares a sector number with a size in bytes, as the format's readers always have.
    // Links must move forward, so a chain that points back at itself ends.
    uint64_t link = extended_start;
    uint64_t previous_link = 0;
    bool first_record = true;
    while (link != 0 && link < size && (first_record || link > previous_link)) {
        MASTER_BOOT_RECORD record;
        if (!record.load(data, size, link * sector_size)) break;  // lies beyond the bytes given
        uint64_t next = 0;
        bool failed = false;
        for (size_t i = 0; i < MASTER_BOOT_RECORD::entry_count; ++i) {
            if (!entry_usable(record, i)) {
                failed = true;
                break;
            }
            uint64_t relative_to = (first_record || is_extended(record.type(i))) ? extended_start : link;
            out.emplace_back(record.first_sector(i) + relative_to, record.count(i), record.type(i), sector_size);
            if (is_extended(record.type(i))) {
                next = record.first_sector(i) + extended_start;
                break;
            }
        }
        if (failed || next == 0) break;
        previous_link = link;
        link = next;
        first_record = false;
    }

    if (identify) {
        for (partition_info& volume : out) {
            uint64_t offset = volume.start * volume.sector_size;
            if (offset + 76 < size) {
                identify_volume(volume, data + offset, static_cast<uint32_t>(std::min<uint64_t>(size - offset, UINT32_MAX)));
            }
        }
    }
    return !out.empty();
}

bool identify_volume(partition_info& volume, const uint8_t* sector, uint32_t size) {
    if (sector == nullptr || size < MASTER_BOOT_RECORD::size) return false;
    uint8_t spc = hv::byte_at(sector, size, boot::at_sectors_per_cluster);
    if (spc != 0) volume.sectors_per_cluster = spc;

    auto ntfs_like = [&](const char* name) {
        volume.type = 7;
        volume.fs_name = name;
        volume.sectors_per_cluster = spc;
        volume.sector_size = hv::le16(sector, size, boot::at_bytes_per_sector);
        volume.serial = hv::le32(sector, size, boot::at_ntfs_serial);
        if (volume.count == 0) volume.count = hv::le64(sector, size, boot::at_ntfs_total_sectors);
        volume.has_volume_info = true;
        return true;
    };
    if (text_at(sector, size, boot::at_oem, "NTFS    ")) return ntfs_like("ntfs");
    if (text_at(sector, size, boot::at_oem, "-FVE-FS-")) return ntfs_like("bitlocker container");
    if (text_at(sector, size, boot::at_oem, "EXFAT   ")) {
        volume.type = 7;
        volume.fs_name = "exfat";
        volume.sectors_per_cluster = shifted_one(hv::byte_at(sector, size, boot::at_exfat_cluster_shift));
        volume.sector_size = shifted_one(hv::byte_at(sector, size, boot::at_exfat_sector_shift));
        volume.serial = hv::le32(sector, size, boot::at_exfat_serial);
        if (volume.count == 0) volume.count = hv::le64(sector, size, boot::at_exfat_total_sectors);
        volume.has_volume_info = true;
        return true;
    }

    bool oem_zero = hv::le64(sector, size, boot::at_oem) == 0;
    bool has_superblock = size >= super::needed;
    if (oem_zero) {
        if (!has_superblock) return false;
        if (hv::le16(sector, size, super::at_ext_magic) == super::ext_magic) {
            volume.type = 131;
            volume.fs_name = "ext";
            volume.ext_volume_name =
                field_text(sector, size, super::at_ext_volume_name, super::ext_volume_name_size);
            volume.ext_last_mounted =
                field_text(sector, size, super::at_ext_last_mounted, super::ext_last_mounted_size);
            return true;
        }
        if (hv::byte_at(sector, size, super::at_start) != 'H') return false;
        uint16_t signature = hv::le16(sector, size, super::at_start);
        if (signature == super::hfsx_signature) {
            volume.fs_name = "hfsx";
        } else if (signature == super::hfs_plus_signature) {
            volume.fs_name = "hfs+";
        } else {
            return false;
        }
        volume.type = 175;
        return true;
    }

    if (text_at(sector, size, boot::at_fat32_name, "FAT32")) {
        volume.count = hv::le32(sector, size, boot::at_fat_total_sectors);
        volume.has_volume_info = true;
        volume.type = 12;
        volume.fs_name = "fat32";
        volume.fat_flags = hv::le16(sector, size, boot::at_fat32_flags);
        volume.serial = hv::le32(sector, size, boot::at_fat32_serial);
        volume.sectors_per_cluster = spc;
        volume.sector_size = hv::le16(sector, size, boot::at_bytes_per_sector);
        return true;
    }
    if (text_at(sector, size, boot::at_fat16_name, "FAT16")) {
        volume.has_volume_info = true;
        volume.serial = hv::le32(sector, size, boot::at_fat16_serial);
        volume.sectors_per_cluster = spc;
        volume.sector_size = hv::le16(sector, size, boot::at_bytes_per_sector);
        volume.type = 4;
        volume.fs_name = "fat16";
        if (volume.count == 0) volume.count = hv::le32(sector, size, boot::at_fat_total_sectors);
        return true;
    }
    if (has_superblock && hv::le16(sector, size, super::at_ext_magic) == super::ext_magic) {
        volume.has_volume_info = true;
        volume.serial = hv::le32(sector, size, super::at_ext_uuid);
        uint32_t log = hv::le32(sector, size, super::at_ext_log_block);
        uint64_t block_size = log == 0 ? 1024 : (log < 22 ? (uint64_t{1024} << log) : 0);
        volume.sectors_per_cluster = log == 0 ? 2 : static_cast<uint32_t>(block_size / 512);
        volume.sector_size = 512;
        volume.type = 131;
        volume.fs_name = "ext2/3";
        volume.label_alt = "ext2/3";
        volume.count = block_size * hv::le32(sector, size, super::at_ext_blocks);
        volume.start = 0;
        return true;
    }
    return false;
}
