#include "support/builder_vmdk.h"

#include <algorithm>
#include <fstream>

namespace testsupport {

static uint64_t sectors_for(uint64_t bytes) { return (bytes + vmdk::sector - 1) / vmdk::sector; }

sparse_vmdk& sparse_vmdk::write(uint64_t offset, const std::string& bytes) {
    const uint64_t grain = grain_bytes();
    for (size_t i = 0; i < bytes.size();) {
        uint64_t at = offset + i;
        std::string& slot = grains_[at / grain];
        slot.resize(grain, '\0');
        size_t within = at % grain;
        size_t n = std::min<size_t>(grain - within, bytes.size() - i);
        slot.replace(within, n, bytes, i, n);
        i += n;
    }
    return *this;
}

std::string sparse_vmdk::descriptor_text() const {
    if (!raw_descriptor_.empty()) return raw_descriptor_;
    std::string text = "# Disk DescriptorFile\nversion=1\nencoding=" + encoding_ + "\nCID=" + cid_ +
                       "\nparentCID=" + parent_cid_ + "\ncreateType=\"" +
                       (stream_ ? "streamOptimized" : "monolithicSparse") + "\"\n";
    if (!parent_hint_.empty()) text += "parentFileNameHint=" + parent_hint_ + "\n";
    text += "\n# Extent description\nRW " + std::to_string(capacity_ / vmdk::sector) + " SPARSE \"disk.vmdk\"\n";
    return text;
}

uint64_t sparse_vmdk::descriptor_sector_count() const {
    return descriptor_sectors_ != 0 ? descriptor_sectors_ : sectors_for(descriptor_text().size());
}

uint32_t sparse_vmdk::tables() const {
    if (table_count_ != 0) return table_count_;
    uint64_t span = grain_bytes() * entries_per_table_;
    return static_cast<uint32_t>(std::max<uint64_t>(1, (capacity_ + span - 1) / span));
}

uint64_t sparse_vmdk::table_sector(uint32_t table) const {
    return 1 + descriptor_sector_count() + sectors_for(uint64_t{tables()} * 4) +
           table * sectors_for(uint64_t{entries_per_table_} * 4);
}

namespace {

// `data` as a zlib stream of stored (uncompressed) deflate blocks: valid data any inflater reads.
std::string zlib_stored(const std::string& data) {
    std::string out = "\x78\x01";
    size_t at = 0;
    do {
        const size_t n = std::min<size_t>(65535, data.size() - at);
        const bool last = at + n == data.size();
        out += static_cast<char>(last ? 1 : 0);
        for (uint16_t v : {static_cast<uint16_t>(n), static_cast<uint16_t>(~n)}) {
            out += static_cast<char>(v & 0xFF);
            out += static_cast<char>(v >> 8);
        }
        out.append(data, at, n);
        at += n;
    } while (at < data.size());
    uint32_t a = 1, b = 0;  // Adler-32, stored big-endian
    for (unsigned char c : data) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(((b << 16 | a) >> shift) & 0xFF);
    return out;
}

}  // namespace

byte_image sparse_vmdk::streamed() const {
    const uint64_t descriptor_sectors = descriptor_sector_count(), count = tables();
    const uint64_t table_sectors = sectors_for(uint64_t{entries_per_table_} * 4);
    const uint64_t overhead = 1 + descriptor_sectors;
    byte_image file(vmdk::sector);
    file.text(vmdk::magic, "KDMV").u32(vmdk::version, 3).u32(vmdk::flags, vmdk::stream_flags)
        .u64(vmdk::capacity, capacity_ / vmdk::sector).u64(vmdk::grain_size, grain_sectors_)
        .u64(vmdk::descriptor_offset, 1).u64(vmdk::descriptor_size, descriptor_sectors)
        .u32(vmdk::entries_per_table, entries_per_table_).u64(vmdk::grain_dir, vmdk::directory_at_end)
        .u64(vmdk::overhead, overhead).u16(vmdk::compression, 1);
    const byte_image header = file;
    std::string text = descriptor_text();
    text.resize(descriptor_sectors * vmdk::sector, '\0');
    file.text(vmdk::sector, text);

    // Grains: the marker (the grain's first sector, the data's length), the data, up to a whole sector.
    uint64_t next = overhead;
    std::vector<uint32_t> entries(count * entries_per_table_, 0);
    for (const auto& grain : grains_) {
        const std::string data = zlib_stored(grain.second);
        if (grain.first < entries.size()) entries[grain.first] = static_cast<uint32_t>(next);
        file.u64(next * vmdk::sector, grain.first * grain_sectors_).u32(next * vmdk::sector + 8,
                                                                         static_cast<uint32_t>(data.size()));
        file.text(next * vmdk::sector + 12, data);
        next += sectors_for(12 + data.size());
    }
    // A metadata marker: the sectors that follow it, 0 for the data's length, its type.
    auto marker = [&](uint64_t sectors, uint32_t type) {
        file.u64(next * vmdk::sector, sectors).u32(next * vmdk::sector + 12, type);
        file.resize(++next * vmdk::sector);
    };
    std::vector<uint32_t> directory(count, 0);
    for (uint64_t t = 0; t < count; ++t) {
        marker(table_sectors, 1);
        directory[t] = static_cast<uint32_t>(next);
        for (uint32_t e = 0; e < entries_per_table_; ++e) file.u32(next * vmdk::sector + 4 * e, entries[t * entries_per_table_ + e]);
        next += table_sectors;
    }
    marker(sectors_for(count * 4), 2);
    const uint64_t directory_sector = next;
    for (uint64_t t = 0; t < count; ++t) file.u32(next * vmdk::sector + 4 * t, directory[t]);
    next += sectors_for(count * 4);
    marker(1, 3);
    byte_image footer = header;
    footer.u64(vmdk::grain_dir, directory_sector);
    file.text(next * vmdk::sector, footer.bytes());
    ++next;
    marker(0, 0);
    return file;
}

byte_image sparse_vmdk::image() const {
    if (stream_) return streamed();
    const uint64_t descriptor_sectors = descriptor_sector_count(), directory = 1 + descriptor_sectors;
    const uint64_t first_table = table_sector(0), table_sectors = table_sector(1) - first_table, count = tables();
    const uint64_t overhead = first_table + count * table_sectors;
    byte_image file(vmdk::sector);
    file.text(vmdk::magic, "KDMV").u32(vmdk::version, 1).u32(vmdk::flags, 1)
        .u64(vmdk::capacity, capacity_ / vmdk::sector).u64(vmdk::grain_size, grain_sectors_)
        .u64(vmdk::descriptor_offset, 1).u64(vmdk::descriptor_size, descriptor_sectors)
        .u32(vmdk::entries_per_table, entries_per_table_).u64(vmdk::grain_dir, directory)
        .u64(vmdk::overhead, overhead);

    std::string text = descriptor_text();
    text.resize(descriptor_sectors * vmdk::sector, '\0');
    file.text(vmdk::sector, text);
    for (uint32_t t = 0; t < count; ++t) {
        auto override_entry = overrides_.find(t);
        uint64_t sector = override_entry != overrides_.end() ? override_entry->second : first_table + t * table_sectors;
        file.u32(directory * vmdk::sector + 4 * t, static_cast<uint32_t>(sector));
    }
    file.resize(overhead * vmdk::sector);

    uint64_t next = overhead;
    for (const auto& grain : grains_) {
        uint64_t table = grain.first / entries_per_table_, entry = grain.first % entries_per_table_;
        if (table < count)
            file.u32((first_table + table * table_sectors) * vmdk::sector + 4 * entry, static_cast<uint32_t>(next));
        file.text(next * vmdk::sector, grain.second);
        next += grain_sectors_;
    }
    return file;
}

bool sparse_vmdk::save(const std::string& path) const {
    const std::string bytes = image().bytes();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    return static_cast<bool>(out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
}

byte_image evidence_disk(size_t size) {
    constexpr size_t MiB = 1 << 20;
    byte_image disk(size);
    uint64_t state = 0x9E3779B97F4A7C15ull;  // xorshift: the same bytes on every machine
    auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    for (size_t at = 0; at < MiB; ++at) disk.bytes()[at] = "etaoin "[next() % 7];
    for (size_t at = MiB; at < 3 * MiB; at += 8) disk.u64(at, next());
    url_entry entry;
    entry.data = "HTTP/1.1 200 OK\r\n\r\n~U:dora\r\n";
    entry.last_modified = filetime_of(2014, 5, 6, 7, 8, 9);
    for (size_t at = 1024; at < MiB; at += 8192) {
        entry.url = "http://text.example/" + std::to_string(at);
        write_url_entry(disk, at, entry);
    }
    entry.url = "http://edge.example/" + std::string(300, 'e');
    write_url_entry(disk, 61440 * 40 + 65536 - 256, entry);
    disk.text(512 * 2101, small_container("sector.example").bytes());
    disk.text(2 * MiB + 512 * 99 + 384, small_container("off-sector.example").bytes());
    disk.text(size - 0x10000, small_container("last.example").bytes());
    return disk;
}

byte_image ewf_sections(const std::vector<std::pair<std::string, uint64_t>>& sections) {
    byte_image file;
    file.text(0, std::string("EVF\x09\x0d\x0a\xff\x00", 8)).u8(8, 1).u16(9, 1).u16(11, 0);
    uint64_t at = ewf::first_section;
    for (const auto& section : sections) {
        const bool closing = section.first == "next" || section.first == "done";
        const uint64_t next = closing ? at : at + section.second;
        file.text(at + ewf::type, section.first).u64(at + ewf::next, next).u64(at + ewf::size, section.second);
        file.resize(std::max<size_t>(file.size(), at + section.second));
        at = next;
    }
    return file;
}

byte_image partition_table(const std::vector<partition_entry>& entries, bool signed_sector) {
    byte_image sector(vmdk::sector);
    for (size_t i = 0; i < entries.size() && i < 4; ++i) {
        size_t at = disk::entries + 16 * i;
        sector.u8(at + 4, entries[i].type).u32(at + 8, entries[i].first_sector).u32(at + 12, entries[i].count);
    }
    if (signed_sector) sector.u16(disk::signature, 0xAA55);
    return sector;
}

byte_image ntfs_boot_sector(const std::string& oem, uint16_t bytes_per_sector, uint8_t sectors_per_cluster,
                            uint64_t total_sectors, uint32_t serial) {
    byte_image sector(vmdk::sector);
    sector.text(disk::oem, oem).u16(11, bytes_per_sector).u8(13, sectors_per_cluster).u64(40, total_sectors)
        .u32(72, serial).u16(disk::signature, 0xAA55);
    return sector;
}

byte_image exfat_boot_sector(uint8_t sector_shift, uint8_t cluster_shift, uint64_t total_sectors, uint32_t serial) {
    byte_image sector(vmdk::sector);
    sector.text(disk::oem, "EXFAT   ").u64(72, total_sectors).u32(100, serial).u8(108, sector_shift)
        .u8(109, cluster_shift).u16(disk::signature, 0xAA55);
    return sector;
}

byte_image fat_boot_sector(bool fat32, uint16_t bytes_per_sector, uint8_t sectors_per_cluster,
                           uint32_t total_sectors, uint32_t serial) {
    byte_image sector(vmdk::sector);
    sector.text(disk::oem, "MSWIN4.1").u16(11, bytes_per_sector).u8(13, sectors_per_cluster)
        .u32(32, total_sectors).u16(disk::signature, 0xAA55);
    if (fat32) sector.u16(40, 0x0080).u32(67, serial).text(82, "FAT32   ");
    else sector.u32(39, serial).text(54, "FAT16   ");
    return sector;
}

byte_image ext_volume_start(uint32_t log_block_size, uint32_t blocks, const std::string& volume_name,
                            const std::string& last_mounted) {
    byte_image volume(2048);
    const size_t super = 1024;
    volume.u32(super + 4, blocks).u32(super + 24, log_block_size).u16(super + 56, 0xEF53)
        .u32(super + 104, 0xC0FFEE01).text(super + 120, volume_name).text(super + 136, last_mounted);
    return volume;
}

byte_image hfs_volume_start(bool hfsx) { return byte_image(2048).text(1024, hfsx ? "HX" : "H+"); }

}  // namespace testsupport
