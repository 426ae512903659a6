// The report's header row and its rows: plain delimited text, or with -complete fields quoted as CSV
// has them.
#pragma once
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cache/hv_activity.h"
#include "cache/hv_row_buffer.h"
#include "foundation/hv_date_text.h"

class case_database;
class cmd_opts;
class timeline_writer;

// The column names, each followed by the separator but the last, then a line end.
void write_header_row(std::ostream& out, const cmd_opts& opts);

// One row and its line end. With show_note_columns the caller has written the row's number and
// a separator already.
void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts);

// Fields of the lossless report, as CSV has them: quoted, their quotes doubled, when they hold the
// separator, a quote or a line end.
class csv_fields {
public:
    explicit csv_fields(const std::string& separator);
    void put(row_buffer& line, const char* text, size_t size) const;
    // One field of two texts, such as a time and its zone word.
    void put(row_buffer& line, const char* text, size_t size, const char* more, size_t more_size) const;
    // Whether a row written with `separators` separators and no quotes holds no field that needs them:
    // then it is the row as quoting would write it.
    bool plain_row(const char* row, size_t size, size_t separators) const;

private:
    bool needs_quotes(const char* text, size_t size) const;
    static void put_quoted(row_buffer& line, const char* text, size_t size);
    std::string separator_;
    size_t first_in_separator_ = 0;  // how often the separator holds its first byte
    bool special_[256] = {};
};

// The rows of a run, each written to the report stream in one piece as it comes; the header row
// goes ahead of the first, or at the end of the first input when that had none. With -timeline, each
// row is written in the timeline's form instead.
// With -sqlite, each row also goes to the case database.
class report_writer {
public:
    // Without `text`, the rows go to the database only: nothing is written to `out`, not even the header.
    report_writer(std::ostream& out, cmd_opts& opts, case_database* database = nullptr, bool text = true);
    ~report_writer();

    void write_row(const activity_record& row);
    // False once the report stream, or the database, has failed.
    bool ok() const;
    case_database* database() const { return database_; }
    // The end of an input's rows: the header row if it is still pending; rows number from 1 again.
    void end_input();

private:
    void write_header_if_pending();

    std::ostream& out_;
    cmd_opts& opts_;
    stamp_formatter stamps_;
    row_buffer line_;
    csv_fields csv_;
    std::unique_ptr<timeline_writer> timeline_;  // null without -timeline
    case_database* database_;                    // null without -sqlite
    bool text_;
    uint64_t number_ = 0;  // of the row in its input, for the note columns
};
