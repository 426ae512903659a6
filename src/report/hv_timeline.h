// The timeline forms of the report (-timeline): a body file for the Sleuth Kit's mactime, one line
// per entry, and JSON Lines, one event per set stamp of an entry. Rows come with the lossless decoding.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "entries/hv_activity.h"
#include "entries/hv_entry_writer.h"
#include "report/hv_report_settings.h"
#include "report/hv_row_buffer.h"

// One set stamp of a row.
struct timeline_stamp {
    // The report's four, then two that only a database record has.
    enum which : uint8_t { last_modified, last_access, expires, last_sync, created, post_check };
    static constexpr size_t kinds = 6;
    static const char* const descriptions[kinds];  // jsonl's timestamp_desc of each
    which kind;
    bool local;     // the report labels it " local"
    int64_t ticks;  // in 100 ns since 1601-01-01: as stored, or the instant (timeline_stamps)
};

// The row's stamps that the report shows as a date, and only those, in its column order, as stored:
// a local one is the calendar of the examined machine's clock.
size_t shown_stamps(const activity_record& row, timeline_stamp (&out)[timeline_stamp::kinds]);
// The same as instants: a local stamp's calendar read as the local time of TZ (mktime), and left out
// when the C library can't place it.
size_t timeline_stamps(const activity_record& row, timeline_stamp (&out)[timeline_stamp::kinds]);

// The length of the row's signature without the blank of "URL ": its type as jsonl writes it.
size_t type_size(const activity_record& row);
// The cache kind as jsonl writes it: "unknown", "history", "daily_history", "browser_cache", "cookies", "temp",
// "download".
const char* cache_kind_name(uint32_t category);

// "2015-03-02T08:30:00.250", and "Z" behind it for a UTC time; 24 bytes at most.
char* put_iso_8601(char* out, int64_t ticks, bool utc);

// `text` as a JSON string with its quotes, at `out`, which has room for 6 * size + 2 bytes; answers the
// end. Valid UTF-8 is copied; each byte of anything else is written as the code point of its value, so
// that no byte is lost and the text stays valid.
char* put_json_string(char* out, const char* text, size_t size);

// The timeline forms of rows; its buffers keep their storage from row to row. A timeline is the whole
// report: no header, nothing between inputs.
class timeline_writer : public entry_writer {
public:
    timeline_writer(std::ostream& out, timeline_form form) : out_(out), form_(form) {}
    void begin_input(const input_ref&) override {}
    // The row's line (body) or lines (jsonl: one per set stamp, none without one).
    void write(const activity_record& row) override;
    void end_input(const input_summary&) override {}
    bool ok() const override { return !out_.bad(); }
    std::unique_ptr<entry_writer> copy_to(std::ostream& out) const override {
        return std::make_unique<timeline_writer>(out, form_);
    }
    void write_made(const std::string& text) override {
        out_.write(text.data(), static_cast<std::streamsize>(text.size()));
        out_.flush();
    }

private:
    void put_name(const activity_record& row);
    void put_jsonl_members(const activity_record& row);

    std::ostream& out_;
    timeline_form form_;
    row_buffer name_;  // the entry's one-line description: the body file's name, the events' message
    row_buffer line_;
    std::vector<char> members_;  // jsonl: what all events of an entry share
    size_t members_size_ = 0;
};
