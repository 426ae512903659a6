// A Container_N record image read from its bytes, without the library: the decoder behind the page walk
// of a database and the carving of records out of any bytes. Pure over (bytes, size); nothing here
// reads a file.
//
// An image is the record's column data as ESE stores it in a leaf page: a data definition header, the
// fixed columns, their null bitmap, then the tagged columns. A Container_N table has 17 fixed columns
// (EntryId .. ExemptionDelta), no variable ones, and its text and binary columns tagged.
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "webcache/hv_webcache.h"

struct ESE_CONTAINER_RECORD {
    // The data definition header.
    static constexpr size_t at_last_fixed = 0;      // u8: the last fixed column's id, 17
    static constexpr size_t at_last_variable = 1;   // u8: the last variable column's id, 127 (none)
    static constexpr size_t at_variable_data = 2;   // u16: where variable data (here the tagged data) starts
    static constexpr size_t header_size = 4;
    // The fixed columns, in column id order, each at its offset from the image's start.
    static constexpr size_t at_entry_id = 4;          // i64, column 1
    static constexpr size_t at_container_id = 12;     // i64, 2
    static constexpr size_t at_cache_id = 20;         // i64, 3
    static constexpr size_t at_url_hash = 28;         // i64, 4
    static constexpr size_t at_secure_directory = 36; // u32, 5
    static constexpr size_t at_file_size = 40;        // i64, 6
    static constexpr size_t at_type = 48;             // u32, 7
    static constexpr size_t at_flags = 52;            // u32, 8
    static constexpr size_t at_access_count = 56;     // u32, 9
    static constexpr size_t at_sync_time = 60;        // FILETIME, 10
    static constexpr size_t at_creation_time = 68;    // 11
    static constexpr size_t at_expiry_time = 76;      // 12
    static constexpr size_t at_modified_time = 84;    // 13
    static constexpr size_t at_accessed_time = 92;    // 14
    static constexpr size_t at_post_check_time = 100; // 15
    static constexpr size_t at_sync_count = 108;      // u32, 16
    static constexpr size_t at_exemption_delta = 112; // u32, 17
    static constexpr size_t at_null_bitmap = 116;     // 3 bytes: bit (id - 1) set for a null fixed column
    static constexpr size_t null_bitmap_size = 3;
    static constexpr size_t at_tagged = 119;          // the tagged data: an array of (u16 id, u16 offset)

    static constexpr uint8_t last_fixed_value = 17;
    static constexpr uint8_t no_variable_value = 127;
    // The four bytes every image starts with: what a scan looks for.
    static constexpr uint8_t signature[header_size] = {0x11, 0x7f, 0x77, 0x00};

    // The tagged columns' ids.
    static constexpr uint16_t column_url = 256, column_filename = 257, column_file_extension = 258,
                              column_request_headers = 259, column_response_headers = 260,
                              column_redirect_url = 261, column_group = 262, column_extra_data = 263;
    // A tagged entry's offset, from the tagged data's start; the top bit is never set in an image.
    static constexpr uint16_t tagged_offset_mask = 0x7fff;
    // The flag byte that starts each tagged value.
    static constexpr uint8_t value_variable = 0x01, value_compressed = 0x02, value_long = 0x04,
                             value_multi = 0x08;
};

// A table's long values by their id, each whole (its chunks joined): what the page walk found of the
// table's long-value tree.
using ese_long_values = std::map<uint32_t, std::string>;

// What a decoded image held beyond the record.
struct ese_record_notes {
    size_t size = 0;               // the bytes the image spans, to its last tagged value's end
    unsigned values_left_empty = 0;  // long values not found, compressed values, multi-values
    bool url_inline = false;       // the Url was stored in the record, not in the long-value tree
};

// Decodes the image at `bytes`; `size` bounds it (a tag's size, or what lies before the next image).
// False, with `out` cleared, when the bytes fail a check: the header, the null bitmap of columns 18-24,
// stamps that are neither 0 nor in 1980-2100, a tagged array out of order or out of bounds or naming a
// column the table doesn't have, or a Url that doesn't read as text. Text columns become UTF-8; the
// binary ones keep their bytes. `long_values` may be null: long values are then left empty.
bool decode_container_record(const uint8_t* bytes, size_t size, const ese_long_values* long_values,
                             webcache_record& out, ese_record_notes& notes);

// Whether `bytes` (at least 4 of them) start an image.
inline bool starts_container_record(const uint8_t* bytes) {
    return bytes[0] == ESE_CONTAINER_RECORD::signature[0] && bytes[1] == ESE_CONTAINER_RECORD::signature[1] &&
           bytes[2] == ESE_CONTAINER_RECORD::signature[2] && bytes[3] == ESE_CONTAINER_RECORD::signature[3];
}
