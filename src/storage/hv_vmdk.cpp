#include "storage/hv_vmdk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <new>
#include <sstream>

#include "foundation/hv_bytes.h"
#include "foundation/hv_string.h"
#include "storage/hv_disk_structs.h"
#include "storage/hv_fileio.h"
#include "storage/hv_text_conversion.h"

namespace {

constexpr uint64_t sector_bytes = 512;

// Grain tables beyond this many bytes can't all lie in a file of `file_size` bytes, even counting
// the padding entries of a directory's last sector; a hostile header must not make us ask for more.
uint64_t table_memory_limit(uint64_t file_size) { return 2 * file_size + (16u << 20); }

// Writers compress grains of 64 KiB; a larger one is allowed, but a hostile one must not make us ask
// for more memory than this for the grain inflated.
constexpr uint64_t largest_compressed_grain = 16u << 20;

void remove_quotes(std::wstring& text) { text.erase(std::remove(text.begin(), text.end(), L'"'), text.end()); }

}  // namespace

uint32_t SPARSE_EXTENT_HEADER::magic() const { return hv::le32(bytes.data(), size, at_magic); }
uint64_t SPARSE_EXTENT_HEADER::capacity() const { return hv::le64(bytes.data(), size, at_capacity); }
uint64_t SPARSE_EXTENT_HEADER::grain_size() const { return hv::le64(bytes.data(), size, at_grain_size); }
uint64_t SPARSE_EXTENT_HEADER::descriptor_offset() const {
    return hv::le64(bytes.data(), size, at_descriptor_offset);
}
uint64_t SPARSE_EXTENT_HEADER::descriptor_size() const { return hv::le64(bytes.data(), size, at_descriptor_size); }
uint32_t SPARSE_EXTENT_HEADER::entries_per_table() const {
    return hv::le32(bytes.data(), size, at_entries_per_table);
}
uint64_t SPARSE_EXTENT_HEADER::grain_dir_offset() const { return hv::le64(bytes.data(), size, at_grain_dir); }
uint64_t SPARSE_EXTENT_HEADER::overhead() const { return hv::le64(bytes.data(), size, at_overhead); }
uint32_t SPARSE_EXTENT_HEADER::flags() const { return hv::le32(bytes.data(), size, at_flags); }
uint16_t SPARSE_EXTENT_HEADER::compression() const { return hv::le16(bytes.data(), size, at_compression); }

// ---- one sparse extent ----

VMWARE_DISK::~VMWARE_DISK() {
    if (fd != -1) ::close(fd);
}

void VMWARE_DISK::clear() {
    header.clear();
    descriptor_lines.clear();
    encoding.clear();
    parent_cid.clear();
    cid.clear();
    parent_hint.clear();
    child = nullptr;
    parent = nullptr;
    grain_directory.clear();
    first_table_offset = 0;
    grain_tables.clear();
    first_grain_offset = 0;
    first_sector.clear();
    volume_offsets.clear();
    volume_sector_sizes.clear();
    sector_size = 512;
    file_size = 0;
    table_span = 0;
    grain_bytes = 0;
    grain_blocks = 0;
    block_size = 0;
    valid = false;
    fd = -1;
    writable = false;
    path.clear();
    wide_path.clear();
    compressed = false;
    inflater.clear();
}

bool VMWARE_DISK::open(const wchar_t* file_path, bool write) {
    if (file_path == nullptr) return false;
    std::wstring wide(file_path);
    bool opened = open(narrow_of(wide).c_str(), write);
    wide_path = wide;
    return opened;
}

bool VMWARE_DISK::open(const char* file_path, bool write) {
    if (file_path == nullptr) return false;
    path = file_path;
    wide_path = wide_of(path);
    writable = write;
    fd = open_checked(path, write ? O_RDWR : O_RDONLY, write ? 0606 : 0404);
    if (fd == -1) return false;
    return load(fd);
}

