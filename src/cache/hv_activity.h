// The stored cache entries ("URL ", "LEAK", "REDR"), their decoded forms, and the report row.
#pragma once
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "foundation/hv_bytes.h"
#include "foundation/hv_time.h"

// Entry signatures as little-endian u32.
constexpr uint32_t signature_url = 0x204C5255;   // "URL "
constexpr uint32_t signature_leak = 0x4B41454C;  // "LEAK"
constexpr uint32_t signature_redr = 0x52444552;  // "REDR"

// Values that mean "not set" inside an entry.
constexpr uint32_t unset_u32 = 0xDEADBEEFu;
constexpr uint64_t unset_u64 = 0xDEADBEEFDEADBEEFull;
constexpr uint16_t unset_dos_date = 0xBEEF;

// Entries and HASH blocks are runs of these.
constexpr uint32_t entry_block_size = 128;

// A DOS date and time pair, date word first, as stored.
using dos_stamp = hv::dos_pair;

// The fixed first 104 bytes of a "URL " or "LEAK" entry, kept as copied from the file.
struct URL_HEADER {
    static constexpr uint32_t size = 104;
    // Offsets from the entry's first byte; the bytes between them are not read.
    static constexpr uint32_t at_signature = 0;
    static constexpr uint32_t at_block_count = 4;     // u32, 128-byte blocks
    static constexpr uint32_t at_last_modified = 8;   // u64 FILETIME
    static constexpr uint32_t at_last_access = 16;    // u64 FILETIME
    static constexpr uint32_t at_expires = 24;        // DOS date u16, time u16
    static constexpr uint32_t at_file_size = 32;      // u32, low half only
    static constexpr uint32_t at_url = 52;            // u32, offset of a NUL-terminated text
    static constexpr uint32_t at_directory_index = 56;  // u8
    static constexpr uint32_t at_file_name = 60;      // u32, offset of a NUL-terminated text
    static constexpr uint32_t at_flags = 64;          // u32
    static constexpr uint32_t at_data_offset = 68;    // u32, offset of the HTTP response data
    static constexpr uint32_t at_data_size = 72;      // u32
    static constexpr uint32_t at_last_sync = 80;      // DOS date u16, time u16
    static constexpr uint32_t at_count = 84;          // u32, uses
    static constexpr uint32_t at_second_stamp = 92;   // DOS date u16, time u16 (a LEAK's access)

    uint8_t bytes[size];

    void clear() { std::memset(bytes, 0, size); }
    uint32_t u32_at(uint32_t at) const { return hv::le32(bytes, size, at); }
    uint64_t u64_at(uint32_t at) const { return hv::le64(bytes, size, at); }
    dos_stamp dos_at(uint32_t at) const { return {hv::le16(bytes, size, at), hv::le16(bytes, size, at + 2)}; }

    uint32_t signature() const { return u32_at(at_signature); }
    bool valid() const { return signature() == signature_url || signature() == signature_leak; }
    bool is_leak() const { return signature() == signature_leak; }
    uint32_t block_count() const { return u32_at(at_block_count); }
    uint64_t last_modified() const { return u64_at(at_last_modified); }
    uint64_t last_access() const { return u64_at(at_last_access); }
    dos_stamp expires() const { return dos_at(at_expires); }
    uint32_t file_size() const { return u32_at(at_file_size); }
    uint32_t url_offset() const { return u32_at(at_url); }
    uint8_t directory_index() const { return bytes[at_directory_index]; }
    uint32_t file_name_offset() const { return u32_at(at_file_name); }
    uint32_t flags() const { return u32_at(at_flags); }
    uint32_t data_offset() const { return u32_at(at_data_offset); }
    uint32_t data_size() const { return u32_at(at_data_size); }
    dos_stamp last_sync() const { return dos_at(at_last_sync); }
    uint32_t count() const { return u32_at(at_count); }
    dos_stamp second_stamp() const { return dos_at(at_second_stamp); }
};
static_assert(sizeof(URL_HEADER) == 104, "URL_HEADER holds exactly the copied bytes");

// A decoded "URL " or "LEAK" entry.
struct URL_OR_LEAK_ACTIVITY_RECORD {
    URL_HEADER header;
    std::string url;
    std::string file_name;
    std::string raw_data;  // the stored response bytes, NULs kept
    std::string http_header;
    std::string user;
    bool valid = false;
    uint64_t offset = 0;  // in the buffer while decoding, then the position in the input
    bool from_gap = false;
    // The block count as this decoding rewrote it (the distance to the next signature, in blocks);
    // 0 when no signature followed and the file's own count stood.
    uint32_t block_count_rewrite = 0;

    URL_OR_LEAK_ACTIVITY_RECORD() { clear(); }
    // Decodes the entry at `buffer + offset`; see decode_url_or_leak.
    URL_OR_LEAK_ACTIVITY_RECORD(const uint8_t* buffer, uint32_t offset, uint32_t size);
    void clear();
};

