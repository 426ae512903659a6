// VMware sparse extents (one file: header, descriptor, grain directory, grain tables, grains) and
// chains of them (a base disk and its snapshots, read as one flat disk, newest file first).
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "storage/hv_image.h"
#include "storage/hv_lost_ranges.h"
#include "storage/hv_vmdk_stream.h"

// The sparse extent header at file offset 0, kept as read. Counts and offsets are in 512-byte sectors.
struct SPARSE_EXTENT_HEADER {
    static constexpr size_t size = 513;  // one byte more than the header is read; it is only held
    static constexpr size_t at_magic = 0;                // u32 "KDMV"
    static constexpr size_t at_version = 4;              // u32, not tested
    static constexpr size_t at_flags = 8;                // u32: compressed grains or not
    static constexpr size_t at_capacity = 12;            // u64 sectors of the virtual disk
    static constexpr size_t at_grain_size = 20;          // u64 sectors per grain
    static constexpr size_t at_descriptor_offset = 28;   // u64 sector
    static constexpr size_t at_descriptor_size = 36;     // u64 sectors
    static constexpr size_t at_entries_per_table = 44;   // u32 grain entries in one table
    static constexpr size_t at_redundant_dir = 48;       // u64 sector, not used
    static constexpr size_t at_grain_dir = 56;           // u64 sector; directory_at_end: see the footer
    static constexpr size_t at_overhead = 64;            // u64 sectors of metadata at the file's start
    static constexpr size_t at_unclean_shutdown = 72;    // u8, not used
    static constexpr size_t at_compression = 77;         // u16 algorithm of compressed grains
    static constexpr uint32_t magic_value = 0x564D444B;  // "KDMV"
    static constexpr uint32_t flag_new_line_detection = 0x1;
    static constexpr uint32_t flag_redundant_table = 0x2;
    static constexpr uint32_t flag_compressed = 0x10000;  // streamOptimized: each grain is deflate data
    static constexpr uint32_t flag_markers = 0x20000;     // a marker leads each grain and table
    static constexpr uint16_t compression_deflate = 1;
    // Written first by a writer that streams: the real directory offset is in the footer, a copy of
    // this header that starts this many bytes before the file's end.
    static constexpr uint64_t directory_at_end = UINT64_MAX;
    static constexpr uint64_t footer_from_end = 1024;

    std::array<uint8_t, size> bytes;

    SPARSE_EXTENT_HEADER() { clear(); }
    void clear() { bytes.fill(0); }
    bool valid() const { return magic() == magic_value; }
    uint32_t magic() const;
    uint64_t capacity() const;
    uint64_t grain_size() const;
    uint64_t descriptor_offset() const;
    uint64_t descriptor_size() const;
    uint32_t entries_per_table() const;
    uint64_t grain_dir_offset() const;
    uint64_t overhead() const;
    uint32_t flags() const;
    uint16_t compression() const;
    bool compressed_grains() const { return (flags() & flag_compressed) != 0; }
};
static_assert(sizeof(SPARSE_EXTENT_HEADER::bytes) == 513, "the header read is 513 bytes");

// One grain table: the file sector of each grain it covers, 0 when the grain isn't in this file.
// A table that holds nothing keeps no entries: a look-up misses it just as it would miss its zeros.
struct GRAIN_TABLE {
    std::vector<uint32_t> entries;
};

// One sparse extent file. Everything but the grains is loaded at open; look-ups cost no disk access.
struct VMWARE_DISK {
    static constexpr const char* root_parent_cid = "ffffffff";

    SPARSE_EXTENT_HEADER header;
    std::vector<std::wstring> descriptor_lines;  // every non-empty line
    std::string encoding;                        // values as the descriptor spells them, quotes kept
    std::string parent_cid;
    std::string cid;
    std::string parent_hint;
    VMWARE_DISK* child = nullptr;   // not owned
    VMWARE_DISK* parent = nullptr;  // not owned
    std::vector<uint32_t> grain_directory;
    uint64_t first_table_offset = 0;
    std::vector<GRAIN_TABLE> grain_tables;
    uint64_t first_grain_offset = 0;
    std::vector<uint8_t> first_sector;  // the virtual disk's first 512 bytes as this file holds them
    // The volume lookup's answers (hv_disk_structs), kept for an image road that may use them:
    // no road reads them today.
    std::vector<uint64_t> volume_offsets;
    std::vector<uint32_t> volume_sector_sizes;
    uint32_t sector_size = 512;
    uint64_t file_size = 0;
    uint64_t table_span = 0;  // virtual bytes one grain table covers
    uint64_t grain_bytes = 0;
    uint32_t grain_blocks = 0;
    uint32_t block_size = 0;
    bool valid = false;
    int32_t fd = -1;  // owned
    bool writable = false;
    std::string path;
    std::wstring wide_path;
    std::unique_ptr<image_reader> source;  // the file's bytes (over `fd`), or bytes in memory
    std::vector<uint32_t> used_tables;     // the tables that hold a grain, in rising order
    // streamOptimized: grain table entries point at grain markers, and grains are inflated when read.
    bool compressed = false;
    grain_inflater inflater;