void VMWARE_DISK::parse_descriptor(const uint8_t* text, size_t size) {
    if (text == nullptr) return;
    size_t end = 0;
    while (end < size && text[end] != 0) ++end;
    std::string all(reinterpret_cast<const char*>(text), end);

    struct key { const char* name; std::string VMWARE_DISK::*field; };
    static const key keys[] = {
        {"cid=", &VMWARE_DISK::cid},
        {"parentcid=", &VMWARE_DISK::parent_cid},
        {"encoding=", &VMWARE_DISK::encoding},
        {"parentfilenamehint=", &VMWARE_DISK::parent_hint},
    };
    size_t start = 0;
    while (start < all.size()) {
        size_t stop = all.find('\n', start);
        if (stop == std::string::npos) stop = all.size();
        std::string line = all.substr(start, stop - start);  // a CR at the end stays in the value
        start = stop + 1;
        if (line.empty()) continue;
        descriptor_lines.push_back(wide_of(line));
        std::string lower = line;
        to_lower(lower);
        for (const key& k : keys) {
            size_t n = std::strlen(k.name);
            if (lower.compare(0, n, k.name) == 0) {
                this->*k.field = line.substr(n);
                break;
            }
        }
    }
}

bool VMWARE_DISK::load(int descriptor) {
    valid = false;
    if (descriptor == -1) return false;
    fd = descriptor;
    std::unique_ptr<file_image> file(new (std::nothrow) file_image());
    if (!file || !file->attach(fd)) return false;
    return load(std::move(file));
}

