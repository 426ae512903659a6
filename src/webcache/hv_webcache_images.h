// Container_N record images found in bytes rather than read through the library: in a database's pages
// (live tags, deleted tags, free space, pages outside any table's tree) and anywhere else (carved).
// Pure over (bytes, size).
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "webcache/hv_ese_page.h"
#include "webcache/hv_ese_record.h"
#include "webcache/hv_webcache.h"

enum class webcache_record_state { live, deleted_tag, free_space, outside_tree, carved };

// "live", "deleted tag", "free space", "outside the tree", "carved".
const char* webcache_record_state_name(webcache_record_state state);

struct webcache_image {
    webcache_record record;  // record.container left null: the caller knows the tables
    webcache_record_state state = webcache_record_state::carved;
    size_t offset = 0;  // of the data definition header, from the bytes' start
    uint64_t container_id = 0;  // the record's own ContainerId column
};

// The largest image: a record lives in one page, and pages are at most 32 KiB.
constexpr size_t webcache_image_limit = 32768;

// The images of one database page. `in_table`: the page's header names a Container_N table's object and
// the page is a leaf of it; otherwise every image in it is "outside the tree".
void decode_database_page(const uint8_t* page, size_t page_size, bool in_table, const ese_long_values* long_values,
                          std::vector<webcache_image>& out);

// The first record header at or after `from`, or `size` when none.
size_t next_container_header(const uint8_t* bytes, size_t size, size_t from);

// The image at `at` when it passes the decoder's checks and its Url is stored inline: what a byte scan
// reports as carved. It runs at most to the next record header or webcache_image_limit bytes.
bool carve_container_record(const uint8_t* bytes, size_t size, size_t at, webcache_image& image);

// Every image carve_container_record takes in `bytes` that starts before `start_limit`.
void carve_container_records(const uint8_t* bytes, size_t size, size_t start_limit, std::vector<webcache_image>& out);
