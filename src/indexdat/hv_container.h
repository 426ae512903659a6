// The index.dat container outside its entries: the file header, the table of cache
// directories, and the chain of HASH blocks that the container keeps as its own index.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "entries/hv_activity.h"
#include "indexdat/hv_index_format.h"

constexpr uint32_t signature_hash = 0x48534148;  // "HASH"

// One slot of a HASH block.
struct FLAG_OFFSET_PAIR {
    static constexpr uint32_t size = 8;
    static constexpr uint32_t at_flag = 0;    // u32; unset_u32 ends the table
    static constexpr uint32_t at_offset = 4;  // u32, file offset of the entry
    uint32_t flag = 0;
    uint32_t offset = 0;
};

// A HASH block: its first 24 bytes as copied, and the slots that name an entry.
struct HASH_TABLE_RECORD {
    static constexpr uint32_t size = 24;  // bytes copied
    static constexpr uint32_t at_signature = 0;
    static constexpr uint32_t at_block_count = 4;  // u32, 128-byte blocks
    static constexpr uint32_t at_next = 8;         // u32, file offset of the next block, 0 ends
    static constexpr uint32_t at_slots = 16;       // FLAG_OFFSET_PAIR, back to back

    uint8_t bytes[size];
    bool valid = false;
    std::vector<FLAG_OFFSET_PAIR> pairs;

    HASH_TABLE_RECORD() { clear(); }
    void clear();
    uint32_t block_count() const { return hv::le32(bytes, size, at_block_count); }
    uint32_t next_offset() const { return hv::le32(bytes, size, at_next); }
};

// What the system knows of one container beside its entries.
struct INDEX_DAT_RECORD {
    static constexpr uint32_t header_size = 81;  // bytes copied
    static constexpr uint32_t at_signature = 0;  // "Client UrlCache", 15 bytes
    static constexpr uint32_t signature_size = 15;
    static constexpr uint32_t at_first_hash = 32;        // u32, offset of the first HASH block
    static constexpr uint32_t at_directory_count = 72;   // u32
    static constexpr uint32_t at_directory_table = 76;   // items of 12 bytes
    static constexpr uint32_t directory_item_size = 12;  // u32 file count (not read), 8-byte name
    static constexpr uint32_t at_first_directory_name = 80;
    static constexpr uint32_t directory_name_size = 8;  // not NUL-terminated

    uint8_t header[header_size];
    std::vector<std::string> directory_names;  // 8 bytes each, NULs kept
    std::vector<HASH_TABLE_RECORD> hash_tables;
    bool valid = false;

    INDEX_DAT_RECORD() { clear(); }
    void clear();

    // Follows the container's own HASH chain into hash_tables. The default report is built from the
    // scan alone; the lossless report asks the walk which offsets the chain names.
    bool walk_hash_tables(const uint8_t* buffer, uint32_t size);
    bool chain_read_whole = false;  // the walk followed the chain to its end, and no further
};

// 1 when the first bytes are a container's header; the 81 bytes are copied whatever the answer.
int read_container_header(INDEX_DAT_RECORD& record, const uint8_t* buffer, uint32_t size);

// Reads the directory table into record.directory_names. 0 when the header or the table's bound
// fails; the rows then keep their empty directory. A row's directory_index names the item whose
// index, widened, is below the number of names.
int read_directory_table(INDEX_DAT_RECORD& record, const uint8_t* buffer, uint32_t size);

// The directory name of a row's directory_index: the index, widened, names an item below the
// number of names, so 0xFE (every REDR row) and 0xFF name nothing in a short table. Null for none.
const std::string* directory_name_of(const INDEX_DAT_RECORD& record, uint8_t index);

// Distance from `base` to `pointer` when `length` bytes there lie inside `total` bytes at `base`;
// 0 otherwise. A range at `base` itself, or one that ends exactly at `total`, counts as outside.
uint64_t range_is_inside(const void* base, const void* pointer, uint64_t length, uint64_t total);

// Reads the HASH block at `block_offset`: its bytes, and the slots that name a URL, LEAK or REDR entry.
int read_hash_block(HASH_TABLE_RECORD& record, const uint8_t* buffer, uint64_t block_offset, uint32_t size);

// What the lossless report asks of one container beside its entries: its directory names, whether its
// allocation bitmap counts a block in use (a live entry) or free (a deleted one), and whether its own
// HASH chain names an offset. Offsets are from the container's first byte.
struct container_facts {
    static constexpr uint32_t at_declared_size = 28;  // u32, the container's size in bytes
    static constexpr uint32_t at_block_count = 36;    // u32, the blocks the bitmap counts
    static constexpr uint32_t at_bitmap = 0x250;      // one bit per block, the lowest bit first
    static constexpr uint32_t first_block = 0x4000;   // where the blocks it counts begin

    INDEX_DAT_RECORD record;  // header and directory names
    bool known = false;       // the header is a container's
    uint64_t declared_size = 0;
    uint32_t block_count = 0;
    std::vector<uint8_t> bitmap;   // as much of it as the container's bytes hold
    std::vector<uint32_t> listed;  // the offsets the chain's slots name, sorted

    void clear();
    // From the container's bytes, its header first: all of them, or its first bytes when
    // head_answers_all says they are enough.
    bool read(const uint8_t* buffer, uint32_t size);
    // Whether the first `size` bytes of a container of `container_size` bytes answer all it is asked:
    // its names and bitmap lie in them, and it declares no HASH chain.
    static bool head_answers_all(const uint8_t* buffer, size_t size, uint64_t container_size);
    // 1 when the bitmap marks the block at `offset` in use, 0 when free, -1 when it says nothing of it.
    int allocated(uint64_t offset) const;
    // 1 when a slot names `offset`, 0 when the chain was read whole and none does, -1 otherwise.
    int hash_listed(uint64_t offset) const;
};