// A decoded "REDR" entry.
struct REDR_ACTIVITY_RECORD {
    static constexpr uint32_t size = 17;  // bytes copied from the entry
    static constexpr uint32_t at_signature = 0;
    static constexpr uint32_t at_block_count = 4;  // u32
    static constexpr uint32_t at_url = 16;          // NUL-terminated text

    uint8_t bytes[size];
    std::string url;
    bool valid = false;
    uint64_t offset = 0;
    bool from_gap = false;

    REDR_ACTIVITY_RECORD() { clear(); }
    REDR_ACTIVITY_RECORD(const uint8_t* buffer, uint64_t offset, uint32_t size);
    void clear();
    uint32_t signature() const { return hv::le32(bytes, size, at_signature); }
    uint32_t block_count() const { return hv::le32(bytes, size, at_block_count); }
};

// Kind of cache, from the words of the container's path.
enum cache_kind : uint32_t {
    cache_unknown = 1,
    cache_history = 2,
    cache_daily_history = 3,  // MSHist: stamps of local time
    cache_browser = 4,
    cache_cookies = 5,
    cache_temp = 6,
    cache_download = 7,  // a database's iedownload container
};

// What a row read from a WebCache database holds beyond the columns of an index.dat entry: its expiry
// and sync stamps are FILETIMEs, and two more stamps and the record's own members go to the timeline.
struct webcache_row_facts {
    bool present = false;  // the row is a database record
    uint64_t expires = 0, last_sync = 0, created = 0, post_check = 0;  // raw FILETIMEs, 0 for none
    std::string table;           // Container_N, or LeakFiles for a LEAK row
    std::string container_name;  // "" for a LEAK row
    uint64_t container_id = 0;
    uint64_t entry_id = 0;
    std::string partition_id, request_headers, redirect_url;
    uint32_t type = 0, sync_count = 0, exemption_delta = 0;
    // Where the record's image was found: its state ("live", "deleted tag", "free space", "outside the
    // tree", "carved"; null for a record only the library gave), the page, and whether the row's offset
    // is the image's.
    const char* record_state = nullptr;
    uint64_t page = 0;
    bool has_offset = false;

    void clear() {
        present = false;
        expires = last_sync = created = post_check = 0;
        table.clear();
        container_name.clear();
        container_id = entry_id = 0;
        partition_id.clear();
        request_headers.clear();
        redirect_url.clear();
        type = sync_count = exemption_delta = 0;
        record_state = nullptr;
        page = 0;
        has_offset = false;
    }
};

// Where an image road's row lies ("file state"); 0 off that road.
constexpr int8_t file_state_allocated = 1;    // in a live file
constexpr int8_t file_state_deleted = 2;      // in a file whose name is kept as deleted
constexpr int8_t file_state_unallocated = 3;  // in no file
// The state's word in the reports, "" for 0.
inline const char* file_state_name(int8_t state) {
    static const char* const names[] = {"", "allocated", "deleted", "unallocated"};
    return state >= 0 && state <= 3 ? names[state] : "";
}

// One report row.
struct activity_record {
    std::array<char, 4> signature;
    uint32_t cache_category;
    uint64_t offset;
    std::string directory;
    std::string file_name;
    uint64_t file_size;
    std::string source_file;
    uint32_t flags;
    uint32_t count;
    std::string user;
    std::string reserved_text;  // nothing fills it
    std::string url;
    std::string http_header;
    bool is_local_time;
    uint64_t last_modified;  // raw FILETIME, 0 for none
    uint64_t last_access;    // raw FILETIME, 0 for none
    dos_stamp expires;
    dos_stamp last_sync;
    dos_stamp second_stamp;  // only LEAK rows carry it
    uint8_t directory_index;
    uint16_t reserved_index;  // nothing fills it
    bool valid;
    bool is_redr;
    bool is_leak;
    std::string row_text;  // nothing fills it
    // The lossless report's: 1 yes, 0 no, -1 not known (no container, or it can't tell).
    int8_t allocated;
    int8_t hash_listed;
    webcache_row_facts webcache;
    // The image road's: the file that holds the entry's first byte, and its state.
    std::string image_file;
    int8_t file_state;

    activity_record() { reset(); }
    void reset() {
        signature = {0, 0, 0, 0};
        cache_category = cache_unknown;
        offset = ~uint64_t(0);
        directory.clear();
        file_name.clear();
        file_size = 0;
        source_file.clear();
        flags = 0;
        count = 0;
        user.clear();
        reserved_text.clear();
        url.clear();
        http_header.clear();
        is_local_time = false;
        last_modified = 0;
        last_access = 0;
        expires = {};
        last_sync = {};
        second_stamp = {};
        directory_index = 0xFE;
        reserved_index = 0xFFFF;
        valid = false;
        is_redr = false;
        is_leak = false;
        row_text.clear();
        allocated = -1;
        hash_listed = -1;
        if (webcache.present) webcache.clear();
        image_file.clear();
        file_state = 0;
    }
};


