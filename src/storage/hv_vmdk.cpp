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

#include "cmdline/hv_args.h"
#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_options.h"
#include "foundation/hv_bytes.h"
#include "foundation/hv_string.h"
#include "storage/hv_disk_structs.h"
#include "storage/hv_fileio.h"

namespace {

constexpr uint64_t sector_bytes = 512;

// Grain tables beyond this many bytes can't all lie in a file of `file_size` bytes, even counting
// the padding entries of a directory's last sector; a hostile header must not make us ask for more.
uint64_t table_memory_limit(uint64_t file_size) { return 2 * file_size + (16u << 20); }

// Reads at the current position until `length` or the end of the file, into a buffer that is
// already zero-filled, so what the file doesn't hold stays zero. Answers the count, or -1 when
// the first read(2) failed. (Large metadata can take more than one read(2) on this host.)
ssize_t read_some(int fd, void* buffer, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t got = ::read(fd, static_cast<uint8_t*>(buffer) + done, length - done);
        if (got < 0) return done == 0 ? -1 : static_cast<ssize_t>(done);
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

bool seek_to(int fd, uint64_t offset) {
    if (offset > static_cast<uint64_t>(INT64_MAX)) return false;
    return lseek(fd, static_cast<off_t>(offset), SEEK_SET) != -1;
}

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
    off_t end = lseek(fd, 0, SEEK_END);
    file_size = end < 0 ? 0 : static_cast<uint64_t>(end);
    if (lseek(fd, 0, SEEK_SET) == -1) return false;

    header.clear();
    if (read_some(fd, header.bytes.data(), header.bytes.size()) < 0 || !header.valid()) return false;

    try {
        // The descriptor's length is taken in 32 bits, as the format's writers do; what lies past the
        // file's end would read as NULs, so the buffer stops there.
        uint64_t descriptor_at = header.descriptor_offset() * sector_bytes;
        uint32_t descriptor_length = static_cast<uint32_t>(header.descriptor_size() * sector_bytes);
        if (!seek_to(fd, descriptor_at)) return false;
        uint64_t available = descriptor_at < file_size ? file_size - descriptor_at : 0;
        std::vector<uint8_t> text(static_cast<size_t>(std::min<uint64_t>(descriptor_length, available)), 0);
        ssize_t got = text.empty() ? 0 : read_some(fd, text.data(), text.size());
        if (got < 0) return false;
        parse_descriptor(text.data(), static_cast<size_t>(got));

        grain_bytes = header.grain_size() * sector_bytes;
        table_span = uint64_t{header.entries_per_table()} * grain_bytes;
        // A grain of no bytes would divide by zero at every look-up.
        if (header.grain_size() == 0 || header.grain_size() > (UINT64_MAX >> 9) || table_span == 0 ||
            table_span / grain_bytes != header.entries_per_table()) {
            return false;
        }
        uint32_t metadata_length = static_cast<uint32_t>(header.overhead() * sector_bytes);

        // The metadata is read whole; bytes it claims past the file's end read as zeros (le32 answers 0).
        std::vector<uint8_t> metadata(static_cast<size_t>(std::min<uint64_t>(metadata_length, file_size)), 0);
        if (!seek_to(fd, 0)) return false;
        if (!metadata.empty() && read_some(fd, metadata.data(), metadata.size()) < 0) return false;
        const uint8_t* meta = metadata.data();
        size_t meta_size = metadata.size();

        if (hv::le32(meta, meta_size, SPARSE_EXTENT_HEADER::at_magic) != SPARSE_EXTENT_HEADER::magic_value) {
            return false;
        }
        uint64_t directory_at = header.grain_dir_offset() * sector_bytes;
        if (header.overhead() * sector_bytes > metadata_length || directory_at > metadata_length) return false;
        uint64_t first_entry = hv::le32(meta, meta_size, static_cast<size_t>(directory_at));
        uint64_t first_table_at = first_entry * sector_bytes;
        if (first_table_at > metadata_length) return false;
        // The directory runs up to the first table it names; its length isn't taken from the capacity.
        if (first_table_at <= directory_at || first_table_at > meta_size) return false;
        size_t entry_count = static_cast<size_t>((first_table_at - directory_at) / 4);
        grain_directory.resize(entry_count);
        for (size_t i = 0; i < entry_count; ++i) {
            grain_directory[i] = hv::le32(meta, meta_size, static_cast<size_t>(directory_at + 4 * i));
        }
        first_table_offset = static_cast<uint32_t>(first_entry * sector_bytes);

        uint32_t per_table = header.entries_per_table();
        uint64_t table_length = uint64_t{per_table} * 4;
        if (entry_count > table_memory_limit(file_size) / table_length) return false;
        grain_tables.reserve(entry_count);
        for (uint32_t entry : grain_directory) {
            // Positions are taken in 32 bits: a table at or past 4 GiB is read from the wrong place.
            uint32_t position = static_cast<uint32_t>(uint64_t{entry} * sector_bytes);
            GRAIN_TABLE table;
            table.entries.assign(per_table, 0);
            // Only entries in bytes the file holds are converted; the others read as 0 and stay 0, so
            // a hostile header's large tables past the end cost no more than their zeros.
            if (uint64_t{position} + table_length <= metadata_length) {
                const size_t held = position < meta_size ? (meta_size - position) / 4 : 0;
                for (size_t i = 0; i < std::min<size_t>(per_table, held); ++i) {
                    table.entries[i] = hv::le32(meta, meta_size, size_t{position} + 4 * i);
                }
            } else {
                const uint64_t held = position < file_size ? (file_size - position + 3) & ~uint64_t{3} : 0;
                std::vector<uint8_t> raw(static_cast<size_t>(std::min(table_length, held)), 0);
                if (!seek_to(fd, position) || read_some(fd, raw.data(), raw.size()) < 0) break;
                for (size_t i = 0; i < raw.size() / 4; ++i) table.entries[i] = hv::le32(raw.data(), raw.size(), 4 * i);
            }
            grain_tables.push_back(std::move(table));
        }
        if (grain_tables.empty() || grain_tables[0].entries.empty()) return false;

        first_grain_offset = static_cast<uint32_t>(uint64_t{grain_tables[0].entries[0]} * sector_bytes);
        first_sector.assign(MASTER_BOOT_RECORD::size, 0);
        if (!seek_to(fd, first_grain_offset) || read_some(fd, first_sector.data(), first_sector.size()) < 0) {
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

bool VMWARE_DISK::read(int descriptor, uint8_t* buffer, uint64_t offset, uint32_t& length) {
    if (!valid || descriptor == -1 || length == 0 || buffer == nullptr) return false;
    if (lseek(descriptor, 0, SEEK_SET) == -1) return false;
    uint64_t position = 0;
    if (!map_offset(offset, position) || position >= file_size) return false;
    uint32_t wanted = length;
    if (position + wanted >= file_size) wanted = static_cast<uint32_t>(file_size - position);

    uint32_t done = 0;
    while (done < wanted) {
        uint64_t to_grain_end = grain_bytes - offset % grain_bytes;
        uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(to_grain_end, wanted - done));
        if (!seek_to(descriptor, position)) return false;
        ssize_t got = ::read(descriptor, buffer + done, piece);
        if (got < 1) return false;
        if (static_cast<uint32_t>(got) < piece) {
            std::memset(buffer + done + got, 0, piece - static_cast<uint32_t>(got));
        }
        offset += piece;
        done += piece;
        if (done < wanted && !map_offset(offset, position)) return false;
    }
    length = done;
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
                messages << narrow_of(file) << " can't be opened" << "\n";
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

bool check_vmdk_list(std::vector<std::wstring> const& files, std::ostream& messages,
                     std::vector<std::wstring>& suggestion) {
    suggestion.clear();
    VMWARE_COLLECTION collection(false);
    return collection.check_files(files, messages, suggestion);
}

bool parse_offset(const std::string& text, uint64_t& out) {
    int64_t value = 0;
    if (!parse_signed_text(text, value)) return false;
    out = static_cast<uint64_t>(value);
    return true;
}

bool parse_vmdk_list(cmd_opts& opts, std::vector<std::string>& args, vmdk_check_fn check,
                     vmdk_second_check_fn second_check, bool skip_table, std::string const& option_word) {
    if (!skip_table) {
        if (!parse_options(opts, args)) return false;
    } else if (args.empty()) {
        return false;
    }
    std::string value;
    if (!take_option(option_word, value, args)) return true;
    std::vector<std::string> pieces;
    split_list_any(value, "|,;", pieces);
    for (const std::string& piece : pieces) opts.vmdk_files.push_back(wide_of(piece));
    while (take_option(option_word, value, args)) opts.vmdk_files.push_back(wide_of(value));

    if (take_option("-offset", value, args)) parse_offset(value, opts.image_offset);

    std::ostringstream messages;
    std::vector<std::wstring> suggestion;
    if (check != nullptr && !check(opts.vmdk_files, messages, suggestion)) {
        std::cerr << messages.str() << "\n";
        if (!suggestion.empty()) {
            std::string joined;
            for (size_t i = 0; i < suggestion.size(); ++i) {
                if (i != 0) joined += " | ";
                joined += narrow_of(suggestion[i]);
            }
            std::cerr << "suggested array: " << option_word << " \"" << joined << "\"\n";
        }
        std::cerr.flush();
        return false;
    }
    if (second_check == nullptr) return true;
    bool ignore_image_size = opts.image_offset != 0 && take_flag("-ignore_image_size", args);
    uint8_t result = 0;
    if (!second_check(messages, opts.vmdk_files, opts.image_offset, result, ignore_image_size)) {
        std::cerr << messages.str() << "\n";
        return false;
    }
    return true;
}
