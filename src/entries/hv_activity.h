// The one entry type between the readers and the writers: a cache entry as decoded, with where it lies.
#pragma once
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "foundation/hv_bytes.h"
#include "foundation/hv_time.h"

// A DOS date and time pair, date word first, as stored.
using dos_stamp = hv::dos_pair;

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

// One entry, as every reader makes it and every writer takes it: its stamps, texts and numbers, and
// where it lies (the input, the offset, allocation and hash listing, the file in an image).
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
    std::string url;
    std::string http_header;
    bool is_local_time;
    uint64_t last_modified;  // raw FILETIME, 0 for none
    uint64_t last_access;    // raw FILETIME, 0 for none
    dos_stamp expires;
    dos_stamp last_sync;
    dos_stamp second_stamp;  // only LEAK rows carry it
    uint8_t directory_index;
    bool is_redr;
    bool is_leak;
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
        url.clear();
        http_header.clear();
        is_local_time = false;
        last_modified = 0;
        last_access = 0;
        expires = {};
        last_sync = {};
        second_stamp = {};
        directory_index = 0xFE;
        is_redr = false;
        is_leak = false;
        allocated = -1;
        hash_listed = -1;
        if (webcache.present) webcache.clear();
        image_file.clear();
        file_state = 0;
    }
};


