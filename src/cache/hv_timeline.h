// The timeline forms of the report (-timeline): a body file for the Sleuth Kit's mactime, one line
// per entry, and JSON Lines, one event per set stamp of an entry. Rows come with the lossless decoding.
#pragma once
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include "cache/hv_activity.h"
#include "cache/hv_row_buffer.h"
#include "cmdline/hv_cmd_params.h"

// `text` as a JSON string with its quotes, at `out`, which has room for 6 * size + 2 bytes; answers the
// end. Valid UTF-8 is copied; each byte of anything else is written as the code point of its value, so
// that no byte is lost and the text stays valid.
char* put_json_string(char* out, const char* text, size_t size);

// The timeline forms of rows; its buffers keep their storage from row to row.
class timeline_writer {
public:
    explicit timeline_writer(timeline_form form) : form_(form) {}
    // The row's line (body) or lines (jsonl: one per set stamp, none without one).
    void write(std::ostream& out, const activity_record& row);

private:
    void put_name(const activity_record& row);
    void put_jsonl_members(const activity_record& row);

    timeline_form form_;
    row_buffer name_;  // the entry's one-line description: the body file's name, the events' message
    row_buffer line_;
    std::vector<char> members_;  // jsonl: what all events of an entry share
    size_t members_size_ = 0;
};
