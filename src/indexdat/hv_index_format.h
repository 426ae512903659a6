// The stored entries of an index.dat container ("URL ", "LEAK", "REDR") and their decoded forms.
#pragma once
#include <cstdint>
#include <cstring>
#include <string>

#include "entries/hv_activity.h"
#include "foundation/hv_bytes.h"

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

    REDR_ACTIVITY_RECORD() { clear(); }
    REDR_ACTIVITY_RECORD(const uint8_t* buffer, uint64_t offset, uint32_t size);
    void clear();
    uint32_t signature() const { return hv::le32(bytes, size, at_signature); }
    uint32_t block_count() const { return hv::le32(bytes, size, at_block_count); }
};
