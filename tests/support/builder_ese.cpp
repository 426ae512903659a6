#include "support/builder_ese.h"

namespace testsupport {

std::string utf16_of(const std::string& text) {
    std::string out;
    for (char c : text) {
        out += c;
        out += '\0';
    }
    out.append(2, '\0');
    return out;
}

std::string ese_record_image(const ese_record& r) {
    byte_image image(119);
    image.u8(0, 17).u8(1, 127).u16(2, 119);
    image.u64(4, r.entry_id).u64(12, r.container_id).u64(20, 0).u64(28, 0).u32(36, r.secure_directory);
    image.u64(40, r.file_size).u32(48, r.type).u32(52, r.flags).u32(56, r.access_count);
    image.u64(60, r.sync_time).u64(68, r.creation_time).u64(76, r.expiry_time).u64(84, r.modified_time);
    image.u64(92, r.accessed_time).u64(100, r.post_check_time).u32(108, r.sync_count).u32(112, r.exemption_delta);
    image.u8(116, 0).u8(117, 0).u8(118, 0xfe);  // columns 18-24 don't exist: null
    // The tagged columns: Url, then Filename and ResponseHeaders when set, each value a flag byte first.
    std::vector<std::pair<uint16_t, std::string>> values;
    if (r.url_long_value != 0) {
        byte_image id(4);
        id.u32(0, r.url_long_value);
        values.push_back({256, std::string(1, '\x05') + id.bytes()});
    } else {
        values.push_back({256, std::string(1, static_cast<char>(r.url_flag)) + utf16_of(r.url)});
    }
    if (!r.file_name.empty()) values.push_back({257, std::string(1, '\x01') + utf16_of(r.file_name)});
    if (!r.response_headers.empty()) values.push_back({260, std::string(1, '\x01') + r.response_headers});
    size_t offset = 4 * values.size();
    byte_image array(offset);
    std::string data;
    for (size_t i = 0; i < values.size(); ++i) {
        array.u16(4 * i, values[i].first).u16(4 * i + 2, static_cast<uint16_t>(offset + data.size()));
        data += values[i].second;
    }
    return image.bytes() + array.bytes() + data;
}

std::string ese_page_bytes(const ese_leaf_page& page, ese_page_layout* layout) {
    byte_image image(ese_page_size);
    image.u32(24, page.object).u32(36, page.flags).u64(64, page.page_number);
    // Tag 0 is the page's own (empty) header; then the live and deleted records.
    struct tag {
        const std::string* record;
        bool deleted;
    };
    std::vector<tag> tags;
    for (const std::string& r : page.live) tags.push_back({&r, false});
    for (const std::string& r : page.deleted) tags.push_back({&r, true});
    const size_t count = tags.size() + 1;
    size_t at = ese_page_header_size;
    image.u16(ese_page_size - 4, 0).u16(ese_page_size - 2, 0);
    uint64_t key = 1;
    for (size_t i = 0; i < tags.size(); ++i) {
        // The value: u16 key size with the tag's flags in its top bits, the key, the record.
        const size_t size = 2 + 8 + tags[i].record->size();
        const uint16_t flags = tags[i].deleted ? 0x2 : 0x0;
        image.u16(at, static_cast<uint16_t>((flags << 13) | 8));
        for (int b = 7; b >= 0; --b) image.u8(at + 2 + (7 - b), static_cast<uint8_t>(key >> (8 * b)));
        ++key;
        image.text(at + 10, *tags[i].record);
        const size_t slot = ese_page_size - 4 * (i + 2);
        image.u16(slot, static_cast<uint16_t>(size)).u16(slot + 2, static_cast<uint16_t>(at - ese_page_header_size));
        if (layout != nullptr) (tags[i].deleted ? layout->deleted : layout->live).push_back(at + 10);
        at += size;
    }
    image.u16(32, static_cast<uint16_t>(at - ese_page_header_size)).u16(34, static_cast<uint16_t>(count));
    for (const std::string& r : page.free_space) {
        at += 16;  // a gap of zeros, as a freed value leaves
        image.text(at, r);
        if (layout != nullptr) layout->free_space.push_back(at);
        at += r.size();
    }
    return image.bytes();
}

std::string ese_entries_page(uint32_t object, uint32_t flags, const std::string& prefix,
                             const std::vector<ese_entry>& entries) {
    byte_image image(ese_page_size);
    image.u32(24, object).u32(36, flags).u64(64, 9);
    size_t at = ese_page_header_size;
    image.text(at, prefix);
    image.u16(ese_page_size - 4, static_cast<uint16_t>(prefix.size())).u16(ese_page_size - 2, 0);
    at += prefix.size();
    for (size_t i = 0; i < entries.size(); ++i) {
        const ese_entry& e = entries[i];
        const uint16_t tag_flags = static_cast<uint16_t>((e.deleted ? 0x2 : 0) | (e.common != 0 ? 0x4 : 0));
        const std::string local = e.key.substr(e.common);
        size_t size = 0;
        if (e.common != 0) {
            image.u16(at, static_cast<uint16_t>((tag_flags << 13) | e.common)).u16(at + 2, static_cast<uint16_t>(local.size()));
            size = 4;
        } else {
            image.u16(at, static_cast<uint16_t>((tag_flags << 13) | local.size()));
            size = 2;
        }
        image.text(at + size, local + e.data);
        size += local.size() + e.data.size();
        const size_t slot = ese_page_size - 4 * (i + 2);
        image.u16(slot, static_cast<uint16_t>(size)).u16(slot + 2, static_cast<uint16_t>(at - ese_page_header_size));
        at += size;
    }
    image.u16(32, static_cast<uint16_t>(at - ese_page_header_size)).u16(34, static_cast<uint16_t>(entries.size() + 1));
    return image.bytes();
}

std::string ese_catalog_long_values_record(uint32_t table, uint32_t long_values) {
    byte_image record(14);
    record.u8(0, 11).u8(1, 127).u32(4, table).u16(8, 4).u32(10, long_values);
    return record.bytes();
}

namespace {
std::string big_endian(uint32_t v) {
    std::string out(4, '\0');
    for (int i = 0; i < 4; ++i) out[i] = static_cast<char>(v >> (8 * (3 - i)));
    return out;
}
}  // namespace

std::vector<ese_entry> ese_long_value_entries(uint32_t id, const std::string& value, size_t piece) {
    byte_image root(8);
    root.u32(0, 1).u32(4, static_cast<uint32_t>(value.size()));
    std::vector<ese_entry> entries{{big_endian(id), root.bytes()}};
    for (size_t at = 0; at < value.size(); at += piece)
        entries.push_back({big_endian(id) + big_endian(static_cast<uint32_t>(at)), value.substr(at, piece)});
    return entries;
}

}  // namespace testsupport
