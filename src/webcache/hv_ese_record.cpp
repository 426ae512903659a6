#include "webcache/hv_ese_record.h"

#include "foundation/hv_bytes.h"

constexpr uint8_t ESE_CONTAINER_RECORD::signature[];

namespace {

using R = ESE_CONTAINER_RECORD;

// Stamps are 0 or FILETIMEs of 1980-01-01 .. 2100-01-01: a wider range lets random bytes through.
constexpr uint64_t stamp_low = 119600064000000000ULL, stamp_high = 157766880000000000ULL;
// The unused bits of the null bitmap, columns 18-24: always set.
constexpr uint8_t unused_null_bits = 0xfe;
// A long value's reference: its id, little-endian.
constexpr size_t long_value_id_size = 4;

bool stamp_in_range(uint64_t stamp) { return stamp == 0 || (stamp >= stamp_low && stamp < stamp_high); }

void append_utf8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xc0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3f));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xe0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (c & 0x3f));
    } else {
        out += static_cast<char>(0xf0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3f));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (c & 0x3f));
    }
}

// UTF-16LE to UTF-8 up to the first NUL, as the library answers text; a lone surrogate becomes U+FFFD.
// False when the text has an odd size or a control character before its NUL (what no URL holds).
bool utf16_text(const uint8_t* p, size_t size, std::string& out) {
    out.clear();
    if (size % 2 != 0) return false;
    bool plain = true;
    for (size_t at = 0; at + 2 <= size; at += 2) {
        uint32_t c = hv::le16(p, size, at);
        if (c == 0) break;
        if (c < 0x20) plain = false;
        if (c >= 0xd800 && c < 0xdc00 && at + 4 <= size) {
            const uint32_t low = hv::le16(p, size, at + 2);
            if (low >= 0xdc00 && low < 0xe000) {
                c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
                at += 2;
            } else {
                c = 0xfffd;
            }
        } else if (c >= 0xd800 && c < 0xe000) {
            c = 0xfffd;
        }
        append_utf8(out, c);
    }
    return plain;
}

uint64_t fixed64(const uint8_t* p, size_t size, size_t at, unsigned column) {
    const bool null = (hv::byte_at(p, size, R::at_null_bitmap + (column - 1) / 8) >> ((column - 1) % 8)) & 1;
    return null ? 0 : hv::le64(p, size, at);
}

uint32_t fixed32(const uint8_t* p, size_t size, size_t at, unsigned column) {
    return static_cast<uint32_t>(fixed64(p, size, at, column) & 0xffffffffu);
}

}  // namespace

bool decode_container_record(const uint8_t* bytes, size_t size, const ese_long_values* long_values,
                             webcache_record& out, ese_record_notes& notes) {
    out.clear();
    notes = ese_record_notes();
    // The header, the fixed columns and at least the first tagged entry.
    if (bytes == nullptr || !hv::fits(size, 0, R::at_tagged + 4) || !starts_container_record(bytes)) return false;
    if ((hv::byte_at(bytes, size, R::at_null_bitmap + 2) & unused_null_bits) != unused_null_bits) return false;

    out.entry_id = fixed64(bytes, size, R::at_entry_id, 1);
    out.secure_directory = fixed32(bytes, size, R::at_secure_directory, 5);
    out.file_size = fixed64(bytes, size, R::at_file_size, 6);
    out.type = fixed32(bytes, size, R::at_type, 7);
    out.flags = fixed32(bytes, size, R::at_flags, 8);
    out.access_count = fixed32(bytes, size, R::at_access_count, 9);
    out.sync_time = fixed64(bytes, size, R::at_sync_time, 10);
    out.creation_time = fixed64(bytes, size, R::at_creation_time, 11);
    out.expiry_time = fixed64(bytes, size, R::at_expiry_time, 12);
    out.modified_time = fixed64(bytes, size, R::at_modified_time, 13);
    out.accessed_time = fixed64(bytes, size, R::at_accessed_time, 14);
    out.post_check_time = fixed64(bytes, size, R::at_post_check_time, 15);
    out.sync_count = fixed32(bytes, size, R::at_sync_count, 16);
    out.exemption_delta = fixed32(bytes, size, R::at_exemption_delta, 17);
    for (uint64_t stamp : {out.sync_time, out.creation_time, out.expiry_time, out.modified_time, out.accessed_time,
                           out.post_check_time})
        if (!stamp_in_range(stamp)) {
            out.clear();
            return false;
        }

    // The tagged array: its first entry's offset is the array's size; ids rise, offsets never fall, and
    // every value lies inside the image.
    const uint8_t* tagged = bytes + R::at_tagged;
    const size_t tagged_size = size - R::at_tagged;
    const uint16_t first_offset = hv::le16(tagged, tagged_size, 2);
    const size_t count = first_offset / 4;
    if (first_offset % 4 != 0 || count == 0 || first_offset > tagged_size ||
        hv::le16(tagged, tagged_size, 0) != R::column_url) {
        out.clear();
        return false;
    }
    size_t end = first_offset;
    uint16_t last_id = 0;
    for (size_t i = 0; i < count; ++i) {
        const uint16_t id = hv::le16(tagged, tagged_size, 4 * i);
        const uint16_t raw = hv::le16(tagged, tagged_size, 4 * i + 2);
        const size_t offset = raw & R::tagged_offset_mask;
        // The value runs to the next entry's offset, the last one to the image's end.
        const size_t next = i + 1 < count ? (hv::le16(tagged, tagged_size, 4 * i + 6) & R::tagged_offset_mask)
                                          : tagged_size;
        if (raw != offset || id <= last_id || id < R::column_url || id > R::column_extra_data || offset < end ||
            next < offset || next > tagged_size) {
            out.clear();
            return false;
        }
        last_id = id;
        end = next;
        if (next == offset) continue;  // an empty value
        const uint8_t flag = tagged[offset];
        const uint8_t* value = tagged + offset + 1;
        const size_t value_size = next - offset - 1;
        std::string stored;
        bool have = true;
        if (flag & (R::value_compressed | R::value_multi)) {
            have = false;
        } else if (flag & R::value_long) {
            const uint32_t lid = hv::le32(value, value_size, 0);
            auto found = long_values != nullptr && value_size == long_value_id_size ? long_values->find(lid)
                                                                                    : ese_long_values::const_iterator();
            have = long_values != nullptr && value_size == long_value_id_size && found != long_values->end();
            if (have) stored = found->second;
        } else {
            stored.assign(reinterpret_cast<const char*>(value), value_size);
        }
        if (!have) {
            ++notes.values_left_empty;
            if (id == R::column_url && !(flag & R::value_long)) {
                out.clear();
                return false;
            }
            continue;
        }
        const uint8_t* text = reinterpret_cast<const uint8_t*>(stored.data());
        switch (id) {
            case R::column_url:
                if (!utf16_text(text, stored.size(), out.url) || out.url.empty()) {
                    out.clear();
                    return false;
                }
                notes.url_inline = !(flag & R::value_long);
                break;
            case R::column_filename: utf16_text(text, stored.size(), out.file_name); break;
            case R::column_request_headers: out.request_headers = stored; break;
            case R::column_response_headers: out.response_headers = stored; break;
            case R::column_redirect_url: utf16_text(text, stored.size(), out.redirect_url); break;
            default: break;  // FileExtension, Group, ExtraData: no column of the report holds them
        }
    }
    notes.size = R::at_tagged + end;
    return true;
}
