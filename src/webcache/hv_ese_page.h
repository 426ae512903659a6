// An ESE database page read from its bytes: its header, and where the Container_N record images in it
// lie, in live tags, in tags flagged deleted and in the page's free space. Pure over (bytes, size).
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// The page header of the format's later revisions; pages of 16 and 32 KiB add an extended header.
struct ESE_PAGE_HEADER {
    static constexpr size_t at_previous_page = 16;        // u32
    static constexpr size_t at_next_page = 20;            // u32
    static constexpr size_t at_father_object = 24;        // u32: the object (table, index, long values) owning the page
    static constexpr size_t at_available_size = 28;       // u16
    static constexpr size_t at_first_available_data = 32; // u16: from the header's end
    static constexpr size_t at_tag_count = 34;            // u16: the tags in use
    static constexpr size_t at_flags = 36;                // u32
    static constexpr size_t at_page_number = 64;          // u64, in the extended header
    static constexpr size_t small_size = 40;
    static constexpr size_t large_size = 80;              // pages of 16 KiB and more
    static constexpr size_t large_page = 16384;

    static constexpr uint32_t flag_root = 0x1, flag_leaf = 0x2, flag_parent = 0x4, flag_empty = 0x8,
                              flag_space_tree = 0x20, flag_index = 0x40, flag_long_value = 0x80;
};

// A page tag: 4 bytes from the page's end backwards, tag 0 last. In large pages size and offset have 15
// bits each and the tag's flags are the top 3 bits of the value's first u16.
struct ESE_PAGE_TAG {
    static constexpr size_t size = 4;
    static constexpr size_t at_value_size = 0;  // u16
    static constexpr size_t at_value_offset = 2;  // u16, from the header's end
    static constexpr uint16_t large_mask = 0x7fff, small_mask = 0x1fff;
    static constexpr unsigned flags_shift = 13;
    static constexpr uint16_t flag_version = 0x1, flag_deleted = 0x2, flag_common_key = 0x4;
    static constexpr uint16_t key_size_mask = 0x1fff;
};

struct ese_page {
    uint32_t father_object = 0;
    uint32_t flags = 0;
    uint64_t page_number = 0;  // as the extended header says; 0 in small pages
    bool leaf() const { return (flags & ESE_PAGE_HEADER::flag_leaf) != 0; }
    bool long_values() const { return (flags & ESE_PAGE_HEADER::flag_long_value) != 0; }
    bool index() const { return (flags & ESE_PAGE_HEADER::flag_index) != 0; }
};

enum class ese_image_state { live, deleted_tag, free_space };

// A record image in a page: where its data starts (its data definition header) and how far it may run.
struct ese_page_image {
    size_t offset = 0;
    size_t size = 0;
    ese_image_state state = ese_image_state::live;
};

// The header of a page of `page_size` bytes (2 to 32 KiB); false when the bytes are fewer or the tag
// count can't fit.
bool read_ese_page(const uint8_t* page, size_t page_size, ese_page& out);

// A tag's value: its key and data. False when the tag lies outside the page.
struct ese_tag_value {
    size_t offset = 0, size = 0;     // the whole value, from the page's start
    size_t data = 0, data_size = 0;  // the data after the key
    size_t key = 0, key_size = 0;    // the local key
    size_t common_key_size = 0;      // the key's first bytes, taken from tag 0's value
    uint16_t flags = 0;
};
bool read_ese_tag(const uint8_t* page, size_t page_size, size_t tag, ese_tag_value& out);
// A tag's value as bytes, with no key read from it (tag 0's: the page's common key). False when it
// lies outside the page.
bool read_ese_tag_span(const uint8_t* page, size_t page_size, size_t tag, size_t& offset, size_t& size);

// Every place in the page where a Container_N record image starts, in offset order: a live tag's
// data, a deleted tag's, or the record header found anywhere else in the data area (free space).
// Record signatures inside a tag's value past its start are no images: they are that value's bytes.
void find_page_images(const uint8_t* page, size_t page_size, std::vector<ese_page_image>& out);