bool VMWARE_DISK::load(std::unique_ptr<image_reader> image) {
    valid = false;
    source = std::move(image);
    if (!source) return false;
    file_size = source->size();
    header.clear();
    if (!source->read(0, header.bytes.data(), header.bytes.size()) || !header.valid()) return false;

    try {
        // The descriptor's length is taken in 32 bits, as the format's writers do; what lies past the
        // file's end would read as NULs, so the buffer stops there.
        uint64_t descriptor_at = header.descriptor_offset() * sector_bytes;
        uint32_t descriptor_length = static_cast<uint32_t>(header.descriptor_size() * sector_bytes);
        if (descriptor_at > static_cast<uint64_t>(INT64_MAX)) return false;
        uint64_t available = descriptor_at < file_size ? file_size - descriptor_at : 0;
        std::vector<uint8_t> text(static_cast<size_t>(std::min<uint64_t>(descriptor_length, available)), 0);
        if (!text.empty() && !source->read(descriptor_at, text.data(), text.size())) return false;
        parse_descriptor(text.data(), text.size());

        grain_bytes = header.grain_size() * sector_bytes;
        table_span = uint64_t{header.entries_per_table()} * grain_bytes;
        // A grain of no bytes would divide by zero at every look-up.
        if (header.grain_size() == 0 || header.grain_size() > (UINT64_MAX >> 9) || table_span == 0 ||
            table_span / grain_bytes != header.entries_per_table()) {
            return false;
        }
        compressed = header.compressed_grains();
        if (!(compressed ? load_compressed_tables() : load_sparse_tables())) return false;

        first_sector.assign(MASTER_BOOT_RECORD::size, 0);
        if (compressed) {
            // Inflated from the disk's first grain, when this file holds it.
            const uint8_t* grain = first_grain_offset != 0 ? inflated_grain(first_grain_offset, 0) : nullptr;
            if (grain != nullptr) std::memcpy(first_sector.data(), grain, first_sector.size());
        } else if (!source->read(first_grain_offset, first_sector.data(), first_sector.size())) {
            return false;
        }
        std::deque<partition_info> volumes;
        if (parse_disk_start(first_sector.data(), first_sector.size(), volumes, false) ||
            parse_disk_start(first_sector.data(), first_sector.size(), volumes, true)) {
            for (const partition_info& volume : volumes) {
                volume_offsets.push_back(volume.start * volume.sector_size);
                volume_sector_sizes.push_back(volume.sector_size);
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }

    block_size = 4096;
    grain_blocks = static_cast<uint32_t>(grain_bytes >> 12);
    valid = true;
    return true;
}

// The directory and tables of a sparse extent whose grains lie as they are: all in the metadata at the
// file's start. Exceptions of allocation go to load's caller.
bool VMWARE_DISK::load_sparse_tables() {
    // The metadata at the file's start, as far as the file holds it; past the end it reads as zeros.
    const uint32_t metadata_length = static_cast<uint32_t>(header.overhead() * sector_bytes);
    const uint64_t meta_size = std::min<uint64_t>(metadata_length, file_size);
    if (meta_size < 4) return false;  // not even the magic again
    uint64_t directory_at = header.grain_dir_offset() * sector_bytes;
    if (header.overhead() * sector_bytes > metadata_length || directory_at > metadata_length) return false;
    uint8_t first[4] = {0, 0, 0, 0};
    if (directory_at + 4 <= meta_size && !source->read(directory_at, first, 4)) return false;
    uint64_t first_entry = hv::le32(first, 4, 0);
    uint64_t first_table_at = first_entry * sector_bytes;
    if (first_table_at > metadata_length) return false;
    // The directory runs up to the first table it names; its length isn't taken from the capacity.
    if (first_table_at <= directory_at || first_table_at > meta_size) return false;
    size_t entry_count = static_cast<size_t>((first_table_at - directory_at) / 4);
    std::vector<uint8_t> raw(entry_count * 4);
    if (!source->read(directory_at, raw.data(), raw.size())) return false;
    grain_directory.resize(entry_count);
    for (size_t i = 0; i < entry_count; ++i) grain_directory[i] = hv::le32(raw.data(), raw.size(), 4 * i);
    first_table_offset = static_cast<uint32_t>(first_entry * sector_bytes);

    uint32_t per_table = header.entries_per_table();
    uint64_t table_length = uint64_t{per_table} * 4;
    if (entry_count > table_memory_limit(file_size) / table_length) return false;
    grain_tables.reserve(entry_count);
    raw.assign(static_cast<size_t>(table_length), 0);
    uint32_t first_table_entry = 0;
    for (uint32_t entry : grain_directory) {
        // Positions are taken in 32 bits: a table at or past 4 GiB is read from the wrong place.
        uint32_t position = static_cast<uint32_t>(uint64_t{entry} * sector_bytes);
        // A table in a hole of the file, or past its end, is all zeros: nothing to read or keep.
        const bool held = position < file_size && source->next_data(position) < position + table_length;
        if (held) {
            if (!source->read(position, raw.data(), raw.size())) break;
            if (grain_tables.empty()) first_table_entry = hv::le32(raw.data(), raw.size(), 0);
        }
        add_table(held ? &raw : nullptr);
    }
    if (grain_tables.empty()) return false;

    first_grain_offset = static_cast<uint32_t>(uint64_t{first_table_entry} * sector_bytes);
    return true;
}

// The tables of an extent whose grains are compressed. The directory has an entry for every table the
// capacity needs, each pointing at its table anywhere in the file (0: a table that holds no grain). A
// writer that streams writes it last, and only the footer says where.
bool VMWARE_DISK::load_compressed_tables() {
    if (!inflate_offered() || header.compression() != SPARSE_EXTENT_HEADER::compression_deflate ||
        grain_bytes > largest_compressed_grain)
        return false;
    uint64_t directory_sector = header.grain_dir_offset();
    if (directory_sector == SPARSE_EXTENT_HEADER::directory_at_end) {
        if (file_size < SPARSE_EXTENT_HEADER::footer_from_end) return false;
        SPARSE_EXTENT_HEADER footer;
        if (!source->read(file_size - SPARSE_EXTENT_HEADER::footer_from_end, footer.bytes.data(), sector_bytes) ||
            !footer.valid())
            return false;
        directory_sector = footer.grain_dir_offset();
    }
    const uint64_t table_sectors = table_span / sector_bytes;
    const uint64_t table_count = header.capacity() / table_sectors + (header.capacity() % table_sectors != 0);
    const uint32_t per_table = header.entries_per_table();
    const uint64_t table_length = uint64_t{per_table} * 4;
    if (table_count == 0 || table_count > UINT32_MAX || table_count > table_memory_limit(file_size) / table_length)
        return false;
    if (directory_sector > file_size / sector_bytes) return false;
    const uint64_t directory_at = directory_sector * sector_bytes;
    if (table_count * 4 > file_size - directory_at) return false;

    std::vector<uint8_t> raw(static_cast<size_t>(table_count * 4));
    if (!source->read(directory_at, raw.data(), raw.size())) return false;
    grain_directory.resize(static_cast<size_t>(table_count));
    for (size_t i = 0; i < grain_directory.size(); ++i) grain_directory[i] = hv::le32(raw.data(), raw.size(), 4 * i);
    first_table_offset = uint64_t{grain_directory[0]} * sector_bytes;

    raw.assign(static_cast<size_t>(table_length), 0);
    grain_tables.reserve(grain_directory.size());
    for (uint32_t entry : grain_directory) {
        const uint64_t position = uint64_t{entry} * sector_bytes;
        if (entry != 0) {
            if (position > file_size || table_length > file_size - position) return false;
            if (!source->read(position, raw.data(), raw.size())) return false;
        }
        add_table(entry != 0 ? &raw : nullptr);
    }
    if (!grain_tables[0].entries.empty()) first_grain_offset = uint64_t{grain_tables[0].entries[0]} * sector_bytes;
    return true;
}

// Only a table that names a grain keeps its entries: a large disk's empty tables cost nothing.
void VMWARE_DISK::add_table(const std::vector<uint8_t>* raw) {
    GRAIN_TABLE table;
    if (raw != nullptr && std::any_of(raw->begin(), raw->end(), [](uint8_t b) { return b != 0; })) {
        const uint32_t per_table = header.entries_per_table();
        table.entries.resize(per_table);
        for (size_t i = 0; i < per_table; ++i) table.entries[i] = hv::le32(raw->data(), raw->size(), 4 * i);
        used_tables.push_back(static_cast<uint32_t>(grain_tables.size()));
    }
    grain_tables.push_back(std::move(table));
}

uint64_t VMWARE_DISK::capacity_bytes() const { return valid ? header.capacity() << 9 : 0; }

bool VMWARE_DISK::map_offset(uint64_t offset, uint64_t& file_offset) const {
    if (!valid) return false;
    uint32_t table = static_cast<uint32_t>(offset / table_span);
    uint64_t entry = (offset % table_span) / grain_bytes;
    uint64_t within = offset % grain_bytes;
    if (table >= grain_tables.size()) return false;
    const std::vector<uint32_t>& entries = grain_tables[table].entries;
    if (entry >= header.entries_per_table() || entry >= entries.size()) return false;
    uint32_t value = entries[static_cast<size_t>(entry)];
    if (value == 0) return false;
    file_offset = uint64_t{value} * sector_bytes + within;
    return true;
}

bool VMWARE_DISK::read(int, uint8_t* buffer, uint64_t offset, uint32_t& length) {
    if (!valid || !source || length == 0 || buffer == nullptr) return false;
    if (compressed) return read_compressed(buffer, offset, length);
    uint64_t position = 0;
    if (!map_offset(offset, position) || position >= file_size) return false;
    uint32_t wanted = length;
    if (position + wanted >= file_size) wanted = static_cast<uint32_t>(file_size - position);

    uint32_t done = 0;
    while (done < wanted) {
        uint64_t to_grain_end = grain_bytes - offset % grain_bytes;
        uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(to_grain_end, wanted - done));
        if (!source->read(position, buffer + done, piece)) return false;
        offset += piece;
        done += piece;
        if (done < wanted && !map_offset(offset, position)) return false;
    }
    length = done;
    return true;
}

uint64_t VMWARE_DISK::next_held(uint64_t offset) const {
    constexpr uint64_t none = UINT64_MAX;
    constexpr uint64_t index_cycle = uint64_t{1} << 32;  // map_offset takes the table's index in 32 bits
    if (!valid || used_tables.empty()) return none;
    const uint64_t table = offset / table_span;
    const uint64_t cycle_start = table - table % index_cycle;  // the table that index 0 stands for here
    const uint32_t index = static_cast<uint32_t>(table);
    const uint64_t per_table = header.entries_per_table();
    // The first grain held in table `t` of this cycle at or after entry `from`.
    auto first_in = [&](uint32_t t, uint64_t from) -> uint64_t {
        const std::vector<uint32_t>& entries = grain_tables[t].entries;
        const uint64_t end = std::min<uint64_t>(per_table, entries.size());
        for (uint64_t e = from; e < end; ++e) {
            if (entries[static_cast<size_t>(e)] != 0) return e;
        }
        return none;
    };
    auto offset_of = [&](uint64_t first_table, uint32_t t, uint64_t e) -> uint64_t {
        const uint64_t at_table = first_table + t;
        if (at_table > none / table_span) return none;
        return at_table * table_span + e * grain_bytes;
    };
    auto used = std::lower_bound(used_tables.begin(), used_tables.end(), index);
    if (used != used_tables.end() && *used == index) {
        const uint64_t e = first_in(index, (offset % table_span) / grain_bytes);
        if (e != none) return std::max(offset, offset_of(cycle_start, index, e));
        ++used;
    }
    for (; used != used_tables.end(); ++used) {
        const uint64_t e = first_in(*used, 0);
        if (e != none) return offset_of(cycle_start, *used, e);
    }
    // Past the last table of this cycle the 32-bit index wraps and the first tables come round again.
    if (cycle_start > none - index_cycle) return none;
    for (uint32_t t : used_tables) {
        const uint64_t e = first_in(t, 0);
        if (e != none) return offset_of(cycle_start + index_cycle, t, e);
    }
    return none;
}

bool VMWARE_DISK::inflate_offered() { return grain_inflater::offered(); }

const uint8_t* VMWARE_DISK::inflated_grain(uint64_t marker_at, uint64_t index) {
    return inflater.grain(*source, file_size, marker_at, index, index * header.grain_size(), grain_bytes);
}

bool VMWARE_DISK::read_compressed(uint8_t* buffer, uint64_t offset, uint32_t length) {
    uint32_t done = 0;
    while (done < length) {
        const uint64_t at = offset + done;
        const uint64_t within = at % grain_bytes;
        const uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(grain_bytes - within, length - done));
        uint64_t marker_at = 0;
        if (!map_offset(at - within, marker_at)) return false;
        const uint8_t* grain = inflated_grain(marker_at, at / grain_bytes);
        if (grain == nullptr) return false;
        std::memcpy(buffer + done, grain + within, piece);
        done += piece;
    }
    return true;
}

