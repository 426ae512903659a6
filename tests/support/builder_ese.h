// Writes ESE database pages holding Container_N record images: a record's column data from readable
// values, and a 32 KiB leaf page with live tags, deleted tags and images left in its free space.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/builder.h"

namespace testsupport {

// A Container_N record's values; texts are written as UTF-16LE with their NUL.
struct ese_record {
    uint64_t entry_id = 1, container_id = 1, file_size = 0;
    uint32_t secure_directory = 0, type = 0, flags = 0, access_count = 1, sync_count = 0, exemption_delta = 0;
    uint64_t sync_time = 0, creation_time = 0, expiry_time = 0, modified_time = 0, accessed_time = 0, post_check_time = 0;
    std::string url = "http://example.com/", file_name, response_headers;
    uint32_t url_long_value = 0;  // nonzero: the Url is a reference to this long value, not stored inline
    uint8_t url_flag = 0x01;      // the Url's flag byte when inline
};

// The record's column data: its data definition header first.
std::string ese_record_image(const ese_record& record);
// UTF-16LE of ASCII text with a NUL.
std::string utf16_of(const std::string& text);

// A leaf page of the table object `object`: each live and deleted image in a tag of its own (key: the
// entry id, 8 bytes), and each free-space image after the tags' values, no tag pointing at it.
struct ese_leaf_page {
    uint32_t object = 40;
    uint64_t page_number = 7;
    uint32_t flags = 0x2;  // a leaf
    std::vector<std::string> live, deleted, free_space;
};
constexpr size_t ese_page_size = 32768;
constexpr size_t ese_page_header_size = 80;
struct ese_page_layout {
    std::vector<size_t> live, deleted, free_space;  // each image's offset in the page
};
std::string ese_page_bytes(const ese_leaf_page& page, ese_page_layout* layout = nullptr);

// A leaf page of any object from its entries: each a key and data, its first `common` key bytes taken
// from tag 0's value (`prefix`), the page's common key.
struct ese_entry {
    std::string key, data;
    size_t common = 0;
    bool deleted = false;
};
std::string ese_entries_page(uint32_t object, uint32_t flags, const std::string& prefix,
                             const std::vector<ese_entry>& entries);
// A catalog record naming `long_values` the long-value tree of the table `table`.
std::string ese_catalog_long_values_record(uint32_t table, uint32_t long_values);
// A long value's entries: its root (reference count 1, size) and its pieces of `piece` bytes.
std::vector<ese_entry> ese_long_value_entries(uint32_t id, const std::string& value, size_t piece);

}  // namespace testsupport
