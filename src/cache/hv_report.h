// The report's header row and its rows: plain delimited text, nothing quoted or escaped.
#pragma once
#include <cstdint>
#include <ostream>
#include <string>

#include "cache/hv_activity.h"
#include "foundation/hv_date_text.h"

class cmd_opts;

// The column names, each followed by the separator but the last, then a line end.
void write_header_row(std::ostream& out, const cmd_opts& opts);

// One row and its line end. With show_note_columns the caller has written the row's number and
// a separator already.
void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts);

// The rows of a run, each written to the report stream in one piece as it comes; the header row
// goes ahead of the first, or at the end of the first input when that had none.
class report_writer {
public:
    report_writer(std::ostream& out, cmd_opts& opts);

    void write_row(const activity_record& row);
    // The end of an input's rows: the header row if it is still pending; rows number from 1 again.
    void end_input();

private:
    void write_header_if_pending();

    std::ostream& out_;
    cmd_opts& opts_;
    stamp_formatter stamps_;
    std::string line_, date_, time_;  // reused from row to row
    uint64_t number_ = 0;  // of the row in its input, for the note columns
};
