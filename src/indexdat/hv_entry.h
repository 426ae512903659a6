// Decoding of one entry at a signature, and its turning into a report row.
#pragma once
#include <cstdint>
#include <string>

#include "entries/hv_activity.h"
#include "indexdat/hv_index_format.h"

// Answer of find_next_signature when no signature follows.
constexpr uint32_t no_signature = 0xFFFFFFFFu;

// Distance from `from` to the next "URL ", "LEAK" or "REDR" on a 128-byte boundary, never
// looking at `from` itself; no_signature when none lies before the last 4 bytes.
uint32_t find_next_signature(const uint8_t* from, uint64_t size);

// Why the block count rewrite lives on: the decoder once wrote it over the entry's count in the input's
// bytes in memory, and reads of those bytes saw it (the entry's own texts, the container's directory
// names read after the walk). Nothing is written now; every such read asks this for the byte it saw.
struct block_count_rewrite {
    uint64_t position = 0;  // the entry's signature, in the input
    uint32_t blocks = 0;    // the count written; 0 for none
    uint8_t seen(uint64_t at, uint8_t stored) const {
        if (blocks == 0 || at < position + 4 || at >= position + 8) return stored;
        return static_cast<uint8_t>(blocks >> (8 * (at - position - 4)));
    }
};

// Entries of this many blocks or more are never reported.
constexpr uint32_t max_entry_blocks = 10;

// Decodes the "URL " or "LEAK" entry at `buffer + offset`, `size` being the buffer's length.
// 1 when the record may be used. When another signature follows inside the entry, the distance in
// blocks stands in for the entry's block count (block_count_rewrite) and bounds all reads from then
// on; the record's header keeps the file's own count. The buffer is only read.
// `whole`, for the lossless report: no rewrite, a LEAK entry's URL, user and header are read, and fields
// keep their bytes (only the blanks around the header and the user go). It answers 1 for every entry
// whose fixed part lies in the buffer: a field that can't be read stays empty, and so it never rejects
// an entry that the default decoding takes.
int decode_url_or_leak(URL_OR_LEAK_ACTIVITY_RECORD& record, const uint8_t* buffer, uint32_t offset, uint32_t size,
                       bool whole = false);

// Decodes the "REDR" entry at `buffer + offset`; 1 when the record may be used. `whole`: the URL as stored.
int decode_redr(REDR_ACTIVITY_RECORD& record, const uint8_t* buffer, uint64_t offset, uint32_t size,
                bool whole = false);

// What decoding the entries of one input needs besides their bytes: records reused from entry to
// entry (their texts keep their storage), the input's source text, the same on every row, and the cache
// kind its rows get.
struct entry_decoder {
    explicit entry_decoder(bool whole_entries) : whole(whole_entries) {}

    bool whole;  // the lossless report's decoding
    // Set from the path of a file read whole; a file that isn't, and a disk, keep the last one's.
    uint32_t cache_category = cache_unknown;
    std::string source;
    URL_OR_LEAK_ACTIVITY_RECORD url_record;
    REDR_ACTIVITY_RECORD redr_record;
};

// Decodes the entry whose signature is at `entry`, `remaining` bytes before the buffer's end, into
// `row` for the input position `position`. 1 when a row was made.
int decode_entry_at(activity_record& row, entry_decoder& decoder, const uint8_t* entry, uint32_t remaining,
                    uint64_t position);

// The cache kind the words of `path` name, into `category`: 1 for a known kind. An empty path
// leaves `category` as it is.
int classify_container_path(const std::string& path, uint32_t& category);

// The record as a row of the input named `source`; its texts move into the row. `whole`: the lossless
// decoding's row.
void fill_activity_from_url_or_leak(activity_record& row, URL_OR_LEAK_ACTIVITY_RECORD&& record, uint32_t category,
                                    const std::string& source, bool whole);
void fill_activity_from_redr(activity_record& row, REDR_ACTIVITY_RECORD&& record, uint32_t category,
                             const std::string& source);