// ---- chains ----

void VMWARE_COLLECTION::delete_snapshots() {
    disks.clear();
    chain.clear();
}

bool VMWARE_COLLECTION::add_disk(std::unique_ptr<VMWARE_DISK> disk) {
    std::string key = disk->cid;
    // A second file with a CID already present isn't entered; it is closed here.
    return disks.emplace(key, std::move(disk)).second;
}

bool VMWARE_COLLECTION::open_files(const std::vector<std::wstring>& files) {
    for (const std::wstring& file : files) {
        std::unique_ptr<VMWARE_DISK> disk(new (std::nothrow) VMWARE_DISK());
        if (!disk) return false;
        if (!disk->open(file.c_str(), writable) || !disk->valid) return false;
        add_disk(std::move(disk));
    }
    return true;
}

// From root, along the children, counting steps so that a loop can't hold the walk.
void VMWARE_COLLECTION::walk_chain() {
    VMWARE_DISK* at = root;
    size_t steps = 0;
    complete = false;
    while (true) {
        if (at->child == nullptr) {
            complete = true;
            break;
        }
        if (++steps > disks.size()) break;
        at = at->child;
        chain.push_back(at);
    }
    current = at;
}

// Joins each disk to its parent by CID and finds the root, where the chain starts. Answers the
// first disk whose parent is not among the disks, or null; `own_parent` tells of a disk that names
// itself as its parent (joined all the same).
VMWARE_DISK* VMWARE_COLLECTION::join_parents(bool& own_parent) {
    root = nullptr;
    chain.clear();
    own_parent = false;
    for (auto& entry : disks) {
        VMWARE_DISK* disk = entry.second.get();
        if (disk->parent_cid == VMWARE_DISK::root_parent_cid) {
            root = disk;
            chain.push_back(disk);
            continue;
        }
        auto found = disks.find(disk->parent_cid);
        if (found == disks.end()) return disk;
        own_parent = own_parent || disk->cid == disk->parent_cid;
        disk->parent = found->second.get();
        found->second->child = disk;
    }
    return nullptr;
}

