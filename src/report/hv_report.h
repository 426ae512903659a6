// The report's header row and its rows: plain delimited text, or with -complete fields quoted as CSV
// has them; and the choice of the run's writer.
#pragma once
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "entries/hv_activity.h"
#include "entries/hv_entry_writer.h"
#include "report/hv_report_settings.h"
#include "report/hv_row_buffer.h"
#include "foundation/hv_date_text.h"

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

// The default report's rows, or with `complete` the lossless report's, each written to the stream in one
// piece as it comes; the header row goes ahead of the first, or at the end of the first input when
// that had none.
class rows_writer : public entry_writer {
public:
    rows_writer(std::ostream& out, const report_settings& settings);
    void begin_input(const input_ref&) override {}
    void write(const activity_record& row) override;
    // The header row if it is still pending.
    void end_input(const input_summary&) override;
    bool ok() const override { return !out_.bad(); }
    std::unique_ptr<entry_writer> copy_to(std::ostream& out) const override;
    void write_made(const std::string& text) override;

private:
    void write_header_if_pending();

    std::ostream& out_;
    const report_settings settings_;
    bool header_pending_;
    stamp_formatter stamps_;
    row_buffer line_;
    csv_fields csv_;
};

// The writer of the report's form, chosen once for the run: rows, -complete's rows, or a timeline.
std::unique_ptr<entry_writer> make_report_writer(std::ostream& out, const report_settings& settings);