    VMWARE_DISK() { clear(); }
    ~VMWARE_DISK();
    VMWARE_DISK(const VMWARE_DISK&) = delete;
    VMWARE_DISK& operator=(const VMWARE_DISK&) = delete;

    // Empties everything; doesn't close.
    void clear();
    bool open(const wchar_t* file_path, bool write);
    bool open(const char* file_path, bool write);
    // Reads header, descriptor, directory and tables from `descriptor`; answers `valid`.
    bool load(int descriptor);
    // The same from any bytes: a file through its descriptor, or memory.
    bool load(std::unique_ptr<image_reader> image);
    // Takes the keys of a descriptor text, which ends at its first NUL or at `size`.
    void parse_descriptor(const uint8_t* text, size_t size);

    uint64_t capacity_bytes() const;
    // True when this file holds the grain of virtual byte `offset`; `file_offset` is where.
    bool map_offset(uint64_t offset, uint64_t& file_offset) const;
    // Reads virtual bytes held by this file, one look-up per grain. `length` is cut at the file's end.
    // The descriptor is the disk's own; the bytes come through `source`.
    bool read(int descriptor, uint8_t* buffer, uint64_t offset, uint32_t& length);
    // The first virtual offset at or after `offset` whose grain this file holds; UINT64_MAX for none.
    uint64_t next_held(uint64_t offset) const;
    // Built with zlib: compressed grains can be read.
    static bool inflate_offered();

private:
    bool load_sparse_tables();
    bool load_compressed_tables();
    // The next table, from its bytes (null: one that holds nothing).
    void add_table(const std::vector<uint8_t>* raw);
    bool read_compressed(uint8_t* buffer, uint64_t offset, uint32_t length);
    // Grain `index` inflated from the marker at `marker_at`; null when it doesn't inflate to it.
    const uint8_t* inflated_grain(uint64_t marker_at, uint64_t index);
};

// A base disk and its snapshots, linked by CID, read as one disk.
struct VMWARE_COLLECTION {
    std::map<std::string, std::unique_ptr<VMWARE_DISK>> disks;  // keyed by each file's own CID
    VMWARE_DISK* current = nullptr;  // newest file, the end of the chain
    VMWARE_DISK* root = nullptr;     // the file with no parent
    bool writable = false;
    bool complete = false;
    std::vector<VMWARE_DISK*> chain;  // root first, newest last
    lost_ranges lost;                 // in grains of the disk that lost them: a chain's disks share a grain size

    explicit VMWARE_COLLECTION(bool write) : writable(write) {}
    ~VMWARE_COLLECTION() { delete_snapshots(); }
    VMWARE_COLLECTION(const VMWARE_COLLECTION&) = delete;
    VMWARE_COLLECTION& operator=(const VMWARE_COLLECTION&) = delete;

    // Closes and forgets every disk; root and current are left until the next link or check.
    void delete_snapshots();
    // Opens every file in order; false at the first that isn't a sparse extent.
    bool open_files(const std::vector<std::wstring>& files);
    // Orders the opened disks from root to newest; false when a parent or the root is missing.
    bool link();
    // Opens and links `files`, looking for missing parents by their hints. Notes go to
    // `messages`; `suggestion` ends as the list to give instead. True when the list is complete.
    bool check_files(const std::vector<std::wstring>& files, std::ostream& messages,
                     std::vector<std::wstring>& suggestion);
    // The newest disk that holds the grain of `offset`, or null.
    VMWARE_DISK* find_owner(uint64_t offset) const;
    // Reads the virtual disk: grains no file holds, and grains that fail to read, come as zeros.
    bool read(void* buffer, uint64_t offset, uint32_t& length);
    // The virtual bytes lent in place when one file holds them back to back; null otherwise.
    const uint8_t* view(uint64_t offset, uint32_t length);
    // The first virtual offset at or after `offset` that some file of the chain holds; UINT64_MAX for none.
    uint64_t next_held(uint64_t offset) const;
    // Compressed grains that read as zeros because they didn't inflate, each once, in the order met.
    bool next_lost_range(uint64_t& offset, uint64_t& length) { return lost.next(offset, length); }
    // Enters an opened disk under its CID; false (and the disk closed) when the CID is taken.
    bool add_disk(std::unique_ptr<VMWARE_DISK> disk);

private:
    void walk_chain();
    VMWARE_DISK* join_parents(bool& own_parent);
};

// The check run on the -vmdk list: fills `messages` and a suggested list; true when complete.
using vmdk_check_fn = bool (*)(std::vector<std::wstring> const& files, std::ostream& messages,
                               std::vector<std::wstring>& suggestion);
// An optional further check with the image offset; no caller in this program passes one.
using vmdk_second_check_fn = bool (*)(std::ostream& messages, std::vector<std::wstring> const& files,
                                      uint64_t image_offset, uint8_t& result, bool ignore_image_size);

// check_files on a collection of its own, closed again before the answer.
bool check_vmdk_list(std::vector<std::wstring> const& files, std::ostream& messages,
                     std::vector<std::wstring>& suggestion);