bool VMWARE_COLLECTION::link() {
    bool own_parent = false;
    if (join_parents(own_parent) != nullptr || root == nullptr) return false;
    walk_chain();
    return true;
}

bool VMWARE_COLLECTION::check_files(const std::vector<std::wstring>& files, std::ostream& messages,
                                    std::vector<std::wstring>& suggestion) {
    suggestion = files;
    std::wstring folder;
    bool all_present = true;

    while (true) {
        delete_snapshots();
        for (const std::wstring& file : suggestion) {
            std::unique_ptr<VMWARE_DISK> disk(new (std::nothrow) VMWARE_DISK());
            if (!disk) {
                messages << "prob creating virtual vmware disk mapping" << "\n";
                return false;
            }
            if (folder.empty()) {
                size_t slash = file.rfind(L'/');
                if (slash != std::wstring::npos) folder = file.substr(0, slash + 1);
            }
            if (!disk->open(file.c_str(), writable) || !disk->valid) {
                messages << narrow_of(file) << " can't be opened";
                if (disk->header.valid() && disk->header.compressed_grains() && !VMWARE_DISK::inflate_offered())
                    messages << ": compressed grains are not offered in this build";
                messages << "\n";
                return false;
            }
            add_disk(std::move(disk));
        }

        bool own_parent = false;
        VMWARE_DISK* orphan = join_parents(own_parent);
        if (own_parent) {
            messages << "Child VMDK CID errors, aborting" << "\n";
            return false;
        }
        if (orphan == nullptr) break;

        // The parent isn't among the files: look for it by the child's hint.
        std::wstring hint = wide_of(orphan->parent_hint);
        remove_quotes(hint);
        if (root != nullptr && root->wide_path.find(hint) != std::wstring::npos) break;
        if (root == nullptr && disks.size() >= 2) {
            bool listed = false;
            for (auto& entry : disks) listed = listed || entry.second->wide_path.find(hint) != std::wstring::npos;
            if (listed) break;
        }
        char separator = orphan->encoding.find("windows") != std::string::npos ? '\\' : '/';
        std::wstring candidate = orphan->parent_hint.find(separator) != std::string::npos ? L"" : folder;
        candidate += wide_of(orphan->parent_hint);
        remove_quotes(candidate);

        uni::fileio probe(candidate, 0, 1, 0);
        bool found = probe.is_open();
        probe.close();
        if (!found && !folder.empty() && candidate.find(folder) == std::wstring::npos) {
            // A path of another machine: its name is taken from the first file's folder, untested.
            std::wstring other_folder, name;
            split_path_wide(candidate, other_folder, name);
            candidate = folder + name;
            orphan->parent_hint = "\"" + narrow_of(candidate) + "\"";
            found = true;
        }
        // A candidate that is listed already would be suggested again on every pass.
        if (found && std::find(suggestion.begin(), suggestion.end(), candidate) != suggestion.end()) found = false;
        if (!found) {
            messages << "Child VMDK points to a parent VMDK that doesn't exist, aborting" << "\n";
            all_present = false;
            break;
        }
        messages << "=> vmdk file: " << narrow_of(orphan->wide_path) << "\n"
                 << " depends on parent vmdk " << orphan->parent_hint << "\n";
        suggestion.push_back(candidate);
        all_present = false;
    }

    if (!all_present || root == nullptr) return false;
    walk_chain();
    return true;
}

VMWARE_DISK* VMWARE_COLLECTION::find_owner(uint64_t offset) const {
    if (!complete || current == nullptr) return nullptr;
    // A directory's last sector is padded with entries of 0, whose tables are made of the file's
    // first bytes: past the capacity they would map header fields as grains. The disk ends there.
    if (root == nullptr || offset >= root->capacity_bytes()) return nullptr;
    uint64_t ignored = 0;
    size_t steps = 0;
    for (VMWARE_DISK* disk = current; disk != nullptr && steps <= disks.size(); disk = disk->parent, ++steps) {
        if (disk->map_offset(offset, ignored)) return disk;
    }
    return nullptr;
}

bool VMWARE_COLLECTION::read(void* buffer, uint64_t offset, uint32_t& length) {
    if (buffer == nullptr || length == 0 || !complete || root == nullptr) return false;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    VMWARE_DISK* disk = find_owner(offset);
    uint32_t remaining = length;
    uint32_t piece = length;
    uint32_t done = 0;
    while (true) {
        uint64_t grain = (disk != nullptr ? disk : root)->grain_bytes;
        uint64_t grain_end = grain - offset % grain;
        if (grain_end < remaining) piece = static_cast<uint32_t>(grain_end);
        if (disk != nullptr) {
            uint32_t got = piece;
            if (disk->read(disk->fd, out + done, offset, got)) {
                piece = got;
            } else {
                std::memset(out + done, 0, piece);  // a grain that fails to read counts as zeros
                // A compressed grain fails only when its data is bad: that is told. A plain one stays silent.
                if (disk->compressed) lost.note(offset / disk->grain_bytes, disk->grain_bytes, root->capacity_bytes());
            }
        } else {
            std::memset(out + done, 0, piece);
        }
        remaining -= piece;
        offset += piece;
        done += piece;
        disk = find_owner(offset);
        if (remaining == 0) break;
        piece = remaining;
    }
    length = done;
    return true;
}

const uint8_t* VMWARE_COLLECTION::view(uint64_t offset, uint32_t length) {
    VMWARE_DISK* disk = find_owner(offset);
    uint64_t start = 0;
    // Compressed grains are inflated, not lent.
    if (disk == nullptr || length == 0 || disk->compressed || !disk->map_offset(offset, start)) return nullptr;
    if (start > disk->file_size || length > disk->file_size - start) return nullptr;
    // Every grain of the range, at the finest grain of the chain, must come from this file, in order.
    uint64_t step = UINT64_MAX;
    for (const auto& entry : disks) step = std::min(step, entry.second->grain_bytes);
    if (step == 0) return nullptr;
    for (uint64_t at = offset - offset % step + step; at < offset + length; at += step) {
        uint64_t here = 0;
        if (find_owner(at) != disk || !disk->map_offset(at, here) || here != start + (at - offset)) return nullptr;
    }
    return disk->source->view(start, length);
}

uint64_t VMWARE_COLLECTION::next_held(uint64_t offset) const {
    if (!complete || current == nullptr || root == nullptr) return UINT64_MAX;
    const uint64_t capacity = root->capacity_bytes();
    if (offset >= capacity) return UINT64_MAX;
    // The disks that find_owner would ask, and no others.
    uint64_t first = UINT64_MAX;
    size_t steps = 0;
    for (VMWARE_DISK* disk = current; disk != nullptr && steps <= disks.size(); disk = disk->parent, ++steps) {
        first = std::min(first, disk->next_held(offset));
    }
    return first < capacity ? first : UINT64_MAX;
}

bool check_vmdk_list(std::vector<std::wstring> const& files, std::ostream& messages,
                     std::vector<std::wstring>& suggestion) {
    suggestion.clear();
    VMWARE_COLLECTION collection(false);
    return collection.check_files(files, messages, suggestion);
}
